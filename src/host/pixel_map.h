#pragma once

// Pixel maps of the host's image library: an image in memory, four
// components a pixel in blue, green, red, alpha order, rows bottom-up (row 0
// is the image's bottom row, so that v = 0 is the bottom edge of a texture).
//
// channels() tells what the source held, since the four components are
// always there: 1 for a grey image (the grey is in every component, alpha
// included), 3 for colour without alpha (alpha is full: 255 or 1.0), 4 for
// colour with alpha. A grey image with alpha counts as 4, its grey copied to
// blue, green and red.

#include <cstddef>
#include <cstdint>
#include <memory>

template <class T>
class TgenericPixelMap {
public:
    static constexpr unsigned kComponents = 4;
    enum Component : unsigned { kBlue = 0, kGreen = 1, kRed = 2, kAlpha = 3 };

    TgenericPixelMap() = default;
    TgenericPixelMap(unsigned width, unsigned height, unsigned channels = 4) {
        resize(width, height, channels);
    }
    TgenericPixelMap(TgenericPixelMap&&) noexcept = default;
    TgenericPixelMap& operator=(TgenericPixelMap&&) noexcept = default;

    // New, uninitialised pixels.
    void resize(unsigned width, unsigned height, unsigned channels) {
        fWidth = width;
        fHeight = height;
        fChannels = channels;
        fPixels.reset(new T[size_t(width) * height * kComponents]);
    }

    unsigned width() const { return fWidth; }
    unsigned height() const { return fHeight; }
    unsigned channels() const { return fChannels; }
    void setChannels(unsigned channels) { fChannels = channels; }
    bool empty() const { return fWidth == 0 || fHeight == 0; }

    // Row y from the bottom.
    T* row(unsigned y) { return fPixels.get() + size_t(y) * fWidth * kComponents; }
    const T* row(unsigned y) const { return fPixels.get() + size_t(y) * fWidth * kComponents; }
    T* pixel(unsigned x, unsigned y) { return row(y) + size_t(x) * kComponents; }
    const T* pixel(unsigned x, unsigned y) const { return row(y) + size_t(x) * kComponents; }
    T* data() { return fPixels.get(); }
    const T* data() const { return fPixels.get(); }

    // Sets pixel (x, y) from red, green, blue, alpha.
    void setRGBA(unsigned x, unsigned y, T r, T g, T b, T a) {
        T* p = pixel(x, y);
        p[kBlue] = b;
        p[kGreen] = g;
        p[kRed] = r;
        p[kAlpha] = a;
    }

private:
    unsigned fWidth = 0;
    unsigned fHeight = 0;
    unsigned fChannels = 0;
    std::unique_ptr<T[]> fPixels;
};

// The 8-bit pixel map.
class TpixelMap : public TgenericPixelMap<uint8_t> {
public:
    using TgenericPixelMap<uint8_t>::TgenericPixelMap;
};
