#pragma once

#include <vector>

// Node types made for the shading tests: a node whose colour is its UV, so
// that values vary per sample in a way worked out by hand.

#include <atomic>

#include "host/node_pattern.h"

#define ORVO_SCHEMA_TdnTestUvColor(A, C2, C3)                                                      \
    C2(Tattribute2Float, UvCoord, "uvCoord", "uv", ORVO_UV, .implicitSample(), .implicitSample())  \
    A(TattributeFloat, Gain, "gain", "gn", .input())                                               \
    C3(Tattribute3Float, Transparency, "transparency", "it", ORVO_RGB,                             \
       .inputParent().setNativeDefaultData(0, 0, 0), .input())                                     \
    C3(Tattribute3Float, OutColor, "outColor", "oc", ORVO_RGB, .output(), .output())               \
    C3(Tattribute3Float, OutTransparency, "outTransparency", "ot", ORVO_RGB, .output(), .output())

ORVO_NODE(TdnTestUvColor, TshadingDependNode, "testUvColor", "TUVC", 9101, "kTestUvColor",
          "test/uvColor", "n_testUvColor")

class TdnTestUvColor : public TdnPattern<TdnTestUvColor, TshadingDependNode> {
public:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                           unsigned count) override;
    void shadingNodeOnDemand(Tplug& plug, TdataBlock& block) override;
    // One compute writes both outputs.
    void groupedAttrs(const Tattribute* attribute, TattributeArray& out) override;

    // Counts across all nodes of the type, for the tests.
    static std::atomic<int> sComputes; // vectorComputePlug calls
    static std::atomic<int> sElements; // elements computed
    static std::atomic<int> sOnDemand; // shadingNodeOnDemand calls
};

// A node that asks the shading group for a user sample field of its own.
#define ORVO_SCHEMA_TdnTestUserData(A, C2, C3)                                                     \
    C3(Tattribute3Float, OutColor, "outColor", "oc", ORVO_RGB, .output(), .output())

ORVO_NODE(TdnTestUserData, TshadingDependNode, "testUserData", "TUSD", 9102, "kTestUserData",
          "test/userData", "n_testUserData")

class TdnTestUserData : public TdnPattern<TdnTestUserData, TshadingDependNode> {
public:
    void analyse(TDNshadingEngine* engine, TSEnodeDescription* description, void* option,
                 TbitField64& fields) override;
};

// A light for the gathering tests: its record carries the light's colour
// times intensity, in preShadowIntensity the x of the point it was computed
// for, so a test sees which sample a light ran on, and in shadowFraction
// the x of that point in the world. Counts its computes.
#include "host/scene/light_shape.h"

#define ORVO_SCHEMA_TdnTestLight(A, C2, C3)                                                        \
    C3(Tattribute3Float, PointWorld, "pointWorld", "pw", ORVO_XYZ, .implicitSample(),              \
       .implicitSample())
ORVO_NODE(TdnTestLight, TlightShape, "testLight", "TLGT", 9103, "kTestLight", "light/test",
          "n_testLight")

class TdnTestLight : public TdnPattern<TdnTestLight, TlightShape> {
public:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                           unsigned count) override;
    static std::atomic<int> sComputes;
    static std::atomic<int> sElements;
    // Where the records were written, in order (one thread shades).
    static std::vector<const void*> sWrittenAt;
};

// A material that sums what its lights give: outColor the sum of the
// intensities, outTransparency (count of lights, sum of preShadowIntensity,
// sum of x of the directions). With `probe` on, the second and third
// channels are instead the sums of shadowFraction and preShadowIntensity of
// the lights sampled at two points, x + 100 and x + 200, through
// sampleLights.
#define ORVO_SCHEMA_TdnTestLightSum(A, C2, C3)                                                     \
    A(TattributeArrayOf<TattributeLightData>, LightDataArray, "lightDataArray", "ltd",             \
      .implicitLight())                                                                            \
    A(TattributeBoolean, Probe, "probe", "pr", .input())                                           \
    C3(Tattribute3Float, PointCamera, "pointCamera", "p", ORVO_XYZ, .implicitSample(),             \
       .implicitSample())                                                                          \
    C3(Tattribute3Float, OutColor, "outColor", "oc", ORVO_RGB, .output(), .output())               \
    C3(Tattribute3Float, OutTransparency, "outTransparency", "ot", ORVO_RGB, .output(), .output())

ORVO_NODE(TdnTestLightSum, TshadingDependNode, "testLightSum", "TLSM", 9104, "kTestLightSum",
          "test/lightSum", "n_testLightSum")

class TdnTestLightSum : public TdnPattern<TdnTestLightSum, TshadingDependNode> {
public:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                           unsigned count) override;
    void groupedAttrs(const Tattribute* attribute, TattributeArray& out) override;
    // Where the records were read, and what they held, in order (one
    // thread shades).
    static std::vector<const void*> sReadAt;
    static std::vector<TlightData> sRecords;
};
