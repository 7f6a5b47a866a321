#pragma once

// nonExtendedLightShapeNode: the lights without an extent of their own
// (directional, point, spot, volume), and everything their depth map shadows
// are made from. Depth map and ray traced shadows exclude each other: turning
// one on turns the other off.

#include "lights/non_ambient_light_shape.h"

class TrenderCache;
class TuseShadowMap;
struct TdepthMapFiles;
struct TdepthMapSetup;

#define ORVO_SCHEMA_TnonExtendedLightShape(A, C2, C3)                                              \
    A(TattributeFloat, LightRadius, "lightRadius", "lr",                                           \
      .input().setNativeDefaultData(0.0f).min(0.0))                                                \
    A(TattributeBoolean, CastSoftShadows, "castSoftShadows", "cw",                                 \
      .input().setNativeDefaultData(false))                                                        \
    A(TattributeBoolean, UseDepthMapShadows, "useDepthMapShadows", "dms",                          \
      .input().setNativeDefaultData(false))                                                        \
    A(TattributeBoolean, ReuseDmap, "reuseDmap", "du", .input().setNativeDefaultData(false))       \
    A(TattributeBoolean, UseMidDistDmap, "useMidDistDmap", "md",                                   \
      .input().setNativeDefaultData(true))                                                         \
    A(TattributeInt16, DmapFilterSize, "dmapFilterSize", "fs",                                     \
      .input().setNativeDefaultData(1).min(0.0))                                                   \
    A(TattributeInt16, DmapResolution, "dmapResolution", "dr",                                     \
      .input().setNativeDefaultData(512).range(16, 8192))                                          \
    A(TattributeFloat, DmapBias, "dmapBias", "db", .input().setNativeDefaultData(0.001f))          \
    A(TattributeFloat, DmapFocus, "dmapFocus", "df",                                               \
      .input().setNativeDefaultData(90.0f).range(0, 360))                                          \
    A(TattributeFloat, DmapWidthFocus, "dmapWidthFocus", "dw",                                     \
      .input().setNativeDefaultData(100.0f))                                                       \
    A(TattributeBoolean, UseDmapAutoFocus, "useDmapAutoFocus", "af",                               \
      .input().setNativeDefaultData(true))                                                         \
    A(TattributeInt16, VolumeShadowSamples, "volumeShadowSamples", "nv",                           \
      .input().setNativeDefaultData(20).min(1.0))                                                  \
    A(TattributeInt16, FogShadowIntensity, "fogShadowIntensity", "fsi",                            \
      .input().setNativeDefaultData(1).range(1, 10))                                               \
    A(TattributeBoolean, UseDmapAutoClipping, "useDmapAutoClipping", "uc",                         \
      .input().setNativeDefaultData(true))                                                         \
    A(TattributeFloat, DmapNearClipPlane, "dmapNearClipPlane", "nc",                               \
      .input().setNativeDefaultData(0.001f).min(1e-5))                                             \
    A(TattributeFloat, DmapFarClipPlane, "dmapFarClipPlane", "fcp",                                \
      .input().setNativeDefaultData(10000.0f))                                                     \
    A(TattributeBoolean, UseOnlySingleDmap, "useOnlySingleDmap", "us",                             \
      .input().setNativeDefaultData(true))                                                         \
    A(TattributeBoolean, UseXPlusDmap, "useXPlusDmap", "xp", .input().setNativeDefaultData(true))  \
    A(TattributeBoolean, UseXMinusDmap, "useXMinusDmap", "xn",                                     \
      .input().setNativeDefaultData(true))                                                         \
    A(TattributeBoolean, UseYPlusDmap, "useYPlusDmap", "yp", .input().setNativeDefaultData(true))  \
    A(TattributeBoolean, UseYMinusDmap, "useYMinusDmap", "yn",                                     \
      .input().setNativeDefaultData(true))                                                         \
    A(TattributeBoolean, UseZPlusDmap, "useZPlusDmap", "zp", .input().setNativeDefaultData(true))  \
    A(TattributeBoolean, UseZMinusDmap, "useZMinusDmap", "zn",                                     \
      .input().setNativeDefaultData(true))                                                         \
    A(TattributeTyped, DmapUseMacro, "dmapUseMacro", "dc", .disconnect(1))                         \
    A(TattributeTyped, DmapName, "dmapName", "smn", .disconnect(1))                                \
    A(TattributeBoolean, DmapLightName, "dmapLightName", "ul",                                     \
      .input().setNativeDefaultData(true))                                                         \
    A(TattributeBoolean, DmapSceneName, "dmapSceneName", "um",                                     \
      .input().setNativeDefaultData(false))                                                        \
    A(TattributeBoolean, DmapFrameExt, "dmapFrameExt", "uf", .input().setNativeDefaultData(false)) \
    A(TattributeBoolean, WriteDmap, "writeDmap", "ws", .input().setNativeDefaultData(false))       \
    A(TattributeTyped, LastWrittenDmapAnimExtName, "lastWrittenDmapAnimExtName", "lw",             \
      .disconnect(1))                                                                              \
    A(TattributeBoolean, ReceiveShadows, "receiveShadows", "gs",                                   \
      .input().setNativeDefaultData(true))
// A world-space point a light's samples carry (x, y, z children with the
// short names given), filled by the engine.
#define ORVO_LIGHT_WORLD_POINT(A, Name, Long, Short, SX, SY, SZ, D)                                \
    A(Tattribute3Float, Name, Long, Short, .implicitSample().setNativeDefaultData(D, D, D))        \
    ORVO_LIGHT_WORLD_COORDINATE(A, Name, Name##X, Long "X", SX, D)                                 \
    ORVO_LIGHT_WORLD_COORDINATE(A, Name, Name##Y, Long "Y", SY, D)                                 \
    ORVO_LIGHT_WORLD_COORDINATE(A, Name, Name##Z, Long "Z", SZ, D)
#define ORVO_LIGHT_WORLD_COORDINATE(A, Parent, Name, Long, Short, D)                               \
    A(TattributeFloat, Name, Long, Short,                                                          \
      .implicitSample().setNativeDefaultData(float(D)).childOf(Parent))

ORVO_NODE(TnonExtendedLightShape, TnonAmbientLightShape, "nonExtendedLightShapeNode", "NEXT", 2105,
          "kLight", "light", "n_nonExtendedLightShapeNode")

// A depth map setting: its plain value (as the node holds it outside any
// render layer) and, where code writes it, a setter. A setter leaves a plug
// that a connection drives alone and says so by returning false.
#define ORVO_DMAP_BOOL(Get, Set, Attr)                                                             \
    bool Get() const {                                                                             \
        return plainValue(a##Attr) != 0.0;                                                         \
    }                                                                                              \
    bool Set(bool on) {                                                                            \
        return setPlain(a##Attr, &on);                                                             \
    }
#define ORVO_DMAP_INT16(Get, Set, Attr)                                                            \
    int Get() const {                                                                              \
        return int(plainValue(a##Attr));                                                           \
    }                                                                                              \
    bool Set(int value) {                                                                          \
        const int16_t v = int16_t(value);                                                          \
        return setPlain(a##Attr, &v);                                                              \
    }
#define ORVO_DMAP_FLOAT(Get, Set, Attr)                                                            \
    float Get() const {                                                                            \
        return float(plainValue(a##Attr));                                                         \
    }                                                                                              \
    bool Set(float value) {                                                                        \
        return setPlain(a##Attr, &value);                                                          \
    }
#define ORVO_DMAP_STRING(Get, Set, Attr)                                                           \
    Tstring Get() const {                                                                          \
        return plainString(a##Attr);                                                               \
    }                                                                                              \
    bool Set(const Tstring& value) {                                                               \
        return setPlainString(a##Attr, value);                                                     \
    }

class TnonExtendedLightShape : public TdnPattern<TnonExtendedLightShape, TnonAmbientLightShape> {
public:
    ORVO_DMAP_BOOL(useDepthMapShadows, setUseDepthMapShadows, UseDepthMapShadows)
    ORVO_DMAP_BOOL(reuseDepthMap, setReuseDepthMap, ReuseDmap)
    ORVO_DMAP_BOOL(useMidDistDepthMap, setUseMidDistDepthMap, UseMidDistDmap)
    ORVO_DMAP_INT16(depthMapFilterSize, setDepthMapFilterSize, DmapFilterSize)
    ORVO_DMAP_INT16(depthMapResolution, setDepthMapResolution, DmapResolution)
    ORVO_DMAP_FLOAT(depthMapBias, setDepthMapBias, DmapBias)
    ORVO_DMAP_FLOAT(depthMapFocus, setDepthMapFocus, DmapFocus)
    ORVO_DMAP_FLOAT(depthMapWidthFocus, setDepthMapWidthFocus, DmapWidthFocus)
    ORVO_DMAP_BOOL(useDepthMapAutoFocus, setUseDepthMapAutoFocus, UseDmapAutoFocus)
    ORVO_DMAP_BOOL(depthMapAddFrameExt, setDepthMapAddFrameExt, DmapFrameExt)
    ORVO_DMAP_BOOL(useDepthMapAutoClipping, setUseDepthMapAutoClipping, UseDmapAutoClipping)
    ORVO_DMAP_FLOAT(depthMapNearClipPlane, setDepthMapNearClipPlane, DmapNearClipPlane)
    ORVO_DMAP_FLOAT(depthMapFarClipPlane, setDepthMapFarClipPlane, DmapFarClipPlane)
    ORVO_DMAP_BOOL(useOnlySingleDepthMap, setUseOnlySingleDepthMap, UseOnlySingleDmap)
    ORVO_DMAP_BOOL(useXpDepthMap, setUseXpDepthMap, UseXPlusDmap)
    ORVO_DMAP_BOOL(useXnDepthMap, setUseXnDepthMap, UseXMinusDmap)
    ORVO_DMAP_BOOL(useYpDepthMap, setUseYpDepthMap, UseYPlusDmap)
    ORVO_DMAP_BOOL(useYnDepthMap, setUseYnDepthMap, UseYMinusDmap)
    ORVO_DMAP_BOOL(useZpDepthMap, setUseZpDepthMap, UseZPlusDmap)
    ORVO_DMAP_BOOL(useZnDepthMap, setUseZnDepthMap, UseZMinusDmap)
    ORVO_DMAP_BOOL(writeDepthMap, setWriteDepthMap, WriteDmap)
    ORVO_DMAP_STRING(depthMapName, setDepthMapName, DmapName)
    // The command run before a depth map is read.
    ORVO_DMAP_STRING(depthMapReadPreCallback, setDepthMapReadPreCallback, DmapUseMacro)
    ORVO_DMAP_STRING(lastWrittenDepthMapAnimExtName, setLastWrittenDepthMapAnimExtName,
                     LastWrittenDmapAnimExtName)

    ~TnonExtendedLightShape() override;

    // The shadow map this light reads in a render; null until one is made.
    TuseShadowMap* shadowMap() const { return fShadowMap; }
    // A map that the caller keeps and frees (this light frees the ones it
    // makes itself).
    void setShadowMap(TuseShadowMap* map);

    // ---- depth maps, around a render (depth_map_light.cpp)
    // The name of this light's depth files, without a frame or file
    // extension: dmapName in `dir` (unless it is absolute), then the
    // light's name and the scene's, as dmapLightName and dmapSceneName (or
    // `forceScene`) ask. Returns 0.
    int getDepthMapName(const Tstring& dir, const Tstring& sceneName, bool forceScene,
                        Tstring& out) const;
    // Before the frame: a new shadow map for `setup`, unless `keep` and the
    // light has one. With `files`, each face is read from its file; the
    // result of each readZmap goes to `readResults` (per face) when given.
    TuseShadowMap* prepareShadowMap(TrenderCache* cache, const TdepthMapSetup& setup, bool keep,
                                    const TdepthMapFiles* files, int* readResults);
    // Once the map has its buffers: makes each face of the setup. A map that
    // ends with no face is deleted: a light without depth has no map. The
    // number of maps made.
    int createShadowMap(TrenderCache* cache);
    void deleteShadowMap();
    // useDepthMapShadows as shadingNodeOnDemand found it.
    bool cachedUseDepthMapShadows() const { return fUseDepthMapShadows != 0; }

    void shadingNodeOnDemand(Tplug& plug, TdataBlock& block) override;
    // Keeps depth map and ray traced shadows exclusive.
    bool setCachedValue(const Tplug& plug, const TdataHandle& value) override;
    bool affectsShadows(const Tattribute* attribute) const override;

protected:
    // Ray traced shadows toward a direction rather than a point: two stages,
    // as for a point, each ray within `angleDegrees` of `direction`.
    bool computeRtShadowDir(LightBatch& b, const T3Float& direction, float angleDegrees,
                            Tspectrum* reflectance);
    void computeDirLightShadowColors(LightBatch& b, const T3Float& direction, float angleDegrees,
                                     unsigned rays, const uint8_t* mask, Tspectrum* reflectance,
                                     uint8_t* penumbra);

    // The depth map branch of the pipeline: with a shadow map, the cached
    // useDepthMapShadows and a batch that may be shadowed, each sample's
    // fraction mixes its colour toward shadowColor and scales I.
    void depthMapShadows(LightBatch& b) override;
    // The fraction of each sample the shadow map finds; false when there is
    // none to be had: the shadow map's lookup at each sample's point.
    virtual bool sampleDepthMapShadows(LightBatch& b, float* fractions);

    float rayShadowRadius(LightBatch& b) const override;
    const Tattribute* receiveShadowsAttribute() const override { return &aReceiveShadows; }

    // ---- light fog: the surfaces of the node connected to the light's fog
    // plug are the fog the light shines through. A fog sample stands for
    // the segment its ray crosses (from the near to the far point, world
    // space) rather than for a point on a surface.
    virtual const Tattribute* fogGeometryAttribute() const { return nullptr; }
    virtual const Tattribute* fogNearAttribute() const { return nullptr; }
    virtual const Tattribute* fogFarAttribute() const { return nullptr; }
    // 1 in `fog` for each sample of the light's fog object; false when
    // there is none in the batch.
    bool markFogSamples(LightBatch& b, uint8_t* fog) const;
    // The ends of sample i's fog segment, through `to` (from world space).
    void fogSegment(LightBatch& b, unsigned i, const T4dFltMatrix& to, T3Float& near,
                    T3Float& far) const;
    // Depth map lookups for a point light's fog carry a flag (objectType 2).
    virtual bool pointLightFogLookup(LightBatch&) const { return false; }
    // What the light's fog asks of the samples: with a fog object and
    // depth map shadows the ray instance (fog is marched from it); without
    // a fog object neither the segment's far end nor the object's type.
    void analyseFog(TbitField64& fields);
    // The node whose surfaces are the light's fog, as samples name their
    // object; null without one.
    const void* fFogObject = nullptr;
    bool refreshesViewportLight(const Tattribute* attribute) const override;

    // A setting as the node holds it outside any render layer.
    double plainValue(const Tattribute& a) const;

private:
    Tstring plainString(const Tattribute& a) const;
    bool setPlain(const Tattribute& a, const void* value);
    bool setPlainString(const Tattribute& a, const Tstring& value);
    // Turns a boolean input off, unless a connection drives it.
    void turnOff(const Tattribute& a);

    TuseShadowMap* fShadowMap = nullptr;
    bool fOwnsShadowMap = false;
    // The faces prepareShadowMap was given, for createShadowMap.
    int fMapFaces[6] = {};
    int fMapFaceCount = 0;
    uint8_t fUseDepthMapShadows = 0;
};

#undef ORVO_DMAP_BOOL
#undef ORVO_DMAP_INT16
#undef ORVO_DMAP_FLOAT
#undef ORVO_DMAP_STRING
