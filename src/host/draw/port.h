#pragma once

// The drawing port: an OpenGL context the viewport draws into, with the
// fixed-function state a material sets (material colours, blending, depth
// writes) behind small calls. The context is Mesa's offscreen one, so a
// port draws into memory on a machine with no display or GPU; the picture
// is read back with readPixels.
//
// A port's context is current on one thread at a time: the thread that made
// the port, or whichever called makeCurrent last. Ports are not shared
// between threads while drawing.

#include <GL/gl.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

// A colour as the drawing code passes it: red, green, blue, alpha.
struct TportColor {
    float r = 0.0f, g = 0.0f, b = 0.0f, a = 1.0f;
    friend bool operator==(const TportColor&, const TportColor&) = default;
};

class T3dPort {
public:
    // Display flags of a port (flags()).
    enum : uint32_t {
        kWireframe = 0x4,           // outlines only: no material is set up
        kBoundingBox = 0x8,         // boxes only: no material either
        kXray = 0x100,              // everything drawn see-through
        kColorMaterial = 0x2000000, // lit draws take their colour from glColor
    };
    // Graphics flags (graphicsFlags()).
    enum : uint32_t {
        kRescaleNormals = 0x1, // normals of scaled objects are rescaled on the card
    };

    // A port of `width` by `height` pixels with a 24-bit depth buffer.
    // Throws std::runtime_error when no context can be made.
    T3dPort(unsigned width, unsigned height);
    ~T3dPort();
    T3dPort(const T3dPort&) = delete;
    T3dPort& operator=(const T3dPort&) = delete;

    // Makes this port's context current on the calling thread.
    void makeCurrent();
    bool isCurrent() const;

    unsigned width() const { return fWidth; }
    unsigned height() const { return fHeight; }

    uint32_t flags() const { return fFlags; }
    void setFlags(uint32_t flags) { fFlags = flags; }
    uint32_t graphicsFlags() const { return fGraphicsFlags; }
    void setGraphicsFlags(uint32_t flags) { fGraphicsFlags = flags; }
    // The draw uses its own colour, not the one a material texture gives.
    bool usesOwnDrawColor() const { return fOwnDrawColor; }
    void setUsesOwnDrawColor(bool own) { fOwnDrawColor = own; }

    // Whether the context offers the OpenGL extension `name` ("GL_ARB_shadow")
    // and it is not hidden.
    bool hasExtension(const char* name) const;
    // Makes the port answer as a card without the extension `name` would,
    // so that the fallbacks taken on such a card can be drawn (and tested)
    // on one that has it.
    void hideExtension(const std::string& name) { fHidden.push_back(name); }
    // The renderer's name string, for reports.
    std::string rendererName() const;

    // ---- material state (front and back faces alike)
    void setShininess(float shininess);
    void setSpecularColor(const TportColor& colour);
    void setEmissionColor(const TportColor& colour);
    void setDiffuseColor(const TportColor& colour);
    void setAmbientColor(const TportColor& colour);
    const TportColor& ambientColor() const { return fAmbient; }
    const TportColor& diffuseColor() const { return fDiffuse; }
    // The current colour (glColor) for unlit and colour-material draws.
    void setCurrentColor(const TportColor& colour);
    const TportColor& currentColor() const { return fCurrent; }

    // ---- blending and depth
    // Blending with source alpha and one minus source alpha, or none.
    void setAlphaBlend(bool on);
    bool alphaBlend() const { return fBlend; }
    void setDepthWrite(bool on);
    bool depthWrite() const { return fDepthWrite; }
    void setDepthTest(bool on);
    bool depthTest() const { return fDepthTest; }

    // Clears colour and depth.
    void clear(const TportColor& colour);
    // The picture as RGBA bytes, rows from the top.
    std::vector<uint8_t> readPixels() const;
    // The depth buffer, one value in [0, 1] a pixel, rows from the top.
    std::vector<float> readDepth() const;

    // The alpha of see-through (x-ray) draws.
    static float fsXrayAlpha;
    // The largest side of a texture a user's image is loaded at.
    static unsigned fsMaxUserTextureSize;
    // The port textures are uploaded in; null: whichever port is current.
    static T3dPort* fsTexturePort;

    // The indexed colours model views draw their own parts in (the active,
    // lead and template colours...), shared by every port. A scope that
    // needs other values for a while pushes a copy, changes it, and the
    // copy is popped when its token goes.
    static std::vector<TportColor>& modelViewColorTable();
    class ColorTableCopy {
    public:
        ~ColorTableCopy();
        ColorTableCopy(const ColorTableCopy&) = delete;
        ColorTableCopy& operator=(const ColorTableCopy&) = delete;

    private:
        friend class T3dPort;
        ColorTableCopy() = default;
    };
    static std::unique_ptr<ColorTableCopy> pushCopyModelViewColorTable();

    // Lives as long as the port's context: textures hold it weakly to learn
    // whether their names can still be freed.
    std::weak_ptr<void> contextToken() const { return fToken; }

private:
    struct Context;
    std::unique_ptr<Context> fContext;
    std::shared_ptr<void> fToken;
    unsigned fWidth, fHeight;
    uint32_t fFlags = 0;
    uint32_t fGraphicsFlags = 0;
    bool fOwnDrawColor = false;
    TportColor fAmbient{0.0f, 0.0f, 0.0f, 1.0f};
    TportColor fDiffuse{0.8f, 0.8f, 0.8f, 1.0f};
    TportColor fCurrent{1.0f, 1.0f, 1.0f, 1.0f};
    bool fBlend = false;
    bool fDepthWrite = true;
    bool fDepthTest = false;
    std::vector<std::string> fHidden;
};
