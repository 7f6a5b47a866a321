#include "materials/ramp_shader.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "lights/light_vectors.h"
#include "materials/mirror_rays.h"
#include "materials/reflect.h"
#include "shading/light_blind_data.h"
#include "shading/shading_engine.h"

ORVO_REGISTER_NODE(TdnRampShader)

// Inputs name the outputs' parents only, as for lambert.
ORVO_DEPENDENCIES(TdnRampShader) {
    auto into = [&](Tattribute& input, Tattribute& output) {
        forTree(input, [&](Tattribute& a) { affects(m, a, output); });
    };
    Tattribute* lighting[] = {&DiffuseCoeff,      &ForwardScatter,       &Color,
                              &ColorInput,        &ShadowMode,           &ShadowColor,
                              &ShadowThreshold,   &Transparency,         &AmbientColor,
                              &Incandescence,     &TranslucenceCoeff,    &TranslucenceFocus,
                              &TranslucenceDepth, &GlowIntensity,        &SpecularGlow,
                              &Eccentricity,      &Specularity,          &SpecularRollOff,
                              &SpecularColor,     &Reflectivity,         &Environment,
                              &ReflectedColor,    &ReflectionSpecular,   &ReflectedRayDepthLimit,
                              &MatrixEyeToWorld,  &TriangleNormalCamera, &LightData,
                              &MatteOpacityMode,  &HideSource,           &LightAbsorbance,
                              &TransparencyDepth};
    Tattribute* rays[] = {ORVO_MATERIAL_RAY_INPUTS};
    for (Tattribute* a : lighting) {
        into(*a, OutColor);
        into(*a, OutGlowColor);
        into(*a, OutMatteOpacity); // the shadow pass
    }
    for (Tattribute* a : rays) {
        into(*a, OutColor);
        into(*a, OutGlowColor);
        into(*a, OutTransparency);
        into(*a, OutMatteOpacity);
    }
    into(MatteOpacityGain, OutMatteOpacity);
}

namespace {

// The colour frame runs a batch's worth of samples at a time.
constexpr unsigned kChunk = 64;

T3Float toT3(const float* v) {
    return {v[0], v[1], v[2]};
}

T3Float mul(const T3Float& a, const T3Float& b) {
    return {a.x * b.x, a.y * b.y, a.z * b.z};
}

const Tattribute* computedRoot(const Tplug& plug) {
    const Tattribute* a = plug.attribute();
    return a && a->parent() ? a->parent() : a;
}

#define ORVO_COLOR_RAMP(Name) ORVO_COLOR_CURVE_RUN(TdnRampShader, Name, block, first, count)
#define ORVO_FLOAT_RAMP(Name) ORVO_FLOAT_CURVE_RUN(TdnRampShader, Name, block, first, count)

// What each render pass lets through.
struct PassFlags {
    bool specular, diffuse, incandescence, ambient;
    explicit PassFlags(int p)
        : specular(p != kRenderPassAmbient && p != kRenderPassDiffuse),
          diffuse(p == kRenderPassBeauty || p == kRenderPassColor || p == kRenderPassDiffuse),
          incandescence(diffuse), ambient(diffuse || p == kRenderPassAmbient) {
        if (p == kRenderPassShadow)
            specular = diffuse = incandescence = ambient = false;
    }
};

} // namespace

TdnRampShader::TdnRampShader()
    : fTranslucenceCutoff(aTranslucenceDepth.nativeDefault() * TdnLambert::kCutoffPerDepth) {}

// ---------------------------------------------------------------- dispatch

bool TdnRampShader::computePlug(const Tplug& plug, TdataBlock& block) {
    return vectorComputePlug(plug, block, 0, block.elementCount());
}

bool TdnRampShader::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                                      unsigned count) {
    const Tattribute* a = computedRoot(plug);
    if (a == &aOutColor || a == &aOutGlowColor || a == &aOutTransparency ||
        a == &aOutMatteOpacity) {
        computeRampShader(plug, block, first, count);
        return true;
    }
    return TshadingDependNode::vectorComputePlug(plug, block, first, count);
}

void TdnRampShader::computeRampShader(const Tplug& plug, TdataBlock& block, unsigned first,
                                      unsigned count) {
    const Tattribute* a = computedRoot(plug);
    const int pass = OrvoRenderPass();
    if (a == &aOutColor || a == &aOutGlowColor ||
        (a == &aOutMatteOpacity && pass == kRenderPassShadow)) {
        computeRampShaderOutput(plug, block, first, count);
        const TvectorDataHandle hide = block.vectorInputValue(aHideSource, first, count);
        const TvectorDataHandle outColor = block.vectorOutputValue(aOutColor, first);
        for (unsigned i = 0; i < count; ++i)
            if (hide[int(i)].asBool())
                outColor[int(i)].set(T3Float{0.0f, 0.0f, 0.0f});
        computeBlackHole(plug, block, first, count);
        return;
    }
    computeTransparency(plug, block, first, count);
}

void TdnRampShader::computeBlackHole(const Tplug&, TdataBlock& block, unsigned first,
                                     unsigned count) {
    const TvectorDataHandle mode = block.vectorInputValue(aMatteOpacityMode, first, count);
    const TvectorDataHandle outColor = block.vectorOutputValue(aOutColor, first);
    const TvectorDataHandle outGlow = block.vectorOutputValue(aOutGlowColor, first);
    for (unsigned i = 0; i < count; ++i) {
        const int e = int(i);
        if (mode[e].asShort() != kBlackHoleM)
            continue;
        outColor[e].set(T3Float{0.0f, 0.0f, 0.0f});
        outGlow[e].set(T3Float{0.0f, 0.0f, 0.0f});
    }
}

// ---------------------------------------------------------------- colour

void TdnRampShader::computeRampShaderOutput(const Tplug& plug, TdataBlock& block, unsigned first,
                                            unsigned count) {
    const int pass = OrvoRenderPass();
    for (unsigned done = 0; done < count; done += kChunk)
        outputChunk(plug, block, first + done, std::min(kChunk, count - done), pass);
}

void TdnRampShader::outputChunk(const Tplug& plug, TdataBlock& block, unsigned first,
                                unsigned count, int pass) {
    const PassFlags flags(pass);
    // The traced reflection lands in outColor first.
    if (flags.specular)
        computeReflection(plug, block, first, count);

    const TcurveRun color = ORVO_COLOR_RAMP(Color);
    const TcurveRun transparency = ORVO_COLOR_RAMP(Transparency);
    const TcurveRun incandescence = ORVO_COLOR_RAMP(Incandescence);
    const TcurveRun specularColor = ORVO_COLOR_RAMP(SpecularColor);
    const TcurveRun environment = ORVO_COLOR_RAMP(Environment);
    const TcurveRun rollOff = ORVO_FLOAT_RAMP(SpecularRollOff);
    const TcurveRun reflectivity = ORVO_FLOAT_RAMP(Reflectivity);

    const TvectorDataHandle point = block.vectorInputValue(aPointCamera, first, count);
    const TvectorDataHandle normal = block.vectorInputValue(aNormalCamera, first, count);
    const TvectorDataHandle view = block.vectorInputValue(aRayDirection, first, count);
    const TvectorDataHandle eyeToWorld = block.vectorInputValue(aMatrixEyeToWorld, first, count);
    const TvectorDataHandle lights = block.vectorInputValue(aLightData, first, count);
    const TvectorDataHandle rayDepth = block.vectorInputValue(aRayDepth, first, count);
    const TvectorDataHandle colorInput = block.vectorInputValue(aColorInput, first, count);
    const TvectorDataHandle shadowMode = block.vectorInputValue(aShadowMode, first, count);
    const TvectorDataHandle shadowColor = block.vectorInputValue(aShadowColor, first, count);
    const TvectorDataHandle threshold = block.vectorInputValue(aShadowThreshold, first, count);
    const TvectorDataHandle diffuse = block.vectorInputValue(aDiffuseCoeff, first, count);
    const TvectorDataHandle scatter = block.vectorInputValue(aForwardScatter, first, count);
    const TvectorDataHandle translucence = block.vectorInputValue(aTranslucenceCoeff, first, count);
    const TvectorDataHandle focus = block.vectorInputValue(aTranslucenceFocus, first, count);
    const TvectorDataHandle ambient = block.vectorInputValue(aAmbientColor, first, count);
    const TvectorDataHandle glow = block.vectorInputValue(aGlowIntensity, first, count);
    const TvectorDataHandle specularGlow = block.vectorInputValue(aSpecularGlow, first, count);
    const TvectorDataHandle eccentricity = block.vectorInputValue(aEccentricity, first, count);
    const TvectorDataHandle specularity = block.vectorInputValue(aSpecularity, first, count);
    const TvectorDataHandle reflectionSpecularity =
        block.vectorInputValue(aReflectionSpecular, first, count);
    const TvectorDataHandle outColor = block.vectorOutputValue(aOutColor, first);
    const TvectorDataHandle outGlow = block.vectorOutputValue(aOutGlowColor, first);
    const TvectorDataHandle outMatte = pass == kRenderPassShadow
                                           ? block.vectorOutputValue(aOutMatteOpacity, first)
                                           : TvectorDataHandle();

    // The translucence cut-off and the width it fades in over.
    const float t0 = -1.15f * fTranslucenceCutoff / 0.1f;
    const float t1 = std::min(0.15f - t0, 1.0f);
    const T3Float black{0.0f, 0.0f, 0.0f};

    // Each sample's colour, and its transparency at the facing ratio, which
    // the refraction below weighs what it brings back with.
    T3Float colour[kChunk], clear[kChunk];
    for (unsigned i = 0; i < count; ++i) {
        const int e = int(i);
        T3Float S = black, E = black, D = black;
        float b = 0.0f, I = 0.0f, P = 0.0f, Q = 0.0f;
        const bool specularActive = flags.specular && specularity[e].asFloat() > 0.0f;

        const T3Float V = toT3(view[e].asFloat3());
        const T3Float N = toT3(normal[e].asFloat3());
        const T3Float at = toT3(point[e].asFloat3());
        const float f = -OrvoDot(V, N);
        const T3Float R = V + N * (2.0f * f);

        // The reflection: what the mirror ray brought back and the
        // environment, by reflectivity at the facing ratio.
        if (flags.specular) {
            const float r = reflectivity.at(e).valueAtPoint(f);
            if (r > 0.0f) {
                T3Float c = toT3(outColor[e].asFloat3());
                const Tramp env = environment.at(e);
                if (env.entryCount() < 2) {
                    c = c + env.color();
                } else {
                    T4dFltMatrix m;
                    std::memcpy(&m, eyeToWorld[e].address(), sizeof m);
                    const T3Float world = OrvoTransformVector(m, R);
                    c = c + env.colorAtPoint((world.y + 1.0f) * 0.5f);
                }
                E = c * r;
            }
        }

        const int16_t m = colorInput[e].asShort();
        const Tramp colorRamp = color.at(e);
        const T3Float Cf = m == kFacingAngle ? colorRamp.colorAtPoint(f) : black;
        const int16_t w = shadowMode[e].asShort();
        const float kd = diffuse[e].asFloat();
        const float s = std::min(scatter[e].asFloat(), 0.9999f);
        const float g = 1.0f - s;
        const float tr = translucence[e].asFloat();
        const float u = focus[e].asFloat();
        const float k0 = specularity[e].asFloat();
        const bool primary = rayDepth[e].asShort() == 0;
        float e2 = eccentricity[e].asFloat();
        e2 = e2 * e2 - 1.0f;
        if (e2 > -1e-5f && e2 < 1e-5f)
            e2 = 1e-5f;

        TdnLambert::forEachLight(lights[e], [&](const TlightData& record) {
            const T3Float L = toT3(record.direction);
            T3Float Li = toT3(record.intensity);
            auto* blind = static_cast<TlightBlindData*>(record.blindData);
            float a = record.ambient ? 1.0f : 0.0f;
            float d = 0.0f;
            if (record.diffuse || (specularActive && record.specular))
                d = blind ? blind->integrateLambertianReflectance(L, at, N, true) : OrvoDot(N, L);
            // The view against the light, asked once and only when needed.
            bool haveQ = false;
            float q = 0.0f;
            auto facing = [&]() {
                if (!haveQ) {
                    const float v =
                        blind ? blind->hemisphereCoverage(L, at, V, true) : OrvoDot(V, L);
                    q = std::clamp((v + 1.0f) * 0.5f, 0.0f, 1.0f);
                    haveQ = true;
                }
                return q;
            };
            if (record.diffuse && d > 0.0f) {
                if (s <= 0.0001f)
                    a += d * kd;
                else
                    a += ((s * std::pow(facing(), 1.0f / g)) / g + g) * d * kd;
            }
            if (record.diffuse && tr != 0.0f && d > t0) {
                float v = tr;
                if (u != 0.0f)
                    v = tr * std::pow(facing(), u / (1.00001f - u));
                if (d < t0 + t1)
                    v *= (d - t0) / t1;
                a += v;
            }
            if (specularActive && record.specular) {
                const T3Float L2 =
                    blind ? blind->maxPhongSpecularDirection(L, at, R, N, nullptr) : L;
                const float n = OrvoDot(L2, N);
                if (n > 0.0f) {
                    const float x0 = (OrvoDot(R, L2) + 1.0f) * 0.5f;
                    const T3Float Ct = specularColor.at(e).colorAtPoint(x0 * x0 * x0);
                    float k = rollOff.at(e).valueAtPoint(f) * k0;
                    // Primary rays only: deeper ones keep the roll-off alone.
                    if (primary)
                        k *= reflectionSpecularity[e].asFloat();
                    const T3Float H = TdnReflect::normalised(L2 - V);
                    const float x = -OrvoDot(H, V);
                    const float y = OrvoDot(H, N);
                    const float Dd = (1.0f / e2 + 1.0f) / (y * y + 1.0f / e2);
                    float G;
                    if (2.0f * y * n < x && !(n > f))
                        G = 2.0f * y * n / (x * f);
                    else if (n > f && x > 2.0f * y * f)
                        G = 2.0f * y / x;
                    else
                        G = 1.0f / f;
                    S = S + mul(Ct, Li) * (k * G * Dd * Dd);
                }
            }
            if (pass == kRenderPassShadow) {
                P += record.preShadowIntensity;
                if (d > 0.0f)
                    Q += record.preShadowIntensity * record.shadowFraction;
            }
            if (flags.diffuse && w != kSmNormal) {
                const float h = record.preShadowIntensity;
                float z = record.shadowFraction;
                // Near the terminator the shadow fades out, so that the
                // shadow colour does not outline the shading's own edge.
                if (d <= 0.15f && tr <= 0.0f)
                    z = d <= 0.05f ? 0.0f : z * (d - 0.05f) * 10.0f;
                P += h;
                Q += z * h;
                if (m != kBrightness)
                    Li = Li * (1.0f - z) + T3Float{h, h, h} * z;
                else
                    Li = T3Float{h, h, h};
            }
            if (flags.diffuse) {
                switch (m) {
                case kLightAngle:
                    D = D +
                        mul(colorRamp.colorAtPoint(std::clamp((d + 1.0f) * 0.5f, 0.0f, 1.0f)), Li) *
                            a;
                    break;
                case kFacingAngle:
                    D = D + mul(Cf, Li) * a;
                    break;
                case kBrightness:
                    b += (Li.x + Li.y + Li.z) * a;
                    break;
                default: {
                    const float t = Li.x + Li.y + Li.z;
                    I += t;
                    b += t * a;
                    break;
                }
                }
            }
        });

        if (pass == kRenderPassShadow) {
            const float ratio = P <= 1e-5f ? Q : Q / P;
            outColor[e].set(black);
            outGlow[e].set(black);
            outMatte[e].set(T3Float{ratio, ratio, ratio});
            colour[i] = black;
            continue;
        }
        if (flags.diffuse) {
            if (m == kBrightness)
                D = D + colorRamp.colorAtPoint(b / 3.0f);
            else if (m == kNormalizedBrightness)
                D = D + colorRamp.colorAtPoint(I <= 1e-5f ? b : b / I);
            if (w != kSmNormal && Q > 1e-5f) {
                const float z = P <= 1e-5f ? Q : Q / P;
                if (z > threshold[e].asFloat()) {
                    const T3Float shadow = toT3(shadowColor[e].asFloat3());
                    D = w == kSmConstantColor || z >= 1.0f ? shadow : D * (1.0f - z) + shadow * z;
                }
            }
            const T3Float am = toT3(ambient[e].asFloat3());
            if (flags.ambient && am.x > 1e-5f && am.y > 1e-5f && am.z > 1e-5f)
                D = D + mul(am, colorRamp.colorAtPoint(1.0f) + colorRamp.colorAtPoint(0.5f)) * 0.5f;
        }
        clear[i] = transparency.at(e).colorAtPoint(f);
        const T3Float& t = clear[i];
        D = mul(D, T3Float{1.0f - t.x, 1.0f - t.y, 1.0f - t.z});
        if (flags.incandescence)
            D = D + incandescence.at(e).colorAtPoint(f);
        D = D + E;
        outGlow[e].set(D * glow[e].asFloat() + S * specularGlow[e].asFloat());
        colour[i] = D + S;
    }
    if (pass == kRenderPassShadow)
        return;
    // What is seen through the surface joins the colour, not the glow.
    OrvoAccumulateRefraction(*this, OrvoRefractionAttributesOf<TdnRampShader>(), block, first,
                             count, clear, colour);
    for (unsigned i = 0; i < count; ++i)
        outColor[int(i)].set(colour[i]);
}

// ---------------------------------------------------------------- rays

void TdnRampShader::computeReflection(const Tplug&, TdataBlock& block, unsigned first,
                                      unsigned count) {
    // Reflectivity is a ramp over the facing ratio.
    const TcurveRun reflectivity = ORVO_FLOAT_RAMP(Reflectivity);
    const TvectorDataHandle normal = block.vectorInputValue(aNormalCamera, first, count);
    const TvectorDataHandle view = block.vectorInputValue(aRayDirection, first, count);
    OrvoComputeReflection(*this, block, first, count, fReflectedColorDriven, [&](int e) {
        const float f = -OrvoDot(toT3(view[e].asFloat3()), toT3(normal[e].asFloat3()));
        return reflectivity.at(e).valueAtPoint(f) > 0.0f;
    });
}

void TdnRampShader::transparencies(TdataBlock& block, unsigned first, unsigned count,
                                   T3Float* out) {
    const TcurveRun transparency = ORVO_COLOR_RAMP(Transparency);
    const TvectorDataHandle normal = block.vectorInputValue(aNormalCamera, first, count);
    const TvectorDataHandle view = block.vectorInputValue(aRayDirection, first, count);
    for (unsigned i = 0; i < count; ++i) {
        const int e = int(i);
        const float f = -OrvoDot(toT3(view[e].asFloat3()), toT3(normal[e].asFloat3()));
        out[i] = transparency.at(e).colorAtPoint(f);
    }
}

void TdnRampShader::computeTransparency(const Tplug&, TdataBlock& block, unsigned first,
                                        unsigned count) {
    const int pass = OrvoRenderPass();
    for (unsigned done = 0; done < count; done += kChunk) {
        const unsigned n = std::min(kChunk, count - done);
        T3Float clear[kChunk];
        transparencies(block, first + done, n, clear);
        OrvoComputeTransmission(*this, OrvoRefractionAttributesOf<TdnRampShader>(), block,
                                first + done, n, clear, pass);
    }
}

// ---------------------------------------------------------------- network

void TdnRampShader::analyse(TDNshadingEngine* engine, TSEnodeDescription* description, void* option,
                            TbitField64& fields) {
    TshadingDependNode::analyse(engine, description, option, fields);
    if (OrvoRayTracingEnabled())
        return;
    // Without ray tracing nothing reads the ray fields.
    for (unsigned field : {TsampleFields::rayDepth, TsampleFields::rayInstance,
                           TsampleFields::primitiveId, TsampleFields::mediumRefractiveIndex})
        fields.clear(field);
}

void TdnRampShader::shadingNodeInit(TframeSampleData*) {
    fTranslucenceCutoff = OrvoTranslucenceCutoff(*this);
    const Tplug reflected(this, &aReflectedColor);
    fReflectedColorDriven = reflected.isDestination() || reflected.isChildDestination();
}

void TdnRampShader::endOfRender() {
    OrvoForgetRaySampler(*this);
    TshadingDependNode::endOfRender();
}

void TdnRampShader::groupedAttrs(const Tattribute* attribute, TattributeArray& out) {
    OrvoMaterialGroupedAttrs<TdnRampShader>(attribute, out);
}

unsigned TdnRampShader::transparencyOptions() {
    unsigned options = 0;
    const TdataHandle refractions = OrvoEvaluatedValue(*this, aRtRefractedColor);
    if (!refractions.isNull() && refractions.asBool())
        options |= kRayOptionRefracts;
    // A reflectivity ramp with an entry above 0 can send a mirror ray.
    const TdataHandle ramp = OrvoEvaluatedValue(*this, aReflectivity);
    const TdataHandle limit = OrvoEvaluatedValue(*this, aReflectedRayDepthLimit);
    const Tramp reflectivity(TrampData::of(aReflectivity, aReflectivityPosition,
                                           aReflectivityFloatValue, aReflectivityInterp),
                             ramp.isNull() ? nullptr : ramp.asMultiHeader());
    const bool reflective =
        !Tplug(this, &aReflectivity).source().isNull() || reflectivity.largestValue() > 0.0f;
    if (reflective && (limit.isNull() || limit.asShort() > 0))
        options |= kRayOptionReflects;
    return options;
}

T3Float TdnRampShader::getHardwareShadingAttributes() {
    const TdataHandle colour = OrvoEvaluatedValue(*this, aColor);
    const Tramp ramp(TrampData::of(aColor, aColorPosition, aColorColor, aColorInterp),
                     colour.isNull() ? nullptr : colour.asMultiHeader());
    return ramp.colorAtPoint(0.5f);
}
