#include "materials/reflect.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "materials/mirror_rays.h"
#include "materials/ray_scratch.h"

ORVO_REGISTER_NODE(TdnReflect)

// What the mirror ray and the highlight read reaches the colour outputs;
// lambert's table already has the lights, the view and the ray inputs.
ORVO_DEPENDENCIES(TdnReflect) {
    Tattribute* highlight[] = {&ReflectedRayDepthLimit, &SpecularColor,        &Reflectivity,
                               &ReflectedColor,         &TriangleNormalCamera, &ReflectionSpecular};
    for (Tattribute* a : highlight)
        forTree(*a, [&](Tattribute& input) {
            affects(m, input, TdnLambert::aOutColor);
            affects(m, input, TdnLambert::aOutGlowColor);
        });
}

namespace {

// The frame runs a batch's worth of samples at a time: its two triples a
// sample stay small on the stack of every level of nested rays.
constexpr unsigned kFrameChunk = 64;

T3Float toT3(const float* v) {
    return {v[0], v[1], v[2]};
}

} // namespace

T3Float TdnReflect::mirrorDirection(const T3Float& normal, const T3Float& rayDirection) {
    return normalised(rayDirection - normal * (2.0f * OrvoDot(normal, rayDirection)));
}

// ---------------------------------------------------------------- the frame

bool TdnReflect::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                                   unsigned count) {
    const Tattribute* a = plug.attribute();
    a = a && a->parent() ? a->parent() : a;
    const int pass = OrvoRenderPass();
    // In the shadow pass the matte comes with the colour, as for lambert.
    if (a == &aOutColor || a == &aOutGlowColor ||
        (a == &aOutMatteOpacity && pass == kRenderPassShadow)) {
        for (unsigned done = 0; done < count; done += kFrameChunk)
            computeColourChunk(plug, block, first + done, std::min(kFrameChunk, count - done),
                               pass);
        return true;
    }
    return TdnLambert::vectorComputePlug(plug, block, first, count);
}

void TdnReflect::computeColourChunk(const Tplug& plug, TdataBlock& block, unsigned first,
                                    unsigned count, int pass) {
    T3Float mirror[kFrameChunk];
    if (pass != kRenderPassShadow) {
        computeReflection(plug, block, first, count);
        const TvectorDataHandle outColor = block.vectorOutputValue(aOutColor, first);
        for (unsigned i = 0; i < count; ++i)
            mirror[i] = toT3(outColor[int(i)].asFloat3());
    }
    computeLambert(plug, block, first, count);
    // The shadow pass carries shadow only, the ambient pass ambient only.
    if (pass == kRenderPassShadow || pass == kRenderPassAmbient)
        return;

    T3Float S[kFrameChunk];
    highlight(block, first, count, pass, mirror, S);

    finishColour(plug, block, first, count, S, pass);
}

void TdnReflect::highlight(TdataBlock& block, unsigned first, unsigned count, int,
                           const T3Float* mirror, T3Float* S) {
    reflectionTerm(block, first, count, mirror, S);
    applySpecularColor(block, first, count, S);
}

void TdnReflect::reflectionTerm(TdataBlock& block, unsigned first, unsigned count,
                                const T3Float* mirror, T3Float* S) {
    const TvectorDataHandle reflectivity = block.vectorInputValue(aReflectivity, first, count);
    for (unsigned i = 0; i < count; ++i)
        S[i] = mirror[i] * reflectivity[int(i)].asFloat();
}

void TdnReflect::applySpecularColor(TdataBlock& block, unsigned first, unsigned count, T3Float* S) {
    const TvectorDataHandle specular = block.vectorInputValue(aSpecularColor, first, count);
    for (unsigned i = 0; i < count; ++i) {
        const float* k = specular[int(i)].asFloat3();
        S[i] = T3Float{S[i].x * k[0], S[i].y * k[1], S[i].z * k[2]};
    }
}

TdnReflect::SpecularInputs::SpecularInputs(TdataBlock& block, unsigned first, unsigned count)
    : point(block.vectorInputValue(aPointCamera, first, count)),
      normal(block.vectorInputValue(aNormalCamera, first, count)),
      rayDirection(block.vectorInputValue(aRayDirection, first, count)),
      rayDepth(block.vectorInputValue(aRayDepth, first, count)),
      reflectionSpecularity(block.vectorInputValue(aReflectionSpecular, first, count)),
      lights(block.vectorInputValue(aLightData, first, count)) {}

TdnReflect::SpecularSample TdnReflect::SpecularInputs::at(int e) const {
    return {toT3(point[e].asFloat3()), toT3(normal[e].asFloat3()), toT3(rayDirection[e].asFloat3()),
            rayDepth[e].asShort(), reflectionSpecularity[e].asFloat()};
}

// ---------------------------------------------------------------- the mirror ray

void TdnReflect::computeReflection(const Tplug&, TdataBlock& block, unsigned first,
                                   unsigned count) {
    const TvectorDataHandle reflectivity = block.vectorInputValue(aReflectivity, first, count);
    OrvoComputeReflection(*this, block, first, count, fReflectedColorDriven,
                          [&](int e) { return reflectivity[e].asFloat() > 0.0f; });
}

// ---------------------------------------------------------------- network

void TdnReflect::refreshReflectedColorDriven() {
    const Tplug reflected(this, &aReflectedColor);
    fReflectedColorDriven = reflected.isDestination() || reflected.isChildDestination();
}

void TdnReflect::shadingNodeInit(TframeSampleData* frame) {
    TdnLambert::shadingNodeInit(frame);
    refreshReflectedColorDriven();
}

void TdnReflect::shadingNodeOnDemand(Tplug& plug, TdataBlock& block) {
    TdnLambert::shadingNodeOnDemand(plug, block);
    refreshReflectedColorDriven();
}

unsigned TdnReflect::transparencyOptions() {
    unsigned options = TdnLambert::transparencyOptions();
    auto connected = [&](const Tattribute& a) {
        return !Tplug(this, &a).source().isNull();
    };
    const bool reflective = connected(aReflectivity) || plugValue(aReflectivity).asFloat() > 0.0f;
    const bool deepEnough =
        connected(aReflectedRayDepthLimit) || plugValue(aReflectedRayDepthLimit).asShort() > 0;
    if (reflective && deepEnough)
        options |= kRayOptionReflects;
    return options;
}

T3Float TdnReflect::getSpecularColor() {
    return toT3(plugValue(aSpecularColor).asFloat3());
}
