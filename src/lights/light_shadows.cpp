// Ray traced shadows of lights. A shadowed sample sends rays toward the
// light, spread over the cone in which the light's sphere (or, for a
// directional light, its angle) is seen, and the sampler says how much of
// each ray gets through. Sampling is adaptive: a first stage of n rays a
// sample, then a second of 4n rays on the samples whose first rays
// disagreed (the penumbra), and the two mixed 0.2 to 0.8 there.
//
// All rays of a stage go to the sampler in one call; the records, the
// pointers to them and the per-sample sums live on the stack.

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

#include "lights/non_extended_light_shape.h"
#include "shading/hammersley.h"
#include "shading/scratch.h"

namespace {

// Stack a stage may take for its ray records and their slots. A batch of 64
// samples at 16 rays in its second stage (4096 rays) fits; more rays than
// that are traced in several calls rather than overflowing the stack.
constexpr size_t kShadowStackBudget = 256 * 1024;

constexpr float kMinShadowRadius = 0.0001f;
constexpr float kStageOneWeight = 0.2f;
constexpr float kStageTwoWeight = 0.8f;
constexpr unsigned kStageTwoRayFactor = 4;
constexpr float kDirectionalReach = 1e10f;

// The frame around the axis `l` that shadow rays are spread in.
struct ShadowCone {
    T3Float l{}, u{}, v{};
    float cosMax = 1.0f;
    float reach = 0.0f;

    void buildFrame() {
        const T3Float axis =
            l.y < l.x ? T3Float(T3dFltVector::yAxis) : T3Float(T3dFltVector::xAxis);
        u = OrvoNormalizeIfLong(OrvoCross(l, axis));
        v = OrvoNormalizeIfLong(OrvoCross(u, l));
    }

    // Ray `index` of the low-discrepancy sequence: a direction within the
    // cone, its angle about the axis from the first sequence and its
    // opening from the second.
    T3Float direction(uint32_t index) const {
        const TrenderHammersley& h = TrenderHammersley::theHammersley();
        const float h1 = h.thetaValue(index);
        const float h2 = h.phiValue(index);
        const float c = 1.0f - h2 * (1.0f - cosMax);
        const float s = std::sqrt(std::max(0.0f, 1.0f - c * c));
        const float angle = float(2.0 * M_PI * double(h1));
        return u * (std::sin(angle) * s) + v * (std::cos(angle) * s) + l * c;
    }
};

// Aims each sample's rays within its own cone.
class ConeAim final : public TshadowRayAim {
public:
    ConeAim(const ShadowCone* cones, const TvectorDataHandle& instance)
        : fCones(cones), fInstance(instance) {}

    void aim(unsigned sample, unsigned first, unsigned count,
             TgenericRay* const* rays) const override {
        const ShadowCone& cone = fCones[sample];
        const uint32_t start = uint32_t(fInstance[int(sample)].asInt()) + first;
        for (unsigned k = 0; k < count; ++k) {
            const T3Float d = cone.direction(start + k);
            std::memcpy(rays[k]->direction, &d, sizeof rays[k]->direction);
            rays[k]->maxDistance = cone.reach;
        }
    }

private:
    const ShadowCone* fCones;
    TvectorDataHandle fInstance;
};

// Aims every sample's rays within one cone (a directional light's). A ray's
// direction then depends on its sequence index alone, and eye samples
// number their rays from their place in the pixel: a batch uses a few
// dozen indices, each worked out once.
class SharedConeAim final : public TshadowRayAim {
public:
    SharedConeAim(const ShadowCone& cone, const TvectorDataHandle& instance)
        : fCone(cone), fInstance(instance) {}

    void aim(unsigned sample, unsigned first, unsigned count,
             TgenericRay* const* rays) const override {
        const uint32_t start = uint32_t(fInstance[int(sample)].asInt()) + first;
        for (unsigned k = 0; k < count; ++k) {
            const uint32_t index = start + k;
            T3Float d;
            if (index < kKept) {
                uint64_t& word = fKnown[index / 64];
                const uint64_t bit = uint64_t(1) << (index % 64);
                if (!(word & bit)) {
                    fKept[index] = fCone.direction(index);
                    word |= bit;
                }
                d = fKept[index];
            } else {
                d = fCone.direction(index);
            }
            std::memcpy(rays[k]->direction, &d, sizeof rays[k]->direction);
            rays[k]->maxDistance = fCone.reach;
        }
    }

private:
    static constexpr uint32_t kKept = 256;
    const ShadowCone& fCone;
    TvectorDataHandle fInstance;
    mutable uint64_t fKnown[kKept / 64] = {};
    mutable T3Float fKept[kKept];
};

} // namespace

// ---------------------------------------------------------------- the two stages

template <class Stage>
bool TrenderLightShape::twoStageShadows(LightBatch& b, Tspectrum* reflectance, Stage&& stage) {
    std::fill(reflectance, reflectance + b.count, kWhiteSpectrum);
    const int n = integerValue(b.block.vectorInputValue(aNumShadowSamples, b.first, 1)[0]);
    const TvectorDataHandle wanted =
        b.block.vectorInputValue(aUseRayTraceShadows, b.first, b.count);
    TshadeScratch scratch;
    auto* mask = ORVO_SCRATCH_ARRAY(scratch, uint8_t, b.count);
    bool any = false;
    for (unsigned i = 0; i < b.count; ++i) {
        // A sample that gets no light casts no shadow ray.
        mask[i] = wanted[int(i)].asBool() && !b.skip[i];
        any = any || mask[i];
    }
    if (!any || n <= 0)
        return false;

    auto* penumbra = ORVO_SCRATCH_ARRAY(scratch, uint8_t, b.count);
    stage(unsigned(n), mask, reflectance, penumbra);
    if (std::none_of(penumbra, penumbra + b.count, [](uint8_t p) { return p != 0; }))
        return true;

    auto* second = ORVO_SCRATCH_ARRAY(scratch, Tspectrum, b.count);
    auto* unused = ORVO_SCRATCH_ARRAY(scratch, uint8_t, b.count);
    stage(kStageTwoRayFactor * unsigned(n), penumbra, second, unused);
    for (unsigned i = 0; i < b.count; ++i)
        if (penumbra[i])
            reflectance[i] = reflectance[i] * kStageOneWeight + second[i] * kStageTwoWeight;
    return true;
}

bool TrenderLightShape::computeRtShadowPt(LightBatch& b, float radius, Tspectrum* reflectance) {
    return twoStageShadows(b, reflectance,
                           [&](unsigned rays, const uint8_t* mask, Tspectrum* out, uint8_t* pen) {
                               computeShadowColors(b, radius, rays, mask, out, pen);
                           });
}

bool TnonExtendedLightShape::computeRtShadowDir(LightBatch& b, const T3Float& direction,
                                                float angleDegrees, Tspectrum* reflectance) {
    return twoStageShadows(
        b, reflectance, [&](unsigned rays, const uint8_t* mask, Tspectrum* out, uint8_t* pen) {
            computeDirLightShadowColors(b, direction, angleDegrees, rays, mask, out, pen);
        });
}

// ---------------------------------------------------------------- one stage

void TrenderLightShape::computeShadowColors(LightBatch& b, float radius, unsigned rays,
                                            const uint8_t* mask, Tspectrum* reflectance,
                                            uint8_t* penumbra) {
    const float r = std::max(radius, kMinShadowRadius);
    TshadeScratch scratch;
    auto* cones = ORVO_SCRATCH_ARRAY(scratch, ShadowCone, b.count);
    auto* casts = ORVO_SCRATCH_ARRAY(scratch, uint8_t, b.count);
    shadowCasters(b, mask, casts, nullptr);
    for (unsigned i = 0; i < b.count; ++i) {
        new (cones + i) ShadowCone();
        if (!casts[i])
            continue;
        const T3Float p = b.point(i);
        ShadowCone& cone = cones[i];
        const T3Float l = fPosition - p;
        const float squared = OrvoDot(l, l);
        // Inside the light's sphere the distance counts as the radius: the
        // cone opens to the whole hemisphere about the unit axis.
        const float d = squared <= r * r ? r : std::sqrt(squared);
        cone.l = OrvoNormalizeIfLong(l);
        cone.reach = d;
        const float ratio = std::min(1.0f, r / d);
        cone.cosMax = std::sqrt(1.0f - ratio * ratio);
        cone.buildFrame();
    }
    const TvectorDataHandle instance = b.block.vectorInputValue(aRayInstance, b.first, b.count);
    const ConeAim aim(cones, instance);
    traceShadowStage(b, rays, casts, aim, reflectance, penumbra);
}

void TrenderLightShape::shadowCasters(LightBatch& b, const uint8_t* mask, uint8_t* casts,
                                      T3Float* local) {
    TshadeScratch scratch;
    auto* depth = ORVO_SCRATCH_ARRAY(scratch, int, b.count);
    auto* limit = ORVO_SCRATCH_ARRAY(scratch, int, b.count);
    integerValues(b.block.vectorInputValue(aRayDepth, b.first, b.count), b.count, depth);
    integerValues(b.block.vectorInputValue(aRayDepthLimit, b.first, b.count), b.count, limit);
    for (unsigned i = 0; i < b.count; ++i) {
        // The light decides whether it reaches the point, in its own space.
        const T3Float p =
            OrvoTransformPoint(fWorldToLocal, OrvoTransformPoint(fEyeToWorld, b.point(i)));
        if (local)
            local[i] = p;
        casts[i] = 0;
        if (!mask[i] || depth[i] >= limit[i])
            continue;
        T3Float seenFrom, seenAlong;
        casts[i] = canSee(p, seenFrom, seenAlong) ? 1 : 0;
    }
}

void TnonExtendedLightShape::computeDirLightShadowColors(LightBatch& b, const T3Float& direction,
                                                         float angleDegrees, unsigned rays,
                                                         const uint8_t* mask,
                                                         Tspectrum* reflectance,
                                                         uint8_t* penumbra) {
    ShadowCone shared;
    shared.l = direction;
    shared.cosMax = float(std::cos(double(angleDegrees) * M_PI / 180.0));
    shared.reach = kDirectionalReach;
    shared.buildFrame();
    TshadeScratch scratch;
    auto* casts = ORVO_SCRATCH_ARRAY(scratch, uint8_t, b.count);
    auto* depth = ORVO_SCRATCH_ARRAY(scratch, int, b.count);
    auto* limit = ORVO_SCRATCH_ARRAY(scratch, int, b.count);
    integerValues(b.block.vectorInputValue(aRayDepth, b.first, b.count), b.count, depth);
    integerValues(b.block.vectorInputValue(aRayDepthLimit, b.first, b.count), b.count, limit);
    for (unsigned i = 0; i < b.count; ++i)
        casts[i] = mask[i] && depth[i] < limit[i];
    // One surface for the whole batch: its ids are read once.
    BatchIds ids;
    ids.objectId = b.block.vectorInputValue(aObjectId, b.first, 1)[0].as<void*>();
    ids.primitiveId = integerValue(b.block.vectorInputValue(aPrimitiveId, b.first, 1)[0]);
    const TvectorDataHandle instance = b.block.vectorInputValue(aRayInstance, b.first, b.count);
    const SharedConeAim aim(shared, instance);
    traceShadowStage(b, rays, casts, aim, reflectance, penumbra, &ids);
}

void TrenderLightShape::traceShadowStage(LightBatch& b, unsigned rays, const uint8_t* casts,
                                         const ShadowRayAim& aim, Tspectrum* reflectance,
                                         uint8_t* penumbra, const BatchIds* ids) {
    std::fill(reflectance, reflectance + b.count, kWhiteSpectrum);
    std::memset(penumbra, 0, b.count);
    const size_t casting =
        size_t(std::count_if(casts, casts + b.count, [](uint8_t c) { return c; }));
    if (!b.sampler || rays == 0 || casting == 0)
        return;
    TraySampler& sampler = *b.sampler;

    // Record size, and how many rays one call can take within the budget.
    const size_t total = casting * rays;
    const size_t slot = sizeof(TgenericRay*) + 4 * sizeof(float) + sizeof(uint32_t);
    size_t recordSize = std::max(sampler.rayRecordSize(unsigned(total)), sizeof(TgenericRay));
    size_t capacity =
        std::min(total, std::max<size_t>(1, kShadowStackBudget / (recordSize + slot)));
    if (capacity < total) {
        recordSize = std::max(recordSize, sampler.rayRecordSize(unsigned(capacity)));
        capacity =
            std::max<size_t>(1, std::min(capacity, kShadowStackBudget / (recordSize + slot)));
    }
    recordSize = OrvoAlignUp(recordSize, alignof(TgenericRay));

    TshadeScratch scratch;
    auto* records = ORVO_SCRATCH_ARRAY(scratch, std::byte, capacity * recordSize);
    auto** pointers = ORVO_SCRATCH_ARRAY(scratch, TgenericRay*, capacity);
    auto* transmission = ORVO_SCRATCH_ARRAY(scratch, float, 3 * capacity);
    auto* fraction = ORVO_SCRATCH_ARRAY(scratch, float, capacity);
    auto* owner = ORVO_SCRATCH_ARRAY(scratch, uint32_t, capacity);
    auto* sum = ORVO_SCRATCH_ARRAY(scratch, Tspectrum, b.count);
    auto* fractionSum = ORVO_SCRATCH_ARRAY(scratch, float, b.count);
    auto* blocked = ORVO_SCRATCH_ARRAY(scratch, unsigned, b.count);
    std::fill(sum, sum + b.count, kBlackSpectrum);
    std::fill(fractionSum, fractionSum + b.count, 0.0f);
    std::fill(blocked, blocked + b.count, 0u);

    auto* depth = ORVO_SCRATCH_ARRAY(scratch, int, b.count);
    auto* instance = ORVO_SCRATCH_ARRAY(scratch, int, b.count);
    integerValues(b.block.vectorInputValue(aRayDepth, b.first, b.count), b.count, depth);
    integerValues(b.block.vectorInputValue(aRayInstance, b.first, b.count), b.count, instance);
    // Ids read once for the batch leave the samples' alone.
    int* primitiveId = nullptr;
    TvectorDataHandle objectId;
    if (!ids) {
        primitiveId = ORVO_SCRATCH_ARRAY(scratch, int, b.count);
        integerValues(b.block.vectorInputValue(aPrimitiveId, b.first, b.count), b.count,
                      primitiveId);
        objectId = b.block.vectorInputValue(aObjectId, b.first, b.count);
    }
    const int depthLimit = integerValue(b.block.vectorInputValue(aRayDepthLimit, b.first, 1)[0]);

    size_t used = 0;
    auto flush = [&] {
        if (used == 0)
            return;
        sampler.traceShadowRays(this, unsigned(used), pointers, transmission, fraction, depthLimit,
                                pointers[0]->objectId);
        for (size_t k = 0; k < used; ++k) {
            const Tspectrum t(transmission[3 * k], transmission[3 * k + 1],
                              transmission[3 * k + 2]);
            sum[owner[k]] += t;
            fractionSum[owner[k]] += fraction[k];
            if (!(t == kWhiteSpectrum))
                ++blocked[owner[k]];
        }
        used = 0;
    };
    for (unsigned i = 0; i < b.count; ++i) {
        if (!casts[i])
            continue;
        const int e = int(i);
        // What every ray of the sample shares, filled in once and copied.
        TgenericRay shared;
        const T3Float origin = b.point(i);
        std::memcpy(shared.origin, &origin, sizeof shared.origin);
        shared.depth = depth[i] + 1;
        shared.objectId = ids ? ids->objectId : objectId[e].as<void*>();
        shared.primitiveId = ids ? ids->primitiveId : primitiveId[i];
        shared.medium = 1.0f;
        const uint32_t firstInstance = uint32_t(instance[i]);
        for (unsigned j = 0; j < rays;) {
            if (used == capacity)
                flush();
            const unsigned run = unsigned(std::min<size_t>(rays - j, capacity - used));
            for (unsigned k = 0; k < run; ++k, ++used) {
                auto* ray = new (records + used * recordSize) TgenericRay(shared);
                ray->instance = int32_t(firstInstance + j + k);
                pointers[used] = ray;
                transmission[3 * used] = transmission[3 * used + 1] = transmission[3 * used + 2] =
                    1.0f;
                fraction[used] = 1.0f;
                owner[used] = i;
            }
            aim.aim(i, j, run, pointers + used - run);
            j += run;
        }
    }
    flush();

    const float perRay = 1.0f / float(rays);
    for (unsigned i = 0; i < b.count; ++i) {
        if (!casts[i])
            continue;
        reflectance[i] = sum[i] * perRay;
        if (blocked[i] != 0 && blocked[i] != rays)
            penumbra[i] = 1;
        // Rays that got through whole don't count, however the surfaces on
        // the way scaled their fraction.
        b.record(i).shadowFraction = std::min(fractionSum[i], float(blocked[i])) * perRay;
    }
}

// ---------------------------------------------------------------- blending

void TrenderLightShape::interpolateLightAndShadow(LightBatch& b, T3Float* colours,
                                                  const Tspectrum* reflectance,
                                                  const uint8_t* skip) {
    const TvectorDataHandle shadow = b.block.vectorInputValue(aShadowColor, b.first, b.count);
    for (unsigned i = 0; i < b.count; ++i) {
        if (skip && skip[i])
            continue;
        const float* s = shadow[int(i)].asFloat3();
        for (int k = 0; k < 3; ++k)
            colours[i][k] = (1.0f - reflectance[i][k]) * s[k] + reflectance[i][k] * colours[i][k];
    }
}
