#pragma once

// The depth maps of a frame, made before its tiles: for each directional
// light with useDepthMapShadows, an orthographic view of the scene from the
// light, rendered by casting a ray from the light through each texel into
// the renderer's Embree scene (the first surface it meets and the one after
// it, for the mid-distance map), or read from the light's depth files when
// reuseDmap finds them. The buffers go to the light's TuseShadowMap, which
// tiles them into the render cache; the light then shadows through it. The
// files are written when writeDmap asks. When the pass goes, at the end of
// the frame, the maps go with it.
//
// Render callbacks that cast shadows (TrenderCallback::castsShadows) draw
// into each map the pass renders, after its rays and before it is tiled
// and written: their shadowCastCallback is told, in a TshadowCallbackData,
// the depth buffer's address (words0[0]: width x height floats, row by row,
// each the distance from the map's view plane, 0 where nothing was met),
// the mid-distance buffer's (words0[1], 0 without one), the light (path),
// world to the map's view (matrix) and the map's width and height (ints0).
// A callback puts its casters in by writing nearer distances; one that
// answers non-zero is the last asked.

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/scene/matrix.h"

class TdependGraph;
class TrenderCache;
class TrenderScene;
class TnonExtendedLightShape;
class TdirectionalLightShape;
struct TdepthMapSetup;
struct TrenderOptions;

class TdepthMapPass {
public:
    struct Stats {
        unsigned rendered = 0; // maps rendered by casting rays
        unsigned read = 0;     // maps read from depth files
        unsigned written = 0;  // depth files written
        uint64_t rays = 0;     // rays the rendered maps took
    };

    // Makes the maps of every light that asks for them. `sceneName` names
    // the scene file (its stem goes into names with dmapSceneName).
    TdepthMapPass(TdependGraph& graph, const TrenderScene& scene, const std::string& sceneName,
                  const TrenderOptions& options);
    ~TdepthMapPass();
    TdepthMapPass(const TdepthMapPass&) = delete;
    TdepthMapPass& operator=(const TdepthMapPass&) = delete;

    const Stats& stats() const { return fStats; }

private:
    // How the rays of a map's texels go: from where, which way, how far.
    // vx and vy run -1..1 across the face.
    struct FaceRays {
        bool perspective = false;
        std::function<bool(int face, double vx, double vy, T3dDblVector& origin,
                           T3dDblVector& direction)>
            direction;
        // An orthographic map moves each ray's origin across its plane.
        std::function<void(int face, double vx, double vy, T3dDblVector& origin)> texelOrigin;
        double nearest = 0.0, farthest = 1.0;
    };

    // A directional light's orthographic map.
    void makeMap(TdirectionalLightShape& light);
    // A spot or area light's one view, or a point light's cube.
    void makePerspectiveMaps(TnonExtendedLightShape& light, bool cube);
    // Reads, renders and writes the faces of `setup`, then tiles them.
    void renderMaps(TnonExtendedLightShape& light, const TdepthMapSetup& setup,
                    const FaceRays& rays);
    void castFace(int face, int resolution, const FaceRays& rays, float* first, float* second);
    // The scene's bounds along three world directions.
    void sceneExtent(const T3dDblVector& x, const T3dDblVector& y, const T3dDblVector& z,
                     double low[3], double high[3]) const;
    void castCallbackShadows(const TnonExtendedLightShape& light, const TdepthMapSetup& setup,
                             int face, float* first, float* second) const;
    TrenderCache& cache(size_t bytes);

    TdependGraph& fGraph;
    const TrenderScene& fScene;
    std::string fSceneStem;
    std::string fDirectory;
    unsigned fThreads;
    Stats fStats;
    std::vector<TnonExtendedLightShape*> fLights;
    std::unique_ptr<TrenderCache> fPrivateCache;
};

// The frame's extension of a depth file name: "." and the frame, as short
// as it goes ("7", "2.5").
std::string OrvoDepthMapFrameExtension(double frame);
