#pragma once

// Small value types shared by the host and the render model.

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

using Tstring = std::string;
// An object several owners share, freed with its last owner.
template <class T>
using TsharedObjectPtr = std::shared_ptr<T>;
using TuInt32Array = std::vector<uint32_t>;

struct T2Float {
    float x = 0.0f;
    float y = 0.0f;
};

struct T3Float {
    float x = 0.0f;
    float y = 0.0f;
    float z = 0.0f;

    float& operator[](int i) { return (&x)[i]; }
    float operator[](int i) const { return (&x)[i]; }
};

// The luminance weights of every colour-to-grey step: 0.3, 0.59, 0.11.
inline float OrvoLuminance(float r, float g, float b) {
    return 0.3f * r + 0.59f * g + 0.11f * b;
}
inline float OrvoLuminance(const T3Float& c) {
    return OrvoLuminance(c.x, c.y, c.z);
}

// 4 by 4 float matrix, row vectors: a point p maps to p * M, translation in
// the last row.
struct T4dFltMatrix {
    float m[4][4] = {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}};
};

// A set of 64 bits, as used for sample field sets.
class TbitField64 {
public:
    constexpr TbitField64() = default;
    constexpr explicit TbitField64(uint64_t bits) : fBits(bits) {}

    constexpr void set(unsigned bit) { fBits |= uint64_t(1) << bit; }
    constexpr void clear(unsigned bit) { fBits &= ~(uint64_t(1) << bit); }
    constexpr bool test(unsigned bit) const { return (fBits >> bit) & 1u; }
    constexpr uint64_t bits() const { return fBits; }
    constexpr bool empty() const { return fBits == 0; }
    constexpr bool any() const { return fBits != 0; }
    int count() const { return std::popcount(fBits); }

    constexpr TbitField64& operator|=(TbitField64 o) {
        fBits |= o.fBits;
        return *this;
    }
    constexpr TbitField64& operator&=(TbitField64 o) {
        fBits &= o.fBits;
        return *this;
    }
    friend constexpr bool operator==(TbitField64, TbitField64) = default;

private:
    uint64_t fBits = 0;
};

// A set of N bits, N fixed when the set is made (the attribute count of a node
// type, for instance). Made during analysis, never on the per-sample path.
class TbitFieldFixedN {
public:
    TbitFieldFixedN() = default;
    explicit TbitFieldFixedN(size_t size) : fSize(size), fWords((size + 63) / 64, 0) {}

    size_t size() const { return fSize; }
    void resize(size_t size) {
        fSize = size;
        fWords.assign((size + 63) / 64, 0);
    }
    void set(size_t bit) { fWords[bit >> 6] |= uint64_t(1) << (bit & 63); }
    void clear(size_t bit) { fWords[bit >> 6] &= ~(uint64_t(1) << (bit & 63)); }
    bool test(size_t bit) const { return bit < fSize && ((fWords[bit >> 6] >> (bit & 63)) & 1u); }
    void setAll() {
        for (uint64_t& w : fWords)
            w = ~uint64_t(0);
        trimTail();
    }
    void clearAll() {
        for (uint64_t& w : fWords)
            w = 0;
    }
    size_t count() const {
        size_t n = 0;
        for (uint64_t w : fWords)
            n += std::popcount(w);
        return n;
    }
    bool any() const {
        for (uint64_t w : fWords)
            if (w)
                return true;
        return false;
    }
    TbitFieldFixedN& operator|=(const TbitFieldFixedN& o) {
        for (size_t i = 0; i < fWords.size() && i < o.fWords.size(); ++i)
            fWords[i] |= o.fWords[i];
        return *this;
    }
    TbitFieldFixedN& operator&=(const TbitFieldFixedN& o) {
        for (size_t i = 0; i < fWords.size(); ++i)
            fWords[i] &= i < o.fWords.size() ? o.fWords[i] : 0;
        return *this;
    }
    friend bool operator==(const TbitFieldFixedN&, const TbitFieldFixedN&) = default;

    // Calls f(index) for every set bit, in increasing order.
    template <class F>
    void forEach(F&& f) const {
        for (size_t w = 0; w < fWords.size(); ++w) {
            uint64_t bits = fWords[w];
            while (bits) {
                const int b = std::countr_zero(bits);
                f(w * 64 + size_t(b));
                bits &= bits - 1;
            }
        }
    }

private:
    void trimTail() {
        if (fSize % 64 && !fWords.empty())
            fWords.back() &= (uint64_t(1) << (fSize % 64)) - 1;
    }
    size_t fSize = 0;
    std::vector<uint64_t> fWords;
};

// Rounds `value` up to a multiple of `alignment` (a power of two).
constexpr size_t OrvoAlignUp(size_t value, size_t alignment) {
    return (value + alignment - 1) & ~(alignment - 1);
}
