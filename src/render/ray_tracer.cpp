#include "render/ray_tracer.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "shading/sample.h"
#include "shading/sample_manager.h"
#include "shading/shading_engine.h"

namespace {

thread_local TrayTracer* tCurrent = nullptr;

// A ray gives up once this little of what lies ahead would still show.
constexpr float kMinWeight = 1.0f / 1024.0f;
// Surfaces a ray may pass through before the renderer calls it opaque.
constexpr uint16_t kMaxLayers = 64;
constexpr float kInfinity = std::numeric_limits<float>::infinity();
// Eye paths followed together: a band of a tile's rows this many samples
// big keeps its paths (some 190 bytes each) within the core's cache.
constexpr size_t kBandPaths = 2048;

float maxOf(const Tspectrum& c) {
    return std::max({c.r, c.g, c.b});
}
Tspectrum clamp01(const T3Float& c) {
    return {std::clamp(c.x, 0.0f, 1.0f), std::clamp(c.y, 0.0f, 1.0f), std::clamp(c.z, 0.0f, 1.0f)};
}
T3Float unit(const T3Float& v) {
    const float length = OrvoLength(v);
    return length > 0.0f ? v * (1.0f / length) : v;
}
T3Float transformPoint(const T4dFltMatrix& m, const T3Float& p) {
    T3Float out;
    for (int j = 0; j < 3; ++j)
        out[j] = p.x * m.m[0][j] + p.y * m.m[1][j] + p.z * m.m[2][j] + m.m[3][j];
    return out;
}

// The coordinates (a, b) with a * dPdu + b * dPdv closest to `d`, by the
// normal equations of the two tangents; zero for degenerate tangents.
void solveUv(const T3Float& dPdu, const T3Float& dPdv, const T3Float& d, float& a, float& b) {
    const float uu = OrvoDot(dPdu, dPdu), uv = OrvoDot(dPdu, dPdv), vv = OrvoDot(dPdv, dPdv);
    const float det = uu * vv - uv * uv;
    if (!(std::fabs(det) > 1e-20f)) {
        a = b = 0.0f;
        return;
    }
    const float du = OrvoDot(dPdu, d), dv = OrvoDot(dPdv, d);
    a = (vv * du - uv * dv) / det;
    b = (uu * dv - uv * du) / det;
}

constexpr uint64_t kFieldBit(unsigned field) {
    return uint64_t(1) << field;
}

// The fields every hit fills in (the pixel centre besides, for eye rays).
constexpr uint64_t kHitFields =
    kFieldBit(TsampleFields::pointCamera) | kFieldBit(TsampleFields::pointObj) |
    kFieldBit(TsampleFields::pointWorld) | kFieldBit(TsampleFields::normalCamera) |
    kFieldBit(TsampleFields::triangleNormalCamera) | kFieldBit(TsampleFields::uvCoord) |
    kFieldBit(TsampleFields::tangentUCamera) | kFieldBit(TsampleFields::tangentVCamera) |
    kFieldBit(TsampleFields::filterSize) | kFieldBit(TsampleFields::uvFilterSize) |
    kFieldBit(TsampleFields::rayOrigin) | kFieldBit(TsampleFields::rayDirection) |
    kFieldBit(TsampleFields::primitiveId) | kFieldBit(TsampleFields::vertexCameraOne) |
    kFieldBit(TsampleFields::vertexCameraTwo) | kFieldBit(TsampleFields::vertexCameraThree) |
    kFieldBit(TsampleFields::vertexUvOne) | kFieldBit(TsampleFields::vertexUvTwo) |
    kFieldBit(TsampleFields::vertexUvThree) | kFieldBit(TsampleFields::flippedNormal) |
    kFieldBit(TsampleFields::rayDepth) | kFieldBit(TsampleFields::rayInstance) |
    kFieldBit(TsampleFields::mediumRefractiveIndex) | kFieldBit(TsampleFields::illuminationIndex) |
    kFieldBit(TsampleFields::matrixObjectToWorld) | kFieldBit(TsampleFields::matrixWorldToObject);

} // namespace

// ---------------------------------------------------------------- sample to ray map

void TsampleRayMap::reserve(size_t count) {
    size_t capacity = 64;
    while (capacity < count * 2)
        capacity *= 2;
    if (capacity > fKeys.size()) {
        fKeys.assign(capacity, nullptr);
        fValues.assign(capacity, 0);
        fMask = capacity - 1;
    }
}

void TsampleRayMap::clear() {
    std::fill(fKeys.begin(), fKeys.end(), nullptr);
}

namespace {
size_t slotOf(const Tsample* sample, size_t mask) {
    uint64_t h = reinterpret_cast<uintptr_t>(sample) >> 3;
    h *= 0x9E3779B97F4A7C15ull;
    return size_t(h >> 32) & mask;
}
} // namespace

void TsampleRayMap::insert(const Tsample* sample, uint32_t ray) {
    for (size_t i = slotOf(sample, fMask);; i = (i + 1) & fMask)
        if (!fKeys[i] || fKeys[i] == sample) {
            fKeys[i] = sample;
            fValues[i] = ray;
            return;
        }
}

uint32_t TsampleRayMap::find(const Tsample* sample) const {
    if (fKeys.empty())
        return ~0u;
    for (size_t i = slotOf(sample, fMask);; i = (i + 1) & fMask) {
        if (fKeys[i] == sample)
            return fValues[i];
        if (!fKeys[i])
            return ~0u;
    }
}

// ---------------------------------------------------------------- the tracer

TrayTracer::TrayTracer(const TrenderScene& scene, const TrenderWorker& prototype,
                       const TsamplingSettings& settings)
    : fScene(scene), fPrototype(prototype), fSettings(settings) {
    const TpinholeCamera& camera = scene.camera();
    camera.differentials(fDOriginDx, fDOriginDy, fDDirectionDx, fDDirectionDy);
    // Each sample stands for its share of the pixel.
    const float share = 1.0f / std::sqrt(float(std::max(1u, settings.samplesPerPixel)));
    fDOriginDx = fDOriginDx * share;
    fDOriginDy = fDOriginDy * share;
    fDDirectionDx = fDDirectionDx * share;
    fDDirectionDy = fDDirectionDy * share;
    fSpread = float(2.0 * camera.halfWidth() / camera.width()) * share;
    fEyeToWorld = scene.eyeToWorld().asFloat();
}

TrayTracer::~TrayTracer() {
    if (tCurrent == this)
        tCurrent = nullptr;
}

TrayTracer* TrayTracer::current() {
    return tCurrent;
}

void TrayTracer::setCurrent(TrayTracer* tracer) {
    tCurrent = tracer;
}

unsigned TrayTracer::maxLevels() const {
    return 2u * unsigned(std::max(0, fSettings.maxRayDepth) + 1) + 4u;
}

TrayTracer::Level* TrayTracer::enter() {
    if (fDepth >= maxLevels())
        return nullptr;
    const unsigned index = fDepth++;
    while (fLevels.size() <= index) {
        auto level = std::make_unique<Level>();
        level->thread = std::make_unique<TrenderWorker>(fPrototype);
        level->thread->attach(this, unsigned(fLevels.size()));
        level->thread->setThreadIndex(fPrototype.threadIndex());
        fLevels.push_back(std::move(level));
    }
    return fLevels[index].get();
}

TrenderGroupBase::Completion TrayTracer::callback() {
    return &TrayTracer::completion;
}

void TrayTracer::renderTile(unsigned x0, unsigned y0, unsigned x1, unsigned y1, TpixelSums& sums,
                            orvo::post::TglowTile* glow, float* depth, unsigned depthStride) {
    if (x1 <= x0 || y1 <= y0)
        return;
    // The tile goes a band of rows at a time, small enough that its paths
    // stay in the core's cache between the passes over them. Samples are
    // made and splatted in the same order as for the whole tile at once.
    const unsigned spp = std::max(1u, fSettings.samplesPerPixel);
    const unsigned rows = std::max<unsigned>(1, unsigned(kBandPaths / (size_t(x1 - x0) * spp)));
    for (unsigned y = y0; y < y1; y += rows)
        renderBand(x0, y, x1, std::min(y1, y + rows), sums, glow, depth, depthStride);
}

void TrayTracer::renderBand(unsigned x0, unsigned y0, unsigned x1, unsigned y1, TpixelSums& sums,
                            orvo::post::TglowTile* glow, float* depth, unsigned depthStride) {
    Level* level = enter();
    if (!level)
        return;
    level->mode = Mode::Shade;
    level->coherent = true;
    const unsigned spp = std::max(1u, fSettings.samplesPerPixel);
    const TpinholeCamera& camera = fScene.camera();
    const size_t count = size_t(x1 - x0) * (y1 - y0) * spp;
    level->reservePaths(count);
    level->active.clear();
    size_t at = 0;
    for (unsigned y = y0; y < y1; ++y)
        for (unsigned x = x0; x < x1; ++x)
            for (unsigned s = 0; s < spp; ++s, ++at) {
                float ox = 0.0f, oy = 0.0f;
                OrvoSampleOffset(x, y, s, spp, fSettings.seed, ox, oy);
                TrayPath& p = level->paths[at];
                p = TrayPath();
                p.rasterX = float(x) + ox;
                p.rasterY = float(y) + oy;
                camera.ray(p.rasterX, p.rasterY, p.origin, p.direction);
                p.rayOrigin = p.origin;
                // The direction's Z is -1: distances along it are depths.
                p.near = float(camera.nearClip());
                p.far = float(camera.farClip());
                p.instance = s;
                p.fromEye = true;
                level->active.push_back(uint32_t(at));
            }
    follow(*level);
    for (size_t k = 0; k < count; ++k) {
        const TrayPath& p = level->paths[k];
        TpixelValue value;
        value.r = p.colour.r;
        value.g = p.colour.g;
        value.b = p.colour.b;
        value.alpha = std::clamp(1.0f - OrvoLuminance(p.weight), 0.0f, 1.0f);
        value.matte = std::clamp(p.matte, 0.0f, 1.0f);
        sums.splat(p.rasterX, p.rasterY, value);
        // A pixel's samples all lie in its tile: only this thread writes it.
        if (depth && p.firstDistance >= 0.0f) {
            float& nearest = depth[size_t(p.rasterY) * depthStride + size_t(p.rasterX)];
            nearest = std::min(nearest, p.firstDistance / OrvoLength(p.direction));
        }
        // Glow goes to the coarse array in 0..255 steps, each sample a
        // share of its pixel, so that a pixel adds its average glow.
        if (glow && (p.glow.r > 0.0f || p.glow.g > 0.0f || p.glow.b > 0.0f)) {
            const float scale = 255.0f / float(spp);
            const float rgb[3] = {p.glow.r * scale, p.glow.g * scale, p.glow.b * scale};
            glow->add(rgb, p.rasterX, p.rasterY);
        }
    }
    leave();
}

unsigned TrayTracer::traceRays(unsigned count, TgenericRay** rays, Tspectrum* colours,
                               Tspectrum* transmissions, uint8_t* hits) {
    Level* level = count ? enter() : nullptr;
    if (!level) {
        for (unsigned i = 0; i < count; ++i) {
            colours[i] = kBlackSpectrum;
            if (transmissions)
                transmissions[i] = kWhiteSpectrum;
            if (hits)
                hits[i] = 0;
        }
        return 0;
    }
    level->mode = Mode::Shade;
    level->coherent = false;
    level->reservePaths(count);
    level->active.clear();
    for (unsigned i = 0; i < count; ++i) {
        const TgenericRay& ray = *rays[i];
        TrayPath& p = level->paths[i];
        startPath(p, ray, unit({ray.direction[0], ray.direction[1], ray.direction[2]}));
        if (ray.depth <= fSettings.maxRayDepth && OrvoLength(p.direction) > 0.0f)
            level->active.push_back(i);
    }
    const unsigned traced = unsigned(level->active.size());
    follow(*level);
    for (unsigned i = 0; i < count; ++i) {
        const TrayPath& p = level->paths[i];
        colours[i] = p.colour;
        if (transmissions)
            transmissions[i] = p.weight;
        if (hits)
            hits[i] = p.firstDistance >= 0.0f;
        if (p.firstDistance >= 0.0f)
            rays[i]->maxDistance = p.firstDistance;
    }
    leave();
    return traced;
}

void TrayTracer::startPath(TrayPath& p, const TgenericRay& ray, const T3Float& direction) const {
    p = TrayPath();
    p.origin = {ray.origin[0], ray.origin[1], ray.origin[2]};
    p.direction = direction;
    p.rayOrigin = p.origin;
    p.near = fScene.epsilon();
    p.far = ray.maxDistance;
    p.depth = ray.depth;
    p.medium = ray.medium;
    p.instance = uint32_t(ray.instance);
}

void TrayTracer::startShadowPath(TrayPath& p, const TgenericRay& ray, const T3Float& direction,
                                 const float* transmission, float fraction, int leaving) const {
    startPath(p, ray, direction);
    p.weight = {transmission[0], transmission[1], transmission[2]};
    p.leaving = leaving;
    p.fraction = fraction;
}

void TrayTracer::endShadowPath(const TrayPath& p, float* transmission, float& fraction) {
    transmission[0] = p.weight.r;
    transmission[1] = p.weight.g;
    transmission[2] = p.weight.b;
    fraction = p.fraction;
}

unsigned TrayTracer::traceShadowRays(unsigned count, TgenericRay** rays, float* transmission,
                                     float* fraction, int depthLimit) {
    Level* level = count ? enter() : nullptr;
    if (!level)
        return 0;
    level->mode = Mode::Shadow;
    level->coherent = true;
    level->reservePaths(count);
    level->active.clear();
    // The rays of one call mostly leave one surface: its object is looked
    // up once.
    const void* lastId = nullptr;
    int lastObject = -1;
    auto leavingOf = [&](const void* id) {
        if (id != lastId || lastObject < 0) {
            lastId = id;
            lastObject = fScene.objectOf(id);
        }
        return lastObject;
    };

    if (!fScene.bulkShadows()) {
        for (unsigned i = 0; i < count; ++i) {
            const TgenericRay& ray = *rays[i];
            const T3Float direction = unit({ray.direction[0], ray.direction[1], ray.direction[2]});
            startShadowPath(level->paths[i], ray, direction, transmission + 3 * i, fraction[i],
                            leavingOf(ray.objectId));
            const TrayPath& p = level->paths[i];
            if (ray.depth <= depthLimit && OrvoLength(p.direction) > 0.0f && p.far > p.near)
                level->active.push_back(i);
        }
        const unsigned traced = unsigned(level->active.size());
        follow(*level);
        for (unsigned i = 0; i < count; ++i)
            endShadowPath(level->paths[i], transmission + 3 * i, fraction[i]);
        leave();
        return traced;
    }

    // First ask the kernel, for all rays at once, what lies on each: most
    // rays meet nothing or a surface that stops light outright, and need
    // no shading. Only rays that cross a surface a light may pass through
    // are followed surface by surface.
    level->queries.resize(count);
    level->asked.resize(count);
    level->reach.resize(count);
    const float near = fScene.epsilon();
    unsigned traced = 0;
    for (unsigned i = 0; i < count; ++i) {
        const TgenericRay& ray = *rays[i];
        const T3Float d{ray.direction[0], ray.direction[1], ray.direction[2]};
        // The unit direction, one square root a ray. A zero, infinite or
        // undefined length leaves nothing to trace.
        const float length = OrvoLength(d);
        if (ray.depth > depthLimit || !(length > 0.0f && length < kInfinity) ||
            !(ray.maxDistance > near))
            continue;
        TrayQuery& q = level->queries[traced];
        q.origin = {ray.origin[0], ray.origin[1], ray.origin[2]};
        q.near = near;
        q.direction = d * (1.0f / length);
        q.far = ray.maxDistance;
        q.leaving = leavingOf(ray.objectId);
        level->asked[traced++] = i;
    }
    fScene.shadowReach(traced, level->queries.data(), level->reach.data());
    for (unsigned k = 0; k < traced; ++k) {
        const uint32_t i = level->asked[k];
        switch (level->reach[k]) {
        case TshadowReach::Clear:
            ++fRaysTraced;
            break;
        case TshadowReach::Blocked:
            ++fRaysTraced;
            transmission[3 * i] = transmission[3 * i + 1] = transmission[3 * i + 2] = 0.0f;
            break;
        case TshadowReach::Crossed:
            startShadowPath(level->paths[i], *rays[i], level->queries[k].direction,
                            transmission + 3 * i, fraction[i], level->queries[k].leaving);
            level->active.push_back(i);
            break;
        }
    }
    if (!level->active.empty()) {
        follow(*level);
        for (unsigned k = 0; k < traced; ++k) {
            if (level->reach[k] != TshadowReach::Crossed)
                continue;
            const uint32_t i = level->asked[k];
            endShadowPath(level->paths[i], transmission + 3 * i, fraction[i]);
        }
    }
    leave();
    return traced;
}

void TrayTracer::defaultMaterial(Level& level, TrayPath& p) const {
    if (level.mode == Mode::Shade) {
        p.colour += p.weight * Tspectrum(kDefaultMaterialColour.x, kDefaultMaterialColour.y,
                                         kDefaultMaterialColour.z);
        p.matte += OrvoLuminance(p.weight);
    }
    p.weight = kBlackSpectrum;
}

void TrayTracer::follow(Level& level) {
    const unsigned option = level.mode == Mode::Shade ? kTSEsurfaceOption : kTSEshadowOption;
    TsampleManager& manager = *level.thread->sampleManager();
    const T3Float background = fScene.background();
    while (!level.active.empty()) {
        level.map.reserve(level.active.size());
        level.map.clear();
        level.next.clear();
        // The round's nearest hits, asked together.
        const size_t n = level.active.size();
        level.queries.resize(n);
        level.hits.resize(n);
        level.found.resize(n);
        for (size_t k = 0; k < n; ++k) {
            const TrayPath& p = level.paths[level.active[k]];
            TrayQuery& q = level.queries[k];
            q.origin = p.origin;
            q.near = p.near;
            q.direction = p.direction;
            q.far = p.far;
        }
        fScene.intersect(unsigned(n), level.queries.data(), level.hits.data(), level.found.data(),
                         level.coherent);
        for (size_t k = 0; k < n; ++k) {
            const uint32_t index = level.active[k];
            TrayPath& p = level.paths[index];
            Thit hit = level.hits[k];
            ++fRaysTraced;
            bool found = level.found[k] != 0;
            // A shadow ray leaving a faceted surface near where it turns
            // from the light can start just under the facets that a smooth
            // normal lit; it then meets its own object from inside first.
            // A ray leaving a closed surface outwards never does, so that
            // hit is passed: the shadow terminator keeps its smooth line.
            if (found && int(hit.object) == p.leaving && fScene.hitsBack(hit, p.direction))
                found = fScene.intersect(p.origin, p.direction,
                                         hit.distance + fScene.epsilon() / OrvoLength(p.direction),
                                         p.far, hit);
            p.leaving = -1;
            if (!found) {
                if (level.mode == Mode::Shade)
                    p.colour += p.weight * Tspectrum(background.x, background.y, background.z);
                continue;
            }
            const float step = hit.distance * OrvoLength(p.direction);
            if (p.firstDistance < 0.0f)
                p.firstDistance = p.travelled + step;
            p.travelled += step;
            const TrenderObject& object = fScene.object(hit.object);
            if (level.mode == Mode::Shadow && object.opaque()) {
                p.weight = kBlackSpectrum;
                continue;
            }
            if (!object.engine() || ++p.layers > kMaxLayers) {
                defaultMaterial(level, p);
                continue;
            }
            // The tangents wait for the sample: most networks never read
            // them.
            TsurfacePoint surface = fScene.surfacePoint(hit, p.origin, p.direction, false);
            p.hit = hit;
            p.hitPoint = surface.point;
            p.hitNormal = surface.normal;
            Tsample* sample = nullptr;
            auto* group = const_cast<TrenderObject*>(&object);
            if (manager.allocateSamples(object.engine(), option, group, 1, &sample) != 1 ||
                !sample) {
                defaultMaterial(level, p);
                continue;
            }
            fillSample(*sample, p, surface, object);
            level.map.insert(sample, index);
            manager.dispatchSamples(1, &sample);
        }
        manager.flushDispatchedSamples();
        std::swap(level.active, level.next);
    }
}

void TrayTracer::footprint(const TrayPath& p, const TsurfacePoint& s, T3Float& filterSize,
                           T2Float& uvFilterSize) const {
    float dudx = 0.0f, dvdx = 0.0f, dudy = 0.0f, dvdy = 0.0f;
    if (p.fromEye) {
        // Ray differentials: how the hit point moves when the ray moves by
        // a sample's share of a pixel, carried to the surface's plane. An eye
        // path keeps the camera's ray through the surfaces it crosses.
        const T3Float& eyeOrigin = p.rayOrigin;
        const T3Float& eyeDirection = p.direction;
        const float t =
            OrvoDot(s.point - eyeOrigin, eyeDirection) / OrvoDot(eyeDirection, eyeDirection);
        const float facing = OrvoDot(eyeDirection, s.triangleNormal);
        T3Float dPdx = fDOriginDx + fDDirectionDx * t;
        T3Float dPdy = fDOriginDy + fDDirectionDy * t;
        if (std::fabs(facing) > 1e-8f) {
            dPdx = dPdx + eyeDirection * (-OrvoDot(dPdx, s.triangleNormal) / facing);
            dPdy = dPdy + eyeDirection * (-OrvoDot(dPdy, s.triangleNormal) / facing);
        }
        const float size = std::max(OrvoLength(dPdx), OrvoLength(dPdy));
        filterSize = {size, size, size};
        solveUv(s.dPdu, s.dPdv, dPdx, dudx, dvdx);
        solveUv(s.dPdu, s.dPdv, dPdy, dudy, dvdy);
        uvFilterSize = {std::max(std::fabs(dudx), std::fabs(dudy)),
                        std::max(std::fabs(dvdx), std::fabs(dvdy))};
        return;
    }
    // Rays that bounced: a cone from the eye that widens with the distance
    // the light has come, one sample's share of a pixel across.
    const float distance =
        fScene.camera().orthographic() ? 1.0f : OrvoLength(p.rayOrigin) + p.travelled;
    const float size = fSpread * distance;
    filterSize = {size, size, size};
    const float lu = OrvoLength(s.dPdu), lv = OrvoLength(s.dPdv);
    uvFilterSize = {lu > 0.0f ? size / lu : 0.0f, lv > 0.0f ? size / lv : 0.0f};
}

void TrayTracer::fillSample(Tsample& sample, const TrayPath& p, TsurfacePoint& s,
                            const TrenderObject& object) const {
    // Every field is marked set, in one go; only those the group's samples
    // keep a slot for (what its networks read) are worked out. A field
    // without a slot reads as its default whatever is written.
    namespace F = TsampleFields;
    sample.markSetBits(p.fromEye ? kHitFields | kFieldBit(F::pixelCenter) : kHitFields);

    auto kept = [&](unsigned field) {
        return sample.slot(field) != nullptr;
    };
    sample.putPointCamera(s.point);
    if (kept(F::pointObj))
        sample.putPointObj(transformPoint(object.eyeToObject(), s.point));
    if (kept(F::pointWorld))
        sample.putPointWorld(transformPoint(fEyeToWorld, s.point));
    sample.putNormalCamera(s.normal);
    sample.putTriangleNormalCamera(s.triangleNormal);
    sample.putUvCoord(s.uv);
    if (kept(F::tangentUCamera) || kept(F::tangentVCamera)) {
        fScene.surfaceTangents(p.hit, s);
        sample.putTangentUCamera(s.tangentU);
        sample.putTangentVCamera(s.tangentV);
    }
    if (kept(F::filterSize) || kept(F::uvFilterSize)) {
        T3Float filterSize{};
        T2Float uvFilterSize{};
        footprint(p, s, filterSize, uvFilterSize);
        sample.putFilterSize(filterSize);
        sample.putUvFilterSize(uvFilterSize);
    }
    sample.putRayOrigin(p.rayOrigin);
    if (kept(F::rayDirection))
        sample.putRayDirection(unit(p.direction));
    sample.putPrimitiveId(int32_t(p.hit.primitive));
    if (p.fromEye)
        sample.putPixelCenter(T2Float{std::floor(p.rasterX) + 0.5f, std::floor(p.rasterY) + 0.5f});
    sample.putVertexCameraOne(s.vertex[0]);
    sample.putVertexCameraTwo(s.vertex[1]);
    sample.putVertexCameraThree(s.vertex[2]);
    sample.putVertexUvOne(s.vertexUv[0]);
    sample.putVertexUvTwo(s.vertexUv[1]);
    sample.putVertexUvThree(s.vertexUv[2]);
    sample.putFlippedNormal(s.flipped);
    sample.putRayDepth(p.depth);
    sample.putRayInstance(p.instance);
    sample.putMediumRefractiveIndex(p.medium);
    // Each sample is lit on its own: no neighbour shares its lights.
    sample.putIlluminationIndex(int16_t(-1));
    sample.putMatrixObjectToWorld(object.objectToWorld());
    sample.putMatrixWorldToObject(object.worldToObject());
}

void TrayTracer::completion(unsigned, TrenderGroupBase* group, Tsample** samples, unsigned count,
                            void* user) {
    if (count == 0)
        return;
    auto& worker = static_cast<TrenderWorker&>(samples[0]->manager()->renderThread());
    TrayTracer& tracer = *worker.tracer();
    Level& level = *tracer.fLevels[worker.level()];
    const auto* object = static_cast<const TrenderObject*>(user ? user : group);
    tracer.shaded(level, *object, samples, count);
    samples[0]->manager()->releaseSamples(count, samples);
}

void TrayTracer::shaded(Level& level, const TrenderObject& object, Tsample** samples,
                        unsigned count) {
    fSamplesShaded += count;
    for (unsigned i = 0; i < count; ++i) {
        const Tsample& sample = *samples[i];
        const uint32_t index = level.map.find(&sample);
        if (index == ~0u)
            continue;
        TrayPath& p = level.paths[index];
        const Tspectrum through = clamp01(*sample.outTransparency());
        if (level.mode == Mode::Shade) {
            const T3Float& c = *sample.outColor();
            const T3Float& m = *sample.outMatteOpacity();
            p.colour += p.weight * Tspectrum(c.x, c.y, c.z);
            if (fSettings.gatherGlow) {
                const T3Float& g = *sample.outGlowColor();
                p.glow += p.weight * Tspectrum(g.x, g.y, g.z);
            }
            p.matte += OrvoLuminance(p.weight) * OrvoLuminance(Tspectrum(m.x, m.y, m.z));
            p.weight *= through;
            // A refracting material has traced what lies behind it.
            if (object.refracting())
                continue;
        } else {
            p.weight *= through;
            // Shadow attenuation darkens the shadow of a transparent surface
            // where the light crosses it at a slant, as the edge of a glass
            // ball throws a darker rim.
            const float attenuation = std::clamp(*sample.shadowAttenuation(), 0.0f, 1.0f);
            const float facing = std::fabs(OrvoDot(p.hitNormal, unit(p.direction)));
            p.fraction *= 1.0f - attenuation + attenuation * facing;
        }
        if (maxOf(p.weight) < kMinWeight) {
            p.weight = kBlackSpectrum;
            continue;
        }
        // Go on through the surface, along the same line.
        const float length = OrvoLength(p.direction);
        p.far -= p.hit.distance;
        p.origin = p.hitPoint;
        p.near = fScene.epsilon() / length;
        if (p.far > p.near)
            level.next.push_back(index);
    }
}
