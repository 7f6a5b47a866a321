#include "host/draw/texture_object.h"

#include <algorithm>
#include <vector>

#include "host/pixel_map.h"

#ifndef GL_GENERATE_MIPMAP
#define GL_GENERATE_MIPMAP 0x8191
#endif
#ifndef GL_BGRA
#define GL_BGRA 0x80E1
#endif

namespace {

unsigned powerOfTwoAtLeast(unsigned n) {
    unsigned p = 1;
    while (p < n)
        p <<= 1;
    return p;
}

} // namespace

TglTextureObject::~TglTextureObject() {
    release();
}

void TglTextureObject::release() {
    // The name dies with its context: free it only while the context lives,
    // and through that context.
    if (fName && !fContext.expired() && fPort) {
        if (!fPort->isCurrent())
            fPort->makeCurrent();
        glDeleteTextures(1, &fName);
    }
    fName = 0;
    fPort = nullptr;
    fContext.reset();
}

void TglTextureObject::texImage2D(T3dPort& port, const TpixelMap& map) {
    if (map.empty())
        return;
    if (fPort != &port || fContext.expired())
        release();
    if (!port.isCurrent())
        port.makeCurrent();

    GLint cardLimit = 0;
    glGetIntegerv(GL_MAX_TEXTURE_SIZE, &cardLimit);
    unsigned limit = cardLimit > 0 ? unsigned(cardLimit) : 2048u;
    if (fSizeLimit)
        limit = std::min(limit, fSizeLimit);
    unsigned w = map.width(), h = map.height();
    unsigned step = 1;
    while (w / step > limit || h / step > limit)
        step *= 2;
    w = std::max(1u, w / step);
    h = std::max(1u, h / step);
    if (!port.hasExtension("GL_ARB_texture_non_power_of_two")) {
        w = std::min(powerOfTwoAtLeast(w), limit);
        h = std::min(powerOfTwoAtLeast(h), limit);
    }

    const uint8_t* pixels = map.data();
    std::vector<uint8_t> scaled;
    if (w != map.width() || h != map.height()) {
        scaled.resize(size_t(w) * h * 4);
        for (unsigned y = 0; y < h; ++y)
            for (unsigned x = 0; x < w; ++x) {
                const unsigned sx = unsigned(uint64_t(x) * map.width() / w);
                const unsigned sy = unsigned(uint64_t(y) * map.height() / h);
                std::copy_n(map.pixel(sx, sy), 4, &scaled[(size_t(y) * w + x) * 4]);
            }
        pixels = scaled.data();
    }

    if (!fName)
        glGenTextures(1, &fName);
    fPort = &port;
    fContext = port.contextToken();
    glBindTexture(GL_TEXTURE_2D, fName);
    fMipmapped = port.hasExtension("GL_SGIS_generate_mipmap");
    if (fMipmapped)
        glTexParameteri(GL_TEXTURE_2D, GL_GENERATE_MIPMAP, GL_TRUE);
    // Pixel maps are blue, green, red, alpha from the bottom row up, which
    // is how the card takes BGRA.
    glTexImage2D(GL_TEXTURE_2D, 0, map.channels() == 4 ? GL_RGBA8 : GL_RGB8, GLsizei(w), GLsizei(h),
                 0, GL_BGRA, GL_UNSIGNED_BYTE, pixels);
    fWidth = w;
    fHeight = h;
    fFormat = map.channels() == 4 ? 4 : 3;
    fStateChanged = true;
}

void TglTextureObject::setFilter(bool useOwn, GLenum magnification, GLenum minification) {
    fUseOwnFilter = useOwn;
    fMag = magnification;
    fMin = minification;
    fStateChanged = true;
}

void TglTextureObject::setWrap(GLenum s, GLenum t) {
    fWrapS = s;
    fWrapT = t;
    fStateChanged = true;
}

bool TglTextureObject::apply() {
    if (!fName || fContext.expired())
        return false;
    glBindTexture(GL_TEXTURE_2D, fName);
    GLenum mag = GL_LINEAR, min = fMipmapped ? GL_LINEAR_MIPMAP_LINEAR : GL_LINEAR;
    if (fUseOwnFilter) {
        mag = fMag;
        min = fMin;
        // A mipmap filter on a texture without mipmaps would draw nothing.
        if (!fMipmapped && min != GL_NEAREST && min != GL_LINEAR)
            min = GL_LINEAR;
    }
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GLint(mag));
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GLint(min));
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GLint(fForceClamp ? GL_CLAMP : fWrapS));
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GLint(fForceClamp ? GL_CLAMP : fWrapT));
    const GLfloat border[4] = {fBorder.r, fBorder.g, fBorder.b, fBorder.a};
    glTexParameterfv(GL_TEXTURE_2D, GL_TEXTURE_BORDER_COLOR, border);
    glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_MODULATE);
    glEnable(GL_TEXTURE_2D);
    fStateChanged = false;
    return true;
}
