#pragma once

// The per-thread half of the renderer: it follows rays through the scene,
// turns each hit into a shading sample, dispatches the samples in batches
// through the render thread's sample manager and reads their outputs in the
// completion callback.
//
// Shading is re-entrant: while a batch is shaded, a material may trace
// refraction rays and a light shadow rays, whose hits are shaded in turn.
// Every such call takes the next level of the thread, and each level is a
// copy of the prototype render thread with a sample manager of its own, so
// that a nested call never touches the batches of the one that is running
// it.

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "post/shader_glow.h"
#include "render/pixel_filter.h"
#include "render/render_scene.h"
#include "shading/ray_sampler.h"
#include "shading/render_thread.h"

class Tsample;
class TrayTracer;

// How a frame is sampled, shared by all threads.
struct TsamplingSettings {
    unsigned samplesPerPixel = 4;
    // Seeds the jitter of the sample positions (the frame number, so that
    // frames of an animation do not share a pattern).
    uint32_t seed = 0;
    // The deepest reflection or refraction ray.
    int maxRayDepth = 10;
    // Whether eye samples hand their glow to the tile's glow buffer.
    bool gatherGlow = false;
};

// A render thread of this renderer: the base class with the ray sampler
// that materials and lights reach. The prototype is made once a frame;
// every level of every worker is a copy of it.
class TrenderWorker : public TrenderThreadBase {
public:
    TrenderWorker(TframeConstants& frame, TraySampler* sampler)
        : TrenderThreadBase(frame), fSampler(sampler) {}
    TrenderWorker(const TrenderWorker& prototype) = default;

    void* raySampler() override { return fSampler; }

    TrayTracer* tracer() const { return fTracer; }
    unsigned level() const { return fLevel; }
    void attach(TrayTracer* tracer, unsigned level) {
        fTracer = tracer;
        fLevel = level;
    }

private:
    TraySampler* fSampler = nullptr;
    TrayTracer* fTracer = nullptr;
    unsigned fLevel = 0;
};

// Which sample belongs to which ray: an open-addressing table sized once
// per round, so that the completion callback finds a sample's ray without
// allocating.
class TsampleRayMap {
public:
    void reserve(size_t count);
    void clear();
    void insert(const Tsample* sample, uint32_t ray);
    // The ray of a sample, or ~0u.
    uint32_t find(const Tsample* sample) const;

private:
    std::vector<const Tsample*> fKeys;
    std::vector<uint32_t> fValues;
    size_t fMask = 0;
};

// One ray followed through transparent surfaces until it stops.
struct TrayPath {
    T3Float origin, direction; // the ray as it is traced next
    float near = 0.0f, far = 0.0f;
    T3Float rayOrigin; // where the ray began: the sample's rayOrigin
    int32_t depth = 0;
    float medium = 1.0f;
    uint32_t instance = 0;
    Tspectrum weight{1.0f, 1.0f, 1.0f}; // how much of what lies ahead comes through
    Tspectrum colour;                   // what was gathered so far
    Tspectrum glow;                     // the surfaces' glow, as seen through what lies before
    float matte = 0.0f;
    float fraction = 1.0f;                // shadow rays: scaled by each surface's attenuation
    float travelled = 0.0f;               // true distance from the start to the current origin
    float firstDistance = -1.0f;          // true distance to the first surface, -1 for none
    float rasterX = 0.0f, rasterY = 0.0f; // eye rays: where the sample lies
    int leaving = -1; // shadow rays: the object the ray starts on, until it is clear of it
    bool fromEye = false;
    uint16_t layers = 0;
    // The hit being shaded.
    Thit hit;
    T3Float hitPoint, hitNormal;
};

class TrayTracer {
public:
    TrayTracer(const TrenderScene& scene, const TrenderWorker& prototype,
               const TsamplingSettings& settings);
    ~TrayTracer();
    TrayTracer(const TrayTracer&) = delete;
    TrayTracer& operator=(const TrayTracer&) = delete;

    // The tracer of the calling thread while it renders, for the ray sampler.
    static TrayTracer* current();
    // Makes this the calling thread's tracer (null: none).
    static void setCurrent(TrayTracer* tracer);

    // Shades the pixels [x0, x1) x [y0, y1) and adds their samples to `sums`
    // (which must reach the filter radius beyond the rectangle), their glow
    // to `glow` when the frame gathers glow, and the nearest depth of each
    // pixel to `depth` (the frame's, `depthStride` floats a row) when given.
    void renderTile(unsigned x0, unsigned y0, unsigned x1, unsigned y1, TpixelSums& sums,
                    orvo::post::TglowTile* glow = nullptr, float* depth = nullptr,
                    unsigned depthStride = 0);

    // The ray sampler's work, on this thread. Each answers how many of the
    // rays it traced (rays too deep are not).
    unsigned traceRays(unsigned count, TgenericRay** rays, Tspectrum* colours,
                       Tspectrum* transmissions, uint8_t* hits);
    unsigned traceShadowRays(unsigned count, TgenericRay** rays, float* transmission,
                             float* fraction, int depthLimit);

    uint64_t samplesShaded() const { return fSamplesShaded; }
    uint64_t raysTraced() const { return fRaysTraced; }

    // The completion callback of every render object: it hands a shaded
    // batch back to the level of the thread that dispatched it.
    static TrenderGroupBase::Completion callback();

    // Levels of nesting this thread may use: eye rays, then alternating
    // shading and shadow calls down to the deepest ray, with room to spare.
    unsigned maxLevels() const;

private:
    enum class Mode { Shade, Shadow };
    struct Level {
        std::unique_ptr<TrenderWorker> thread;
        std::vector<TrayPath> paths;
        std::vector<uint32_t> active, next;
        TsampleRayMap map;
        Mode mode = Mode::Shade;
        // Rays start close together and run alike (eye rays, shadow rays
        // toward one light): the kernel may walk them as packets.
        bool coherent = false;
        // A round's rays as the kernel takes them, and what it answers.
        std::vector<TrayQuery> queries;
        std::vector<Thit> hits;
        std::vector<uint8_t> found;
        std::vector<TshadowReach> reach;
        std::vector<uint32_t> asked; // the call's ray of each shadow query

        // Room for `count` paths. Calls of every size take turns on a
        // level: it never shrinks, so that no call pays for making paths
        // again (each call sets the paths it uses).
        void reservePaths(size_t count) {
            if (paths.size() < count)
                paths.resize(count);
        }
    };

    // The level for a new call, or null when nesting has gone too deep.
    Level* enter();
    void leave() { --fDepth; }
    // Follows every path of the level until each one stops.
    void follow(Level& level);
    // A ray from a material or light as a path, along `direction` (the
    // ray's, made unit).
    void startPath(TrayPath& p, const TgenericRay& ray, const T3Float& direction) const;
    // renderTile's work for a band of its rows.
    void renderBand(unsigned x0, unsigned y0, unsigned x1, unsigned y1, TpixelSums& sums,
                    orvo::post::TglowTile* glow, float* depth, unsigned depthStride);
    // A shadow ray as a path, with what came through before it.
    void startShadowPath(TrayPath& p, const TgenericRay& ray, const T3Float& direction,
                         const float* transmission, float fraction, int leaving) const;
    // What came through a followed shadow ray, back to the caller's arrays.
    static void endShadowPath(const TrayPath& p, float* transmission, float& fraction);
    void fillSample(Tsample& sample, const TrayPath& path, TsurfacePoint& surface,
                    const TrenderObject& object) const;
    void footprint(const TrayPath& path, const TsurfacePoint& surface, T3Float& filterSize,
                   T2Float& uvFilterSize) const;
    // Where a path stops at an object without a shading group.
    void defaultMaterial(Level& level, TrayPath& path) const;

    static void completion(unsigned option, TrenderGroupBase* group, Tsample** samples,
                           unsigned count, void* user);
    void shaded(Level& level, const TrenderObject& object, Tsample** samples, unsigned count);

    const TrenderScene& fScene;
    const TrenderWorker& fPrototype;
    TsamplingSettings fSettings;
    std::vector<std::unique_ptr<Level>> fLevels;
    unsigned fDepth = 0; // levels in use
    // The camera's ray differentials for one sample's share of a pixel.
    T3Float fDOriginDx, fDOriginDy, fDDirectionDx, fDDirectionDy;
    // The angle (or, looking orthographically, the width) one sample sees.
    float fSpread = 0.0f;
    T4dFltMatrix fEyeToWorld;
    uint64_t fSamplesShaded = 0;
    uint64_t fRaysTraced = 0;
};

// The luminance weights of every colour-to-grey step of the render model.
inline float OrvoLuminance(const Tspectrum& c) {
    return OrvoLuminance(c.r, c.g, c.b);
}
