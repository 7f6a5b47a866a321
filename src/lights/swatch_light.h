#pragma once

// swatchLight: the fixed light that lights swatches, the small previews of
// a material. It is a white key light of intensity 1 standing above, to the
// left of and behind the camera, at (-10, 10, 10) in camera space: a
// swatch in front of the camera is lit from the upper left, the side
// facing the camera brightest. Its record lights diffuse and specular, is
// never ambient and casts no shadow.

#include "framework/node_pattern.h"

#define ORVO_SCHEMA_TdnSwatchLight(A, C2, C3)                                                      \
    C3(Tattribute3Float, PointCamera, "pointCamera", "p", ORVO_XYZ,                                \
       .implicitSample().setNativeDefaultData(1, 1, 1), .implicitSample())                         \
    A(TattributeLightData, LightData, "lightData", "ltd", .output())

ORVO_NODE(TdnSwatchLight, TshadingDependNode, "swatchLight", "MULL", 4, "kDependencyNode",
          "rendernode/swatchLight", "n_swatchLight")

class TdnSwatchLight : public TdnPattern<TdnSwatchLight, TshadingDependNode> {
public:
    // The light's position in camera space.
    static constexpr T3Float kPosition = {-10.0f, 10.0f, 10.0f};

    // The record at a point: the unit direction from the point to the light
    // ((0, 0, 1) at the light itself) and the light's fixed values.
    static TlightData recordAt(const T3Float& pointCamera);

    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                           unsigned count) override;
};
