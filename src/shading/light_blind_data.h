#pragma once

// What a material may ask of the light that wrote a light data record. The
// record's `lightBlindData` holds the writing light as a TlightBlindData*
// (the light stores `static_cast<TlightBlindData*>(this)`), or null when no
// light object stands behind the record. Materials call these in their
// light loops on render threads, so an implementation must not change the
// light's state.
//
// Vectors and points are in camera space; a point stands for the
// homogeneous point with w = 1.

#include "host/types.h"

class TlightBlindData {
public:
    // How much of the light a Lambertian surface at `point` with `normal`
    // receives, as a cosine-like factor. A point-like light gives
    // dot(lightDirection, normal); a light with extent integrates over it.
    virtual float integrateLambertianReflectance(const T3Float& lightDirection,
                                                 const T3Float& point, const T3Float& normal,
                                                 bool clampToHemisphere) = 0;

    // The direction within the light that gives the strongest highlight for
    // the mirror direction `reflected`; a point-like light gives
    // `lightDirection` itself. `hint` may carry a previous answer.
    virtual T3Float maxPhongSpecularDirection(const T3Float& lightDirection, const T3Float& point,
                                              const T3Float& reflected, const T3Float& normal,
                                              const T3Float* hint) = 0;

    // A factor the light applies on top of its intensity at `point` seen
    // along `direction`; 1 for a light without such a term.
    virtual float lightAttenuation(const T3Float& point, const T3Float& direction,
                                   bool clampToHemisphere) = 0;

    // How much of the light lies in the hemisphere around `direction` seen
    // from `point`; a point-like light gives the same as
    // integrateLambertianReflectance.
    virtual float hemisphereCoverage(const T3Float& lightDirection, const T3Float& point,
                                     const T3Float& direction, bool clampToHemisphere) = 0;

    // True when integrateLambertianReflectance and hemisphereCoverage are
    // the plain cosine, dot(lightDirection, v), clamped or not as the caller
    // does it: a material's light loop may then take the dot product itself
    // and spare a call a light.
    bool cosineOnly() const { return fCosineOnly; }

protected:
    // Lights are owned by the graph, never deleted through this interface.
    ~TlightBlindData() = default;
    void setCosineOnly(bool on) { fCosineOnly = on; }

private:
    bool fCosineOnly = false;
};
