#pragma once

// Mirror rays as every reflecting material traces them: one a sample that
// wants one, leaving the surface on the viewer's side and lifted above the
// true triangle where an interpolated normal would send it under.

#include <cstdint>
#include <limits>

#include "host/datablock.h"
#include "materials/ray_scratch.h"
#include "shading/ray_sampler.h"

class Tattribute;
class TdependNode;

// The attributes the rays are made from, a material's own.
struct TmirrorAttributes {
    const Tattribute* normalCamera;
    const Tattribute* rayDirection;
    const Tattribute* triangleNormalCamera;
    const Tattribute* pointCamera;
    const Tattribute* mediumRefractiveIndex;
    const Tattribute* primitiveId;
    const Tattribute* objectId;
    const Tattribute* rayInstance;
    const Tattribute* rayDepth;
};

// The table of a material type T that names these attributes as lambert
// does.
template <class T>
const TmirrorAttributes& OrvoMirrorAttributesOf() {
    static const TmirrorAttributes attributes{
        &T::aNormalCamera, &T::aRayDirection,          &T::aTriangleNormalCamera,
        &T::aPointCamera,  &T::aMediumRefractiveIndex, &T::aPrimitiveId,
        &T::aObjectId,     &T::aRayInstance,           &T::aRayDepth};
    return attributes;
}

// Traces a mirror ray for each sample i with want[i] set and writes what it
// brings back into outColor. A sample without a ray, or whose ray hits
// nothing, gets untraced(i, background).
template <class Untraced>
void OrvoTraceMirrorRays(TdependNode& node, TraySampler& sampler, const TmirrorAttributes& a,
                         TdataBlock& block, unsigned first, unsigned count, const uint8_t* want,
                         const TvectorDataHandle& outColor, Untraced&& untraced);

// The ray of one sample: the mirror of the view `I` in `N`, kept above the
// triangle of normal `Nt`.
inline T3Float OrvoMirrorRayDirection(const T3Float& N, const T3Float& I, const T3Float& Nt) {
    auto normalised = [](const T3Float& v) {
        const float length = OrvoLength(v);
        return length > 0.0f ? v * (1.0f / length) : v;
    };
    // The side of the shading normal the view is on does not matter: the
    // ray always leaves on the viewer's side.
    float t = OrvoDot(N, I);
    if (t > 0.0f)
        t = -t;
    T3Float R = I - N * (2.0f * t);
    // An interpolated normal can send the mirror ray under the true surface:
    // flatten it onto the triangle's plane and lift it just above.
    const float c = OrvoDot(R, Nt);
    if (c < 0.0f) {
        R = normalised(R - Nt * c);
        R = normalised(R + Nt * 0.01f);
    }
    return R;
}

template <class Untraced>
void OrvoTraceMirrorRays(TdependNode& node, TraySampler& sampler, const TmirrorAttributes& a,
                         TdataBlock& block, unsigned first, unsigned count, const uint8_t* want,
                         const TvectorDataHandle& outColor, Untraced&& untraced) {
    const TvectorDataHandle normal = block.vectorInputValue(*a.normalCamera, first, count);
    const TvectorDataHandle direction = block.vectorInputValue(*a.rayDirection, first, count);
    const TvectorDataHandle triangle =
        block.vectorInputValue(*a.triangleNormalCamera, first, count);
    const TvectorDataHandle point = block.vectorInputValue(*a.pointCamera, first, count);
    const TvectorDataHandle medium = block.vectorInputValue(*a.mediumRefractiveIndex, first, count);
    const TvectorDataHandle primitive = block.vectorInputValue(*a.primitiveId, first, count);
    const TvectorDataHandle object = block.vectorInputValue(*a.objectId, first, count);
    const TvectorDataHandle instance = block.vectorInputValue(*a.rayInstance, first, count);
    const TvectorDataHandle depth = block.vectorInputValue(*a.rayDepth, first, count);
    auto t3 = [](const float* v) {
        return T3Float{v[0], v[1], v[2]};
    };

    OrvoWithRayScratch(sampler, count, [&](TrayScratch& s) {
        for (unsigned i = 0; i < count; ++i) {
            if (!want[i])
                continue;
            const int e = int(i);
            const T3Float R = OrvoMirrorRayDirection(
                t3(normal[e].asFloat3()), t3(direction[e].asFloat3()), t3(triangle[e].asFloat3()));
            TgenericRay& ray = *s.rays[s.rayCount];
            const float* p = point[e].asFloat3();
            for (int k = 0; k < 3; ++k) {
                ray.origin[k] = p[k];
                ray.direction[k] = R[k];
            }
            ray.maxDistance = std::numeric_limits<float>::max();
            ray.depth = int32_t(depth[e].asShort()) + 1;
            ray.medium = medium[e].asFloat();
            ray.primitiveId = primitive[e].asInt();
            ray.objectId = object[e].template as<void*>();
            ray.instance = instance[e].asInt();
            s.colours[s.rayCount] = kBlackSpectrum;
            s.slotOfRay[i] = s.rayCount++;
        }
        if (s.rayCount > 0)
            sampler.traceRays(&node, unsigned(s.rayCount), s.rays, s.colours, nullptr, s.hits);
        Tspectrum background;
        sampler.backgroundColor(background);
        for (unsigned i = 0; i < count; ++i) {
            const int e = int(i);
            const short k = s.slotOfRay[i];
            if (k >= 0 && s.hits[k])
                outColor[e].set(T3Float{s.colours[k].r, s.colours[k].g, s.colours[k].b});
            else
                untraced(e, background);
        }
    });
}

// The reflection step of a material type T with lambert's ray inputs and
// reflect's reflectedColor and reflectionLimit: leaves in outColor what
// each sample's mirror ray sees. `reflects(e)` says whether sample e's
// reflectivity lets a ray go. Without a sampler, or where no ray goes or it
// hits nothing: reflectedColor where `driven` (connected), else the
// background (black without a sampler). At most 64 samples a call.
template <class T, class Reflects>
void OrvoComputeReflection(T& node, TdataBlock& block, unsigned first, unsigned count, bool driven,
                           Reflects&& reflects) {
    const TvectorDataHandle outColor = block.vectorOutputValue(T::aOutColor, first);
    const TvectorDataHandle reflected = block.vectorInputValue(T::aReflectedColor, first, count);
    auto untraced = [&](int e, const Tspectrum& otherwise) {
        const float* r = reflected[e].asFloat3();
        outColor[e].set(driven ? T3Float{r[0], r[1], r[2]}
                               : T3Float{otherwise.r, otherwise.g, otherwise.b});
    };
    TraySampler* sampler = OrvoRaySamplerOf(block, T::aRaySampler, first, count);
    if (!sampler) {
        for (unsigned i = 0; i < count; ++i)
            untraced(int(i), kBlackSpectrum);
        return;
    }
    const TvectorDataHandle hide = block.vectorInputValue(T::aHideSource, first, count);
    const TvectorDataHandle depth = block.vectorInputValue(T::aRayDepth, first, count);
    const TvectorDataHandle limit =
        block.vectorInputValue(T::aReflectedRayDepthLimit, first, count);
    uint8_t want[64];
    for (unsigned i = 0; i < count && i < 64; ++i) {
        const int e = int(i);
        want[i] = !hide[e].asBool() && depth[e].asShort() < limit[e].asShort() && reflects(e);
    }
    OrvoTraceMirrorRays(node, *sampler, OrvoMirrorAttributesOf<T>(), block, first, count, want,
                        outColor, untraced);
}
