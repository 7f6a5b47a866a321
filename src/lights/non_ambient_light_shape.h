#pragma once

// nonAmbientLightShapeNode: the lights that shine from somewhere. They fade
// with distance by their decay rate, and may be kept out of the diffuse or
// the specular part of a material.

#include "lights/render_light_shape.h"

class TnonAmbientLightShape;
template <>
struct TdnKernel<TnonAmbientLightShape> {
    enum : int16_t {
        kNoDecay = 0,
        kLinearDecay = 1,
        kQuadDecay = 2,
        kCubicDecay = 3,
    };
};

#define ORVO_SCHEMA_TnonAmbientLightShape(A, C2, C3)                                               \
    A(TattributeEnum, DecayRate, "decayRate", "de",                                                \
      .input()                                                                                     \
          .ORVO_FIELD(kNoDecay, "No Decay")                                                        \
          .ORVO_FIELD(kLinearDecay, "Linear")                                                      \
          .ORVO_FIELD(kQuadDecay, "Quadratic")                                                     \
          .ORVO_FIELD(kCubicDecay, "Cubic")                                                        \
          .setNativeDefaultData(kNoDecay))                                                         \
    A(TattributeBoolean, EmitDiffuse, "emitDiffuse", "edi", .input().setNativeDefaultData(true))   \
    A(TattributeBoolean, EmitSpecular, "emitSpecular", "esp", .input().setNativeDefaultData(true))
ORVO_NODE(TnonAmbientLightShape, TrenderLightShape, "nonAmbientLightShapeNode", "NAMB", 2105,
          "kLight", "light", "n_nonAmbientLightShapeNode")

class TnonAmbientLightShape : public TdnPattern<TnonAmbientLightShape, TrenderLightShape> {
public:
    // `intensity` at distance `d` for a decay rate: unchanged within a unit of
    // the light, so that a decayed light is never brighter than its
    // intensity; beyond, divided by d, d² or d³ for rates 1, 2 and 3.
    static float decay(float intensity, float d, int rate);

protected:
    // The base point, then the decay of each sample.
    void illuminate(LightBatch& b) override;
    void readEmitFlags(LightBatch& b, uint8_t* diffuse, uint8_t* specular) override;
    bool refreshesViewportLight(const Tattribute* attribute) const override;
};
