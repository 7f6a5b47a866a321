#pragma once

// A texture on the drawing card: a pixel map uploaded into a port's
// context, with the filters, wrapping and border colour it is drawn with.
// Material textures of the viewport hold these through
// TsharedGlTextureObject, so that infos showing the same file share one.

#include <GL/gl.h>

#include <cstdint>
#include <memory>

#include "host/draw/port.h"

class TpixelMap;

class TglTextureObject {
public:
    TglTextureObject() = default;
    ~TglTextureObject();
    TglTextureObject(const TglTextureObject&) = delete;
    TglTextureObject& operator=(const TglTextureObject&) = delete;

    // The largest side the image is uploaded at; a larger image is scaled
    // down (by whole pixels, nearest) until it fits. 0: no limit but the
    // card's.
    void setSizeLimit(unsigned limit) { fSizeLimit = limit; }
    unsigned sizeLimit() const { return fSizeLimit; }

    // Uploads the map into `port` (made current), replacing what the object
    // held. A card without non-power-of-two textures gets the image scaled
    // to powers of two. Mipmaps are made on the card when it can.
    void texImage2D(T3dPort& port, const TpixelMap& map);

    // Binds the texture for drawing in the current context, with its
    // filters and wrapping, and enables 2D texturing modulated by the
    // draw colour. False when nothing was uploaded.
    bool apply();

    bool loaded() const { return fName != 0; }
    GLuint name() const { return fName; }
    unsigned width() const { return fWidth; }
    unsigned height() const { return fHeight; }
    // 3 for colour, 4 for colour with alpha.
    unsigned format() const { return fFormat; }

    // Filters. Without its own filter the texture draws with linear
    // magnification and trilinear minification.
    void setFilter(bool useOwn, GLenum magnification, GLenum minification);
    bool usesOwnFilter() const { return fUseOwnFilter; }
    GLenum magnificationFilter() const { return fMag; }
    GLenum minificationFilter() const { return fMin; }
    // Set by a filter change, cleared by the next apply.
    bool stateChanged() const { return fStateChanged; }
    void setStateChanged() { fStateChanged = true; }

    void setWrap(GLenum s, GLenum t);
    GLenum wrapS() const { return fWrapS; }
    GLenum wrapT() const { return fWrapT; }
    void setBorderColor(const TportColor& colour) { fBorder = colour; }
    const TportColor& borderColor() const { return fBorder; }
    // Flagged for a bordered clamp (edges do not repeat).
    bool forceClamp() const { return fForceClamp; }
    void setForceClamp(bool on) { fForceClamp = on; }

private:
    void release();

    GLuint fName = 0;
    std::weak_ptr<void> fContext;
    T3dPort* fPort = nullptr;
    unsigned fWidth = 0, fHeight = 0, fFormat = 0;
    unsigned fSizeLimit = 0;
    bool fMipmapped = false;
    bool fUseOwnFilter = false;
    bool fStateChanged = false;
    bool fForceClamp = false;
    GLenum fMag = GL_LINEAR, fMin = GL_LINEAR_MIPMAP_LINEAR;
    GLenum fWrapS = GL_REPEAT, fWrapT = GL_REPEAT;
    TportColor fBorder{0.0f, 0.0f, 0.0f, 0.0f};
};

using TsharedGlTextureObject = std::shared_ptr<TglTextureObject>;
