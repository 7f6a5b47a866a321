#pragma once

// Transmission, refracted rays and the light they bring back, as every
// classic material does them on the attributes it names. Lambert and its
// family take a sample's transparency from a colour, the ramp shader from a
// ramp at the facing ratio: the transparency comes in as one triple a
// sample, worked out by the material.

#include "host/datablock.h"
#include "host/types.h"
#include "shading/ray_sampler.h"

class Tattribute;
class TdependNode;

// The attributes these steps read and write, a material's own.
struct TrefractionAttributes {
    const Tattribute* raySampler;
    const Tattribute* refractions; // boolean: trace refracted rays
    const Tattribute* hideSource;
    const Tattribute* mediumRefractiveIndex;
    const Tattribute* rayDepth;
    const Tattribute* refractionLimit;
    const Tattribute* refractiveIndex;
    const Tattribute* surfaceThickness;
    const Tattribute* rayDirection;
    const Tattribute* normalCamera;
    const Tattribute* chromaticAberration;
    const Tattribute* pointCamera;
    const Tattribute* primitiveId;
    const Tattribute* objectId;
    const Tattribute* rayInstance;
    const Tattribute* lightAbsorbance;
    const Tattribute* transparencyDepth;
    const Tattribute* matteOpacityMode;
    const Tattribute* matteOpacity;
    const Tattribute* outTransparency;
    const Tattribute* outMatteOpacity;
};

// The table of a material type T that names these attributes as lambert
// does (the ramp shader does too).
template <class T>
const TrefractionAttributes& OrvoRefractionAttributesOf() {
    static const TrefractionAttributes attributes{&T::aRaySampler,
                                                  &T::aRtRefractedColor,
                                                  &T::aHideSource,
                                                  &T::aMediumRefractiveIndex,
                                                  &T::aRayDepth,
                                                  &T::aRefractedRayDepthLimit,
                                                  &T::aRefractiveIndex,
                                                  &T::aSurfaceThickness,
                                                  &T::aRayDirection,
                                                  &T::aNormalCamera,
                                                  &T::aChromaticAberration,
                                                  &T::aPointCamera,
                                                  &T::aPrimitiveId,
                                                  &T::aObjectId,
                                                  &T::aRayInstance,
                                                  &T::aLightAbsorbance,
                                                  &T::aTransparencyDepth,
                                                  &T::aMatteOpacityMode,
                                                  &T::aMatteOpacityGain,
                                                  &T::aOutTransparency,
                                                  &T::aOutMatteOpacity};
    return attributes;
}

// Writes outTransparency (the transparency, darkened by what refracted rays
// pass through) and, outside the shadow pass, outMatteOpacity by the matte
// mode.
void OrvoComputeTransmission(TdependNode& node, const TrefractionAttributes& a, TdataBlock& block,
                             unsigned first, unsigned count, const T3Float* transparency, int pass);

// Fills a ray record for each refracting slot of the samples. The slot table
// has 3 slots a sample with chromatic aberration, 1 otherwise, and gets the
// number of the ray made in each (it comes in as -1).
void OrvoFormRefractiveRays(const TrefractionAttributes& a, TdataBlock& block, unsigned first,
                            unsigned count, const T3Float* transparency, short* slotOfRay,
                            short& rayCount, TgenericRay** rays, Tspectrum* colours,
                            Tspectrum* transmissions);

// Adds the light refracted through the samples to `accumulated`, one triple
// a sample.
void OrvoAccumulateRefraction(TdependNode& node, const TrefractionAttributes& a, TdataBlock& block,
                              unsigned first, unsigned count, const T3Float* transparency,
                              T3Float* accumulated);
