#include "materials/lambert.h"

#include <algorithm>
#include <cmath>

#include "host/env.h"
#include "shading/light_blind_data.h"
#include "shading/shading_engine.h"

ORVO_REGISTER_NODE(TdnLambert)

// Inputs name the outputs' parents only: the analysis thins an output's
// affector set in modifyAffects, and affectors on the outputs' children
// would slip past that. Dirtying reaches the children through the parent.
ORVO_DEPENDENCIES(TdnLambert) {
    auto into = [&](Tattribute& input, Tattribute& output) {
        forTree(input, [&](Tattribute& a) { affects(m, a, output); });
    };
    // What the light loop, ambient, incandescence and glow read.
    Tattribute* lighting[] = {&DiffuseCoeff,      &RayDirection,          &Color,
                              &Transparency,      &AmbientColor,          &Incandescence,
                              &TranslucenceCoeff, &TranslucenceFocus,     &TranslucenceDepth,
                              &PointCamera,       &NormalCamera,          &LightData,
                              &MatteOpacityMode,  &FakeRefractionCaustics};
    // What the refracted rays and the transmission read.
    Tattribute* rays[] = {ORVO_MATERIAL_RAY_INPUTS};
    for (Tattribute* a : lighting) {
        into(*a, OutColor);
        into(*a, OutGlowColor);
        into(*a, OutMatteOpacity); // the shadow pass
    }
    for (Tattribute* a : rays) {
        into(*a, OutColor);
        into(*a, OutTransparency);
        into(*a, OutMatteOpacity);
    }
    into(HideSource, OutColor);
    into(TransparencyDepth, OutColor);
    into(LightAbsorbance, OutColor);
    into(GlowIntensity, OutGlowColor);
    into(MatteOpacityGain, OutMatteOpacity);
}

float TdnLambert::translucenceDepthDefault() {
    return OrvoGetEnv("ORVO_USE_OLD_TRANSLUCENCE_DEPTH_DEFAULT") ? 0.0f : 0.5f;
}

void TdnLambert::setMaterialLightDefaults(TattributeLightData& record) {
    // Children in record order: direction, intensity, ambient, diffuse,
    // specular, shadow fraction, pre-shadow intensity, blind data.
    static_cast<Tattribute3Float*>(record.child(0))->setNativeDefaultData(1.0f, 1.0f, 1.0f);
    static_cast<Tattribute3Float*>(record.child(1))->setNativeDefaultData(1.0f, 1.0f, 1.0f);
    static_cast<TattributeBoolean*>(record.child(2))->setNativeDefaultData(true);
    static_cast<TattributeBoolean*>(record.child(3))->setNativeDefaultData(true);
    static_cast<TattributeBoolean*>(record.child(4))->setNativeDefaultData(false);
}

namespace {

float dot3(const float* a, const float* b) {
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

T3Float toT3(const float* v) {
    return {v[0], v[1], v[2]};
}

// The attribute a plug computes, taking a child for its compound.
const Tattribute* computedRoot(const Tplug& plug) {
    const Tattribute* a = plug.attribute();
    return a && a->parent() ? a->parent() : a;
}

} // namespace

TdnLambert::TdnLambert()
    : fTranslucenceCutoff(aTranslucenceDepth.nativeDefault() * kCutoffPerDepth) {}

// ---------------------------------------------------------------- dispatch

bool TdnLambert::computePlug(const Tplug& plug, TdataBlock& block) {
    return vectorComputePlug(plug, block, 0, block.elementCount());
}

bool TdnLambert::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                                   unsigned count) {
    const Tattribute* a = computedRoot(plug);
    const int pass = OrvoRenderPass();
    if (a == &aOutColor || a == &aOutGlowColor ||
        (a == &aOutMatteOpacity && pass == kRenderPassShadow)) {
        computeLambert(plug, block, first, count);
        finishColour(plug, block, first, count, nullptr, pass);
        return true;
    }
    if (a == &aOutTransparency || a == &aOutMatteOpacity) {
        computeTransparency(plug, block, first, count);
        return true;
    }
    return TshadingDependNode::vectorComputePlug(plug, block, first, count);
}

void TdnLambert::finishColour(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count,
                              const T3Float* highlight, int pass) {
    const TvectorDataHandle hide = block.vectorInputValue(aHideSource, first, count);
    const TvectorDataHandle glowIntensity = block.vectorInputValue(aGlowIntensity, first, count);
    const TvectorDataHandle outColor = block.vectorOutputValue(aOutColor, first);
    const TvectorDataHandle outGlow = block.vectorOutputValue(aOutGlowColor, first);
    for (unsigned i = 0; i < count; ++i) {
        const int e = int(i);
        const T3Float S = highlight ? highlight[i] : T3Float{0.0f, 0.0f, 0.0f};
        if (hide[e].asBool())
            outColor[e].set(T3Float{0.0f, 0.0f, 0.0f});
        else if (highlight) {
            const float* c = outColor[e].asFloat3();
            outColor[e].set(T3Float{c[0] + S.x, c[1] + S.y, c[2] + S.z});
        }
        // Last, so that the highlight pass shows the highlight of hidden
        // surfaces too.
        if (highlight && pass == kRenderPassSpecular)
            outColor[e].set(S);
        const float g = glowIntensity[e].asFloat();
        const float* glow = outGlow[e].asFloat3();
        outGlow[e].set(T3Float{(S.x + glow[0]) * g, (S.y + glow[1]) * g, (S.z + glow[2]) * g});
    }
    computeBlackHole(plug, block, first, count);
}

// Walks the samples while they are black holes and stops moving at the
// first one that isn't: the remaining iterations look at that sample again
// and leave everything as it is. With one mode for the whole batch, the
// usual case, this is the same as testing every sample.
void TdnLambert::computeBlackHole(const Tplug&, TdataBlock& block, unsigned first, unsigned count) {
    const TvectorDataHandle modes = block.vectorInputValue(aMatteOpacityMode, first, count);
    const TvectorDataHandle colours = block.vectorOutputValue(aOutColor, first);
    const TvectorDataHandle glows = block.vectorOutputValue(aOutGlowColor, first);
    TdataHandle mode = modes[0], colour = colours[0], glow = glows[0];
    for (unsigned i = 0; i < count; ++i) {
        if (mode.asShort() != kBlackHoleM)
            continue;
        colour.set(T3Float{0.0f, 0.0f, 0.0f});
        glow.set(T3Float{0.0f, 0.0f, 0.0f});
        mode.vectorAdvance(modes.stride());
        colour.vectorAdvance(colours.stride());
        glow.vectorAdvance(glows.stride());
    }
}

// ---------------------------------------------------------------- lighting

void TdnLambert::computeLambert(const Tplug&, TdataBlock& block, unsigned first, unsigned count) {
    const int pass = OrvoRenderPass();
    for (unsigned done = 0; done < count; done += kChunk)
        computeLambertChunk(block, first + done, std::min(kChunk, count - done), pass);
}

void TdnLambert::computeLambertChunk(TdataBlock& block, unsigned first, unsigned count, int pass) {
    const TvectorDataHandle color = block.vectorInputValue(aColor, first, count);
    const TvectorDataHandle diffuse = block.vectorInputValue(aDiffuseCoeff, first, count);
    const TvectorDataHandle translucence = block.vectorInputValue(aTranslucenceCoeff, first, count);
    const TvectorDataHandle focus = block.vectorInputValue(aTranslucenceFocus, first, count);
    const TvectorDataHandle normal = block.vectorInputValue(aNormalCamera, first, count);
    const TvectorDataHandle point = block.vectorInputValue(aPointCamera, first, count);
    const TvectorDataHandle rayDirection = block.vectorInputValue(aRayDirection, first, count);
    const TvectorDataHandle lights = block.vectorInputValue(aLightData, first, count);
    const TvectorDataHandle outColor = block.vectorOutputValue(aOutColor, first);
    const TvectorDataHandle outGlow = block.vectorOutputValue(aOutGlowColor, first);
    const TvectorDataHandle outMatte = pass == kRenderPassShadow
                                           ? block.vectorOutputValue(aOutMatteOpacity, first)
                                           : TvectorDataHandle();

    T3Float accumulated[kChunk];
    const bool lightLoop = passLightsSurface(pass);
    const float cutoff = fTranslucenceCutoff;
    // The fade-in width above the cut-off.
    const float fade = std::min(1.0f, 0.15f - cutoff);

    for (unsigned i = 0; i < count; ++i) {
        const int e = int(i);
        T3Float& sum = accumulated[i];
        sum = T3Float{0.0f, 0.0f, 0.0f};
        float shadow = 0.0f, weight = 0.0f;
        const float* c = color[e].asFloat3();
        const float* n = normal[e].asFloat3();
        const float* p = point[e].asFloat3();
        const float kd = diffuse[e].asFloat();
        const float kt = translucence[e].asFloat();
        if (lightLoop) {
            // The sums stay in registers across the lights.
            const T3Float at = toT3(p), surfaceNormal = toT3(n);
            float s0 = 0.0f, s1 = 0.0f, s2 = 0.0f;
            forEachLight(lights[e], [&](const TlightData& record) {
                float a = record.ambient ? 1.0f : 0.0f;
                if (record.diffuse) {
                    auto* blind = static_cast<TlightBlindData*>(record.blindData);
                    if (blind && blind->cosineOnly())
                        blind = nullptr; // the same cosine, without the call
                    const T3Float direction = toT3(record.direction);
                    const float d = blind ? blind->integrateLambertianReflectance(
                                                direction, at, surfaceNormal, true)
                                          : dot3(record.direction, n);
                    if (d >= 0.0f)
                        a += d * kd;
                    float t = kt;
                    if (t != 0.0f && d > cutoff) {
                        const float f = focus[e].asFloat();
                        if (f != 0.0f) {
                            const float* r = rayDirection[e].asFloat3();
                            const float towards =
                                blind ? blind->hemisphereCoverage(direction, at, toT3(r), true)
                                      : dot3(record.direction, r);
                            const float u = std::clamp((towards + 1.0f) * 0.5f, 0.0f, 1.0f);
                            t *= std::pow(u, f / (1.00001f - f));
                        }
                        if (cutoff + fade > d)
                            t *= (d - cutoff) / fade;
                        a += t;
                    }
                    if (pass == kRenderPassShadow) {
                        weight += record.preShadowIntensity;
                        if (d > 0.0f)
                            shadow += record.preShadowIntensity * record.shadowFraction;
                    }
                }
                s0 += c[0] * record.intensity[0] * a;
                s1 += c[1] * record.intensity[1] * a;
                s2 += c[2] * record.intensity[2] * a;
            });
            sum = T3Float{s0, s1, s2};
        }
        if (pass == kRenderPassShadow) {
            if (weight > 1e-5f)
                shadow /= weight;
            outColor[e].set(T3Float{0.0f, 0.0f, 0.0f});
            outMatte[e].set(T3Float{shadow, shadow, shadow});
            outGlow[e].set(T3Float{0.0f, 0.0f, 0.0f});
        }
    }
    if (pass == kRenderPassShadow)
        return;

    const TvectorDataHandle ambient = block.vectorInputValue(aAmbientColor, first, count);
    const TvectorDataHandle transparency = block.vectorInputValue(aTransparency, first, count);
    const TvectorDataHandle incandescence = block.vectorInputValue(aIncandescence, first, count);
    for (unsigned i = 0; i < count; ++i) {
        const int e = int(i);
        T3Float& sum = accumulated[i];
        const float* c = color[e].asFloat3();
        const float* tr = transparency[e].asFloat3();
        if (pass < kRenderPassSpecular) {
            const float* am = ambient[e].asFloat3();
            for (int ch = 0; ch < 3; ++ch)
                sum[ch] += c[ch] * am[ch];
        }
        for (int ch = 0; ch < 3; ++ch)
            sum[ch] *= 1.0f - tr[ch];
        if (pass < kRenderPassSpecular && pass != kRenderPassAmbient) {
            const float* in = incandescence[e].asFloat3();
            for (int ch = 0; ch < 3; ++ch)
                sum[ch] += in[ch];
        }
        // Glow is taken before refraction: what is seen through a surface
        // doesn't make it glow.
        outGlow[e].set(sum);
    }
    accumulateRefraction(block, first, count, accumulated);
    for (unsigned i = 0; i < count; ++i)
        outColor[int(i)].set(accumulated[i]);
}

// ---------------------------------------------------------------- network

void TdnLambert::analyse(TDNshadingEngine* engine, TSEnodeDescription* description, void* option,
                         TbitField64& fields) {
    TshadingDependNode::analyse(engine, description, option, fields);
    if (OrvoRayTracingEnabled())
        return;
    // Without ray tracing nothing reads the ray fields.
    for (unsigned field : {TsampleFields::rayDepth, TsampleFields::rayInstance,
                           TsampleFields::primitiveId, TsampleFields::mediumRefractiveIndex})
        fields.clear(field);
}

void TdnLambert::modifyAffects(const Tattribute* attribute, TbitFieldFixedN& affects,
                               TDNshadingEngine* engine, void* description) {
    if (attribute != &aOutTransparency)
        return;
    auto varies = [&](const Tattribute& a) {
        const Tplug plug(this, &a);
        return !plug.source().isNull() && (!engine || engine->sampleDependent(description, &plug));
    };
    bool transparencyVaries = varies(aTransparency);
    for (const Tattribute* child : aTransparency.children())
        transparencyVaries = transparencyVaries || varies(*child);
    if (!transparencyVaries) {
        const float* tr = plugValue(aTransparency).asFloat3();
        if (tr && tr[0] == 0.0f && tr[1] == 0.0f && tr[2] == 0.0f) {
            // Opaque: the output is the constant 0, 0, 0.
            affects.clearAll();
            return;
        }
    }
    if (varies(aRtRefractedColor))
        return;
    const TdataHandle refractions = plugValue(aRtRefractedColor);
    if (refractions.isNull() || refractions.asBool())
        return;
    // No rays: the ray inputs don't reach the transmission. The Z children of
    // pointCamera and normalCamera stay in the set; X is cleared in their
    // place, as it always was.
    const Tattribute* rayInputs[] = {&aObjectId,
                                     &aPrimitiveId,
                                     &aRaySampler,
                                     &aRayDepth,
                                     &aRayInstance,
                                     &aRefractedRayDepthLimit,
                                     &aMediumRefractiveIndex,
                                     &aRefractiveIndex,
                                     &aRtRefractedColor,
                                     &aRayDirection,
                                     &aRayDirectionX,
                                     &aRayDirectionY,
                                     &aRayDirectionZ,
                                     &aPointCamera,
                                     &aPointCameraX,
                                     &aPointCameraY,
                                     &aPointCameraX,
                                     &aNormalCamera,
                                     &aNormalCameraX,
                                     &aNormalCameraY,
                                     &aNormalCameraX};
    for (const Tattribute* a : rayInputs)
        if (a->index() < affects.size())
            affects.clear(a->index());
}

void TdnLambert::shadingNodeInit(TframeSampleData*) {
    fTranslucenceCutoff = OrvoTranslucenceCutoff(*this);
}

void TdnLambert::endOfRender() {
    OrvoForgetRaySampler(*this);
    TshadingDependNode::endOfRender();
}

unsigned TdnLambert::transparencyOptions() {
    const TdataHandle refractions = plugValue(aRtRefractedColor);
    return !refractions.isNull() && refractions.asBool() ? kRayOptionRefracts : 0u;
}

void TdnLambert::groupedAttrs(const Tattribute* attribute, TattributeArray& out) {
    OrvoMaterialGroupedAttrs<TdnLambert>(attribute, out);
}

// ---------------------------------------------------------------- readers

TdataHandle TdnLambert::plugValue(const Tattribute& attribute) {
    return OrvoEvaluatedValue(*this, attribute);
}

T3Float TdnLambert::getColor() {
    return toT3(plugValue(aColor).asFloat3());
}

float TdnLambert::getDiffuseCoeff() {
    return plugValue(aDiffuseCoeff).asFloat();
}

T3Float TdnLambert::getIncandescence() {
    return toT3(plugValue(aIncandescence).asFloat3());
}

T3Float TdnLambert::getTransparency() {
    return toT3(plugValue(aTransparency).asFloat3());
}

float TdnLambert::getGlowIntensity() {
    const float value = plugValue(aGlowIntensity).asFloat();
    if (value == 0.0f && !Tplug(this, &aGlowIntensity).source().isNull())
        return kGlowFromNetwork;
    return value;
}
