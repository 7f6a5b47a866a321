#pragma once

// The viewport's shadow pass: for each light that casts depth map shadows,
// the scene is drawn from the light into the depth buffer and copied into a
// depth texture, which the draw then compares against. Which way the draw
// compares is chosen by what the card offers: depth textures compared in
// the texture unit (the shadow extensions), or texture combiners where
// those are missing.

#include <GL/gl.h>

#include <functional>
#include <memory>
#include <vector>

#include "host/draw/port.h"
#include "host/scene/matrix.h"

class TdependGraph;

// One shadowing light as the pass sees it: where it looks from, in the
// space the geometry is drawn in (the camera's eye space for the viewport).
struct TlightInfoShadowPass {
    const class TlightShape* light = nullptr;
    // The geometry's space to the light's view space (the light looking
    // down its -Z), and the light's orthographic box in that space.
    T4dDblMatrix toLight;
    double halfWidth = 1.0, nearClip = 0.0, farClip = 1.0;
    unsigned resolution = 512;
    // Polygon offset units for this light (dmapBias in depth steps).
    float offsetUnits = 1.0f;
    GLuint depthTexture = 0;
};

class TshadowPassProcess {
public:
    enum Path {
        kNoShadows = 0,
        kSGIXshadows = 1,      // depth textures compared in the texture unit
        kTextureCombiners = 2, // depth read back through texture combiners
    };
    // Polygon offset of the light's view: the slope factor, and the units
    // per unit of a light's offset. Enough to keep lit surfaces from
    // shadowing themselves at a texel's size.
    static constexpr float kOffsetFactor = 2.0f;
    static constexpr float kOffsetUnitsScale = 64.0f;

    TshadowPassProcess() = default;
    ~TshadowPassProcess();
    TshadowPassProcess(const TshadowPassProcess&) = delete;
    TshadowPassProcess& operator=(const TshadowPassProcess&) = delete;

    // Picks the path the port's extensions allow.
    Path checkExtensions(const T3dPort& port);
    Path path() const { return fPath; }

    // The directional lights of the graph with depth map shadows on, their
    // boxes fitted around a sphere (centre and radius in the geometry's
    // space) that holds the scene; `geometryToWorld` takes the geometry's
    // space to world space.
    void getAllShadowingLights(TdependGraph& graph, const T4dDblMatrix& geometryToWorld,
                               const T3dDblVector& centre, double radius);
    std::vector<TlightInfoShadowPass>& lights() { return fLights; }

    // Draws the scene (`drawGeometry` issues its triangles in the geometry's
    // space) from the light into the port's depth buffer, and copies the
    // result into the light's depth texture. The port's colour is left
    // alone; its depth buffer is cleared afterwards.
    void updateDepthMap(T3dPort& port, TlightInfoShadowPass& light,
                        const std::function<void()>& drawGeometry);
    // The light's projection times its view: geometry space to the light's
    // clip space.
    static T4dDblMatrix computeProjectionMatrix(const TlightInfoShadowPass& light);
    // The lookup of a light's map in a draw that follows its updateDepthMap.
    // Texture unit 1 holds the depth map, and on the combiner path unit 2 a
    // ramp that turns the fragment's depth from the light into an alpha;
    // either way a fragment's alpha ends above 0.5 where the light's map
    // sees the surface and below where it does not, and the caller tests
    // alpha against 0.5. The texture coordinates come from eye-linear
    // texgen, set under the current modelview matrix (the one that takes
    // the geometry's space to eye space: identity for the viewport).
    void bindDMapTextures(const TlightInfoShadowPass& light);
    void configTexgen(const TlightInfoShadowPass& light);
    void configCombiners();
    void disableTexgen();
    void disableCombiners();
    static constexpr GLenum kDepthUnit = GL_TEXTURE1;
    static constexpr GLenum kRampUnit = GL_TEXTURE2;
    // Texels of the ramp, and how far its depths lie nearer the light than
    // the fragment's, as a share of the light's depth range. Combiners may
    // work in 8 bits a channel, where a lit surface's map depth and its own
    // depth round to the same step: two steps of bias keep it lit (and make
    // this path's shadows start that much later than the other's).
    static constexpr unsigned kRampTexels = 4096;
    static constexpr float kRampBias = 2.0f / 255.0f;

    // Frees the depth textures.
    void removeDepthMaps();

    static void setUseHighPrecisionShadows(bool on) { sHighPrecision = on; }
    static bool useHighPrecisionShadows() { return sHighPrecision; }

private:
    void setupGL_OffsetPolygons(const TlightInfoShadowPass& light);

    Path fPath = kNoShadows;
    std::vector<TlightInfoShadowPass> fLights;
    // The context the depth textures live in, while it lives.
    T3dPort* fPort = nullptr;
    std::weak_ptr<void> fContext;
    GLuint fRamp = 0;
    static bool sHighPrecision;
};
