#pragma once

// spotLight: a point light held to a cone about its -Z axis. Inside the
// cone the light may fall off toward the rim (dropoff); a penumbra softens
// the rim, outward (positive) or inward (negative). Barn doors cut the
// beam with four flaps, each with the penumbra's softness, and up to three
// decay regions keep the light to bands of distance. The surfaces of the
// node on fogGeometry are its fog: a cone that glows brighter toward its
// axis. Its depth map shadows are one perspective map through the cone.

#include "lights/non_extended_light_shape.h"

#define ORVO_SCHEMA_TspotLightShape(A, C2, C3)                                                     \
    A(TattributeDoubleAngle, ConeAngle, "coneAngle", "ca",                                         \
      .input().setNativeDefaultData(0.6981317).min(0.0))                                           \
    A(TattributeDoubleAngle, PenumbraAngle, "penumbraAngle", "pa",                                 \
      .input().setNativeDefaultData(0.0).range(-3.141492653589793, 3.141492653589793))             \
    A(TattributeDouble, Dropoff, "dropoff", "dro", .input().setNativeDefaultData(0.0).min(0.0))    \
    A(TattributeBoolean, BarnDoors, "barnDoors", "bd", .input().setNativeDefaultData(false))       \
    ORVO_SPOT_DOOR(A, LeftBarnDoor, "leftBarnDoor", "lbd")                                         \
    ORVO_SPOT_DOOR(A, RightBarnDoor, "rightBarnDoor", "rbd")                                       \
    ORVO_SPOT_DOOR(A, TopBarnDoor, "topBarnDoor", "tbd")                                           \
    ORVO_SPOT_DOOR(A, BottomBarnDoor, "bottomBarnDoor", "bbd")                                     \
    A(TattributeBoolean, UseDecayRegions, "useDecayRegions", "udr",                                \
      .input().setNativeDefaultData(false))                                                        \
    ORVO_SPOT_DISTANCE(A, StartDistance1, "startDistance1", "sd1", 1.0f)                           \
    ORVO_SPOT_DISTANCE(A, EndDistance1, "endDistance1", "ed1", 2.0f)                               \
    ORVO_SPOT_DISTANCE(A, StartDistance2, "startDistance2", "sd2", 3.0f)                           \
    ORVO_SPOT_DISTANCE(A, EndDistance2, "endDistance2", "ed2", 6.0f)                               \
    ORVO_SPOT_DISTANCE(A, StartDistance3, "startDistance3", "sd3", 8.0f)                           \
    ORVO_SPOT_DISTANCE(A, EndDistance3, "endDistance3", "ed3", 10.0f)                              \
    A(TattributeFloat, FogSpread, "fogSpread", "fsp", .input().setNativeDefaultData(1.0f))         \
    A(TattributeFloat, FogIntensity, "fogIntensity", "fin", .input().setNativeDefaultData(1.0f))   \
    A(TattributeChar, ObjectType, "objectType", "ot", .implicitSample().setNativeDefaultData(1))   \
    ORVO_LIGHT_WORLD_POINT(A, PointWorld, "pointWorld", "pw", "tx", "ty", "tz", 1)                 \
    ORVO_LIGHT_WORLD_POINT(A, FarPointWorld, "farPointWorld", "fw", "fx", "fy", "fz", 1)           \
    A(Tattribute3Float, RayDirection, "rayDirection", "rad", .implicitSample())                    \
    A(TattributeFloat, RayDirectionX, "rayDirectionX", "rdx",                                      \
      .implicitSample().childOf(RayDirection))                                                     \
    A(TattributeFloat, RayDirectionY, "rayDirectionY", "rdy",                                      \
      .implicitSample().childOf(RayDirection))                                                     \
    A(TattributeFloat, RayDirectionZ, "rayDirectionZ", "rdz",                                      \
      .implicitSample().childOf(RayDirection))                                                     \
    A(TattributeMessage, FogGeometry, "fogGeometry", "fg", .flagsOn(0))                            \
    A(TattributeMessage, LightGlow, "lightGlow", "lg", .flagsOn(0))                                \
    A(TattributeInt16, PsIllumSamples, "psIllumSamples", "pis", .input().setNativeDefaultData(1))

// A barn door's angle from the axis: up to a right angle either way.
#define ORVO_SPOT_DOOR(A, Name, Long, Short)                                                       \
    A(TattributeDoubleAngle, Name, Long, Short,                                                    \
      .input()                                                                                     \
          .setNativeDefaultData(0.3490658503988659)                                                \
          .range(-1.5707463267948965, 1.5707463267948965))
// A decay region's bound, a distance from the light.
#define ORVO_SPOT_DISTANCE(A, Name, Long, Short, Default)                                          \
    A(TattributeFloatLinear, Name, Long, Short, .input().setNativeDefaultData(Default))

ORVO_NODE(TspotLightShape, TnonExtendedLightShape, "spotLight", "SPTL", 310, "kSpotLight",
          "light:drawdb/light/spotLight", "n_spotLight")

class TspotLightShape : public TdnPattern<TspotLightShape, TnonExtendedLightShape> {
public:
    // What the beam's shape comes to, in eye space: made once a frame.
    struct Cone {
        T3Float shineAt{0.0f, 0.0f, 1.0f}; // back along the beam, toward the light
        T3Float right{1.0f, 0.0f, 0.0f};   // only with barn doors
        T3Float up{0.0f, 1.0f, 0.0f};      // only with barn doors
        float cutoff = 0.0f;               // the cosine at which the light reaches zero
        float penumbra = 0.0f;             // the cosine where the penumbra ends; 0: none
        float leftCutoff = 0.0f, rightCutoff = 0.0f, topCutoff = 0.0f, bottomCutoff = 0.0f;
        float coneCutoff = 0.0f; // sine of the half cone
        float tanConeAngle = 0.0f;
        float leftPenumbra = 0.0f, rightPenumbra = 0.0f, topPenumbra = 0.0f, bottomPenumbra = 0.0f;
        float conePenumbra = 0.0f; // sine of the outer angle
    };
    // The cone's limits for a cone angle and a penumbra angle (radians) and,
    // with barn doors, the four doors' angles (left, right, top, bottom);
    // the axes are left as they are.
    static void computeLimits(double coneAngle, double penumbraAngle, bool barnDoors,
                              const double doors[4], Cone& cone);
    // How much of the light passes the barn doors for a sample at cosine
    // `k` from the axis, `l` the unit direction to the light: `intensity` is
    // scaled; false when the doors or the cone keep the sample dark.
    static bool calculateBarnDoorDropOff(const Cone& cone, const double doors[4], double coneAngle,
                                         float k, const T3Float& l, float& intensity);
    // The three decay regions, [start, end] each (`bounds` in the order
    // start1, end1, start2, end2, start3, end3).
    static bool inIlluminationRegion(float d, const float bounds[6]);
    // The length of [near, far] within [start, end].
    static float calculateLengthInRegion(float near, float far, float start, float end);

    const Cone& cone() const { return fCone; }
    // The settings as the node holds them, outside a render.
    double coneAngle() const { return plainValue(aConeAngle); }
    double penumbraAngle() const { return plainValue(aPenumbraAngle); }

    // Within the whole cone angle (not half of it) of the light's -Z axis.
    bool canSee(const T3Float& point, T3Float& position, T3Float& direction) const override;
    // Whether the beam reaches a point (eye space) at all.
    bool visibleToLight(TdataBlock& block, const T3Float& point) const;
    bool affectsShadows(const Tattribute* attribute) const override;
    void shadingNodeOnDemand(Tplug& plug, TdataBlock& block) override;
    void debugMembers(TdebugOutput& out) const override;

    // The twenty points of the cone's rim, for drawing: recomputed when the
    // cone angle changes.
    void recomputeConePoints();
    const T4dDblPoint* conePoints() const { return fConePoints; }
    // Views looking through the light.
    void addSpotView() { ++fSpotViews; }
    void removeSpotView() { fSpotViews = fSpotViews > 0 ? fSpotViews - 1 : 0; }
    bool inSpotView() const { return fSpotViews > 0; }

    // The base's needs, then those of the light's fog.
    void analyse(TDNshadingEngine* engine, TSEnodeDescription* description, void* option,
                 TbitField64& fields) override;

protected:
    bool projectTextureCoordinates(LightBatch& b, T2Float* uv) override;
    void illuminate(LightBatch& b) override;
    const Tattribute* objectTypeAttribute() const override { return &aObjectType; }
    const Tattribute* fogGeometryAttribute() const override { return &aFogGeometry; }
    const Tattribute* fogNearAttribute() const override { return &aPointWorld; }
    const Tattribute* fogFarAttribute() const override { return &aFarPointWorld; }

private:
    // The light of one point at eye-space `p` before decay: `l` and `d` the
    // unit direction and distance to the light, `outsideRegions` when decay
    // regions are on and none holds `d`. False (and 0) outside the cone.
    bool pointIntensity(TdataBlock& block, unsigned e, const T3Float& p, T3Float& l, float& d,
                        float& intensity, bool& outsideRegions) const;
    void fogIntensity(LightBatch& b, unsigned i);
    void particleIntensity(LightBatch& b, unsigned i, int samples);
    void readDoors(TdataBlock& block, unsigned e, double doors[4]) const;
    void readRegions(TdataBlock& block, unsigned e, float bounds[6]) const;

    Cone fCone;
    double fConeAngle = 0.0;
    double fDoors[4] = {};
    T4dDblPoint fConePoints[20];
    int fSpotViews = 0;
};
