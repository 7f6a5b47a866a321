#include "materials/hair_tube.h"

#include <cmath>
#include <cstring>

#include "host/ramp.h"

ORVO_REGISTER_NODE(TdnHairTubeShader)

ORVO_DEPENDENCIES(TdnHairTubeShader) {
    Tattribute* inputs[] = {&TangentUCamera, &TangentVCamera, &UvCoord,
                            &TubeDirection,  &ColorScale,     &SpecularPower,
                            &SpecularShift,  &ScatterPower,   &Scatter};
    for (Tattribute* a : inputs)
        forTree(*a, [&](Tattribute& input) {
            affects(m, input, TdnLambert::aOutColor);
            affects(m, input, TdnLambert::aOutGlowColor);
        });
}

namespace {

using K = TdnKernel<TdnHairTubeShader>;

} // namespace

float TdnHairTubeShader::computeSpecular(float power, const T3Float& T, const T3Float& L,
                                         const T3Float& E) {
    const float u = std::fabs(OrvoDot(T, L) - OrvoDot(T, E)) * 0.5f;
    return powf((2.0f * u - 3.0f) * u * u + 1.0f, power);
}

void TdnHairTubeShader::highlight(TdataBlock& block, unsigned first, unsigned count, int pass,
                                  const T3Float* mirror, T3Float* S) {
    for (unsigned i = 0; i < count; ++i)
        S[i] = T3Float{0.0f, 0.0f, 0.0f};
    // Hair keeps nothing of its highlight, its reflection or its scatter in
    // the diffuse pass.
    if (pass == kRenderPassDiffuse)
        return;
    const SpecularInputs in(block, first, count);
    const TvectorDataHandle tangentU = block.vectorInputValue(aTangentUCamera, first, count);
    const TvectorDataHandle tangentV = block.vectorInputValue(aTangentVCamera, first, count);
    const TvectorDataHandle uv = block.vectorInputValue(aUvCoord, first, count);
    const TvectorDataHandle direction = block.vectorInputValue(aTubeDirection, first, count);
    const TvectorDataHandle scale = block.vectorInputValue(aColorScale, first, count);
    const TvectorDataHandle power = block.vectorInputValue(aSpecularPower, first, count);
    const TvectorDataHandle shift = block.vectorInputValue(aSpecularShift, first, count);
    const TvectorDataHandle scatterPower = block.vectorInputValue(aScatterPower, first, count);
    const TvectorDataHandle scatter = block.vectorInputValue(aScatter, first, count);
    const TvectorDataHandle reflectivity = block.vectorInputValue(aReflectivity, first, count);
    const TvectorDataHandle specular = block.vectorInputValue(aSpecularColor, first, count);
    const TvectorDataHandle color = block.vectorInputValue(aColor, first, count);
    // With no entries the scale is 1: scatter keeps its own colour.
    const TrampData scaleLayout =
        TrampData::of(aColorScale, aColorScalePosition, aColorScaleColor, aColorScaleInterp);
    for (unsigned i = 0; i < count; ++i) {
        const int e = int(i);
        const SpecularSample s = in.at(e);
        const bool alongV = direction[e].asShort() == K::kVTangent;
        const T3Float E = normalised(s.rayDirection);
        const float* t = (alongV ? tangentV : tangentU)[e].asFloat3();
        const T3Float T = normalised({t[0], t[1], t[2]});
        // The highlight sits off the tube's axis, toward the view.
        T3Float Ts = T;
        if (const float sh = shift[e].asFloat(); sh > 1e-5f) {
            const float a = sh / 90.0f;
            const T3Float B = normalised(OrvoCross(T, E));
            const T3Float M = normalised(OrvoCross(B, T));
            Ts = normalised(T * (1.0f - a) + M * a);
        }
        const float p = power[e].asFloat(), sp = scatterPower[e].asFloat();
        const float kScatter = scatter[e].asFloat();
        T3Float lit{0.0f, 0.0f, 0.0f}, scattered{0.0f, 0.0f, 0.0f};
        // Lights by their direction alone: the tube asks no light for more.
        forEachLight(in.lights[e], [&](const TlightData& record) {
            if (!record.specular)
                return;
            const T3Float L{record.direction[0], record.direction[1], record.direction[2]};
            const T3Float I{record.intensity[0], record.intensity[1], record.intensity[2]};
            const float h = computeSpecular(p, Ts, L, E);
            if (h >= 1e-5f) {
                if (s.rayDepth == 0)
                    lit = lit + I * h;
                else if (s.reflectionSpecularity > 0.0f)
                    lit = lit + I * (h * s.reflectionSpecularity);
            }
            if (kScatter >= 1e-5f)
                scattered = scattered + I * (computeSpecular(sp, T, L, E) * kScatter);
        });
        // The reflection comes after the lights here; specularColor colours
        // both, but not the scatter.
        lit = lit + mirror[i] * reflectivity[e].asFloat();
        const float* k = specular[e].asFloat3();
        S[i] = T3Float{lit.x * k[0], lit.y * k[1], lit.z * k[2]};
        if (kScatter >= 1e-5f) {
            const Tramp ramp(scaleLayout, scale.isNull() ? nullptr : scale[e].asMultiHeader(),
                             1.0f);
            const float* coord = uv[e].asFloat3();
            const T3Float tint = ramp.colorAtPoint(alongV ? coord[1] : coord[0]);
            const float* c = color[e].asFloat3();
            for (int ch = 0; ch < 3; ++ch)
                S[i][ch] += c[ch] * (scattered[ch] * tint[ch]);
        }
    }
}
