#include "materials/phong.h"

#include <cmath>

ORVO_REGISTER_NODE(TdnPhong)
ORVO_REGISTER_NODE(TdnPhongE)

ORVO_DEPENDENCIES(TdnPhong) {
    affects(m, CosPower, TdnLambert::aOutColor);
    affects(m, CosPower, TdnLambert::aOutGlowColor);
}

ORVO_DEPENDENCIES(TdnPhongE) {
    Tattribute* inputs[] = {&Roughness, &HighlightSize, &Whiteness};
    for (Tattribute* a : inputs)
        forTree(*a, [&](Tattribute& input) {
            affects(m, input, TdnLambert::aOutColor);
            affects(m, input, TdnLambert::aOutGlowColor);
        });
}

// ---------------------------------------------------------------- phong

void TdnPhong::highlight(TdataBlock& block, unsigned first, unsigned count, int pass,
                         const T3Float* mirror, T3Float* S) {
    reflectionTerm(block, first, count, mirror, S);
    if (pass != kRenderPassDiffuse) {
        const SpecularInputs in(block, first, count);
        const TvectorDataHandle power = block.vectorInputValue(aCosPower, first, count);
        for (unsigned i = 0; i < count; ++i) {
            const int e = int(i);
            const SpecularSample s = in.at(e);
            const T3Float R = mirrorDirection(s.normal, s.rayDirection);
            const float p = power[e].asFloat();
            addSpecularLights(in.lights[e], s, S[i],
                              [&](const T3Float& L, const TlightData&, float& v) {
                                  const float d = OrvoDot(L, R);
                                  if (!(OrvoDot(L, s.normal) > 0.0f && d > 0.0f))
                                      return false;
                                  // The power through log and exp, clipped
                                  // where the lobe is next to nothing.
                                  const float x = logf(d) * p;
                                  v = x >= -10.0f ? expf(x) : kNarrowLobe;
                                  return true;
                              });
        }
    }
    applySpecularColor(block, first, count, S);
}

float TdnPhong::getCosPower() {
    return plugValue(aCosPower).asFloat();
}

// ---------------------------------------------------------------- phongE

float TdnPhongE::computeRug(float x, float rug) {
    const float denominator = x * x * (rug - 1.0f) + 1.0f;
    if (std::fabs(denominator) <= 1e-5f)
        return 0.0f;
    return x * rug / denominator;
}

float TdnPhongE::squaredRoughness(float roughness) {
    if (std::fabs(roughness) <= 1e-5f)
        return 8.1e-07f;
    const float r = roughness * 0.969f + 0.03f;
    return r * r;
}

void TdnPhongE::highlight(TdataBlock& block, unsigned first, unsigned count, int pass,
                          const T3Float* mirror, T3Float* S) {
    // The reflection is coloured by specularColor alone; the lights below by
    // the whiteness mix as well.
    reflectionTerm(block, first, count, mirror, S);
    applySpecularColor(block, first, count, S);
    if (pass == kRenderPassDiffuse)
        return;
    const SpecularInputs in(block, first, count);
    const TvectorDataHandle roughness = block.vectorInputValue(aRoughness, first, count);
    const TvectorDataHandle size = block.vectorInputValue(aHighlightSize, first, count);
    const TvectorDataHandle whiteness = block.vectorInputValue(aWhiteness, first, count);
    const TvectorDataHandle color = block.vectorInputValue(aColor, first, count);
    const TvectorDataHandle specular = block.vectorInputValue(aSpecularColor, first, count);
    for (unsigned i = 0; i < count; ++i) {
        const int e = int(i);
        const float hs = size[e].asFloat();
        if (hs == 0.0f)
            continue; // no highlight at all
        const SpecularSample s = in.at(e);
        const float rug = squaredRoughness(roughness[e].asFloat());
        const T3Float R = mirrorDirection(s.normal, s.rayDirection);
        const float rim = 1.0f - hs;
        T3Float lit{0.0f, 0.0f, 0.0f};
        addSpecularLights(in.lights[e], s, lit, [&](const T3Float& L, const TlightData&, float& v) {
            const float n = OrvoDot(L, s.normal);
            if (!(n > 0.0f))
                return false;
            const float d = OrvoDot(L, R);
            if (!(d > rim))
                return false;
            v = computeRug((d - rim) / hs, rug);
            // Fade out at the terminator.
            if (n < 0.1f && v > 0.001f)
                v *= n * 10.0f;
            return true;
        });
        const float* w = whiteness[e].asFloat3();
        const float* c = color[e].asFloat3();
        const float* k = specular[e].asFloat3();
        for (int ch = 0; ch < 3; ++ch)
            S[i][ch] += lit[ch] * (((1.0f - w[ch]) * c[ch] + w[ch]) * k[ch]);
    }
}
