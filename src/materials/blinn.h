#pragma once

// blinn: the microfacet highlight of a rough surface (a Trowbridge-Reitz
// distribution of facets, their masking and shadowing, and a Fresnel-like
// roll-off toward grazing angles), which keeps its highlight at glancing
// views where a phong lobe goes dull.

#include "materials/reflect.h"

#define ORVO_SCHEMA_TdnBlinn(A, C2, C3)                                                            \
    A(TattributeFloat, Eccentricity, "eccentricity", "ec", .input().setNativeDefaultData(0.3f))    \
    A(TattributeFloat, SpecularRollOff, "specularRollOff", "sro",                                  \
      .input().setNativeDefaultData(0.7f))                                                         \
    A(TattributeBoolean, ReflectionRolloff, "reflectionRolloff", "rro",                            \
      .input().setNativeDefaultData(true))
ORVO_NODE(TdnBlinn, TdnReflect, "blinn", "RBLN", 371, "kBlinn",
          "shader/surface:drawdb/shader/surface/blinn", "n_blinn")

class TdnBlinn : public TdnPattern<TdnBlinn, TdnReflect> {
public:
    // eccentricity as it evaluates now, and set as the node's own value,
    // for the viewport.
    float getEccentricity();
    void setEccentricity(float eccentricity);

    // The highlight of light direction L on normal N seen along the view
    // ray I, with `nl`, `nv` the cosines of the light and of the view to the
    // normal; 0 or less adds nothing.
    static float lobe(const T3Float& L, const T3Float& N, const T3Float& I, float nl, float nv,
                      float eccentricity, float rollOff);

protected:
    void highlight(TdataBlock& block, unsigned first, unsigned count, int pass,
                   const T3Float* mirror, T3Float* S) override;
};
