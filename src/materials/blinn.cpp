#include "materials/blinn.h"

#include <algorithm>

ORVO_REGISTER_NODE(TdnBlinn)

ORVO_DEPENDENCIES(TdnBlinn) {
    Tattribute* inputs[] = {&Eccentricity, &SpecularRollOff, &ReflectionRolloff};
    for (Tattribute* a : inputs) {
        affects(m, *a, TdnLambert::aOutColor);
        affects(m, *a, TdnLambert::aOutGlowColor);
    }
}

float TdnBlinn::lobe(const T3Float& L, const T3Float& N, const T3Float& I, float nl, float nv,
                     float eccentricity, float rollOff) {
    const T3Float H = normalised(L - I);
    const float vh = -OrvoDot(H, I);
    const float nh = OrvoDot(H, N);
    // The facet distribution.
    const float e = eccentricity * eccentricity - 1.0f;
    const float D = (e + 1.0f) / (e * nh * nh + 1.0f);
    // Masking and shadowing by neighbouring facets, over the view cosine.
    const float g = 2.0f * nh;
    float G;
    if (nl <= nv)
        G = vh > g * nl ? (g * nl) / (vh * nv) : 1.0f / nv;
    else
        G = vh > g * nv ? g / vh : 1.0f / nv;
    const float f = (1.0f - vh) * (1.0f - vh) * (1.0f - vh);
    return ((1.0f - f) * rollOff + f) * G * D * D;
}

void TdnBlinn::highlight(TdataBlock& block, unsigned first, unsigned count, int pass,
                         const T3Float* mirror, T3Float* S) {
    const SpecularInputs in(block, first, count);
    const TvectorDataHandle reflectivity = block.vectorInputValue(aReflectivity, first, count);
    const TvectorDataHandle eccentricity = block.vectorInputValue(aEccentricity, first, count);
    const TvectorDataHandle rollOff = block.vectorInputValue(aSpecularRollOff, first, count);
    const TvectorDataHandle rolloffReflection =
        block.vectorInputValue(aReflectionRolloff, first, count);
    for (unsigned i = 0; i < count; ++i) {
        const int e = int(i);
        const SpecularSample s = in.at(e);
        const float nv = -OrvoDot(s.normal, s.rayDirection);
        const float sro = rollOff[e].asFloat();
        // The reflection, rolled off like the highlight when asked.
        S[i] = T3Float{0.0f, 0.0f, 0.0f};
        const float r = reflectivity[e].asFloat();
        if (r > 0.0f) {
            float k = std::min(r, 1.0f);
            if (!rolloffReflection[e].asBool()) {
                S[i] = mirror[i] * k;
            } else {
                const float f = (1.0f - nv) * (1.0f - nv) * (1.0f - nv);
                k *= (1.0f - f) * sro + f;
                if (k > 0.0f)
                    S[i] = mirror[i] * k;
            }
        }
        if (pass == kRenderPassDiffuse)
            continue;
        const float ecc = eccentricity[e].asFloat();
        addSpecularLights(in.lights[e], s, S[i],
                          [&](const T3Float& L, const TlightData&, float& v) {
                              const float nl = OrvoDot(L, s.normal);
                              if (!(nl > 0.0f))
                                  return false;
                              v = lobe(L, s.normal, s.rayDirection, nl, nv, ecc, sro);
                              return v > 0.0f;
                          });
    }
    applySpecularColor(block, first, count, S);
}

float TdnBlinn::getEccentricity() {
    return plugValue(aEccentricity).asFloat();
}

void TdnBlinn::setEccentricity(float eccentricity) {
    if (graph())
        graph()->setPlugValue(Tplug(this, &aEccentricity), &eccentricity);
    else
        setAttributeValue(&aEccentricity, &eccentricity);
}
