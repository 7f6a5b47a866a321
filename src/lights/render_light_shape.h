#pragma once

// The render model's lights. A light is a DAG shape of the host and a
// shading node: for a batch of samples it answers one question, its
// `lightData` output, a record per sample of where the light comes from,
// how much of it arrives and how it may be used. Every light follows one
// pipeline (vectorComputePlug below); the lights differ in a few hooks:
// their texture projection, the intensity and direction per sample, and how
// their shadow rays are aimed.
//
//   TrenderLightShape          the pipeline, ray traced shadows of a point
//     TnonAmbientLightShape    decay, emitDiffuse / emitSpecular
//       TnonExtendedLightShape depth map settings, directional shadow rays
//         TdirectionalLightShape
//     TambientLightShape

#include <atomic>
#include <cstdint>

#include "host/node_pattern.h"
#include "host/scene/light_shape.h"
#include "lights/light_vectors.h"
#include "shading/light_blind_data.h"
#include "shading/ray_sampler.h"
#include "shading/render_thread.h"

class TDNshadingEngine;
struct TSEnodeDescription;

// How the rays of one stage of shadow rays are aimed: the direction and
// reach of rays `first` to `first + count - 1` of sample `sample`, `rays[k]`
// being ray `first + k`. Origin, depth, instance, ids and medium are filled
// before. A call takes a sample's run of rays, so that what they share is
// read once.
class TshadowRayAim {
public:
    virtual void aim(unsigned sample, unsigned first, unsigned count,
                     TgenericRay* const* rays) const = 0;

protected:
    ~TshadowRayAim() = default;
};

#define ORVO_SCHEMA_TrenderLightShape(A, C2, C3)                                                   \
    A(TattributeInt32, RayInstance, "rayInstance", "ryi", .implicitSample())
ORVO_NODE(TrenderLightShape, TlightShape, "renderLight", "RLSN", 2105, "kLight", "light",
          "n_renderLight")

class TrenderLightShape : public TdnPattern<TrenderLightShape, TlightShape>,
                          public TshadingNode,
                          public TlightBlindData {
public:
    // Both bases answer sTypeof; the node's is the one of the pattern.
    using TdnPattern<TrenderLightShape, TlightShape>::sTypeof;

    // A light lights from one point or one direction unless a subclass
    // integrates over an extent (and says so).
    TrenderLightShape() { setCosineOnly(true); }

    // Bits of the node's shading flag set.
    static constexpr unsigned kRebuildGlLightFlag = 55; // the viewport's light is stale
    static constexpr unsigned kInputNetworkFlag = 56;   // some input has a connection
    bool shadingFlag(unsigned bit) const;
    void setShadingFlag(unsigned bit, bool on);

    // ---- dependency node
    // The scalar entry, used by graph evaluation outside a render: the
    // frame's preparation (input network, matrices) is made afresh first.
    bool computePlug(const Tplug& plug, TdataBlock& block) override;
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                           unsigned count) override;
    void setDirty(TmsgDirty& msg) override;
    bool setCachedValue(const Tplug& plug, const TdataHandle& value) override;
    void debug(TdebugOutput& out, const TdebugDetails& details) const override;

    // ---- shading node
    // Without ray tracing the ray fields (rayDepth, rayInstance, primitiveId)
    // are of no use to a light.
    void analyse(TDNshadingEngine* engine, TSEnodeDescription* description, void* option,
                 TbitField64& fields) override;
    // Once a frame: whether an input has a connection (flag 56), and the
    // on-demand members made again at their first use in the frame.
    void shadingNodeInit(TframeSampleData* frame) override;
    // Matrices from the first DAG path and the block, position and direction
    // in eye space.
    void shadingNodeOnDemand(Tplug& plug, TdataBlock& block) override;

    // ---- what materials ask through a record's lightBlindData, which holds
    // the light as a TlightBlindData* (cast the void* back to exactly that).
    // The material-facing forms take plain vectors and forward to the
    // light's own, which light types override.
    float integrateLambertianReflectance(const T3Float& lightDirection, const T3Float& point,
                                         const T3Float& normal, bool flag) final {
        return integrateLambertianReflectance(T3dFltVector(lightDirection),
                                              T4dFltPoint(point.x, point.y, point.z),
                                              T3dFltVector(normal), flag);
    }
    T3Float maxPhongSpecularDirection(const T3Float& lightDirection, const T3Float& point,
                                      const T3Float& reflected, const T3Float& normal,
                                      const T3Float* hint) final {
        const T3dFltVector h = hint ? T3dFltVector(*hint) : T3dFltVector();
        return maxPhongSpecularDirection(
            T3dFltVector(lightDirection), T4dFltPoint(point.x, point.y, point.z),
            T3dFltVector(reflected), T3dFltVector(normal), hint ? &h : nullptr);
    }
    float lightAttenuation(const T3Float& point, const T3Float& direction, bool flag) final {
        return lightAttenuation(T4dFltPoint(point.x, point.y, point.z), T3dFltVector(direction),
                                flag);
    }
    float hemisphereCoverage(const T3Float& lightDirection, const T3Float& point,
                             const T3Float& direction, bool flag) final {
        return hemisphereCoverage(T3dFltVector(lightDirection),
                                  T4dFltPoint(point.x, point.y, point.z), T3dFltVector(direction),
                                  flag);
    }
    // What a record's lightBlindData holds for this light.
    void* blindData() { return static_cast<TlightBlindData*>(this); }

    virtual float integrateLambertianReflectance(const T3dFltVector& lightDirection,
                                                 const T4dFltPoint& point,
                                                 const T3dFltVector& normal, bool flag);
    virtual T3dFltVector maxPhongSpecularDirection(const T3dFltVector& lightDirection,
                                                   const T4dFltPoint& point,
                                                   const T3dFltVector& reflected,
                                                   const T3dFltVector& normal,
                                                   const T3dFltVector* hint);
    virtual float lightAttenuation(const T4dFltPoint& point, const T3dFltVector& normal, bool flag);
    virtual float hemisphereCoverage(const T3dFltVector& lightDirection, const T4dFltPoint& point,
                                     const T3dFltVector& normal, bool flag);

    // Distance from the light's eye-space position to `point`.
    float lightDistance(const T4dFltPoint& point) const;
    // The direction kept by shadingNodeOnDemand (eye space).
    const T3dFltVector& lightDirection() const { return fDirection; }
    const T3Float& lightPosition() const { return fPosition; }
    const T4dFltMatrix& localToWorldMatrix() const { return fLocalToWorld; }
    const T4dFltMatrix& worldToLocalMatrix() const { return fWorldToLocal; }
    const T4dFltMatrix& eyeToWorldMatrix() const { return fEyeToWorld; }
    const T4dFltMatrix& worldToEyeMatrix() const { return fWorldToEye; }

    // The members, as text, for debug dumps.
    virtual void debugMembers(TdebugOutput& out) const;

    // May the samples of a batch that starts at element `first` be shadowed?
    // Samples of objectType 4 only when bit 1 of their renderState is set,
    // and no sample in render passes 1 to 4, nor when receiveShadows is off.
    bool batchGetsShadows(TdataBlock& block, unsigned first) const;

    // `lightData` or one of its fields.
    static bool isLightDataPlug(const Tplug& plug);
    // The luminance weights of a light's pre-shadow intensity.
    static float luminance(const T3Float& c) { return OrvoLuminance(c); }

    // Whether the application is making an interactive preview file.
    static void setPreviewFileMode(bool on);
    static bool previewFileMode();

protected:
    // The scratch of one batch, all of it on the compute's stack.
    struct LightBatch {
        TdataBlock& block;
        unsigned first;
        unsigned count;
        TvectorDataHandle out;         // lightData
        TvectorDataHandle pointCamera; // eye space
        T3Float* direction;            // to the light, eye space
        float* scalar;                 // the intensity I with decay, cone and so on
        float* distance;               // to the light's position
        T3Float* colour;               // the light colour
        uint8_t* skip;                 // 1: the sample gets no light at all
        T3Float* tint = nullptr;       // a colour per sample the light's colour is multiplied by
        TraySampler* sampler = nullptr;
        bool shadows = false; // the batch may be shadowed

        TlightData& record(unsigned i) const { return *out[int(i)].asLightData(); }
        // Inline, as the pipeline's loops ask a sample at a time.
        T3Float point(unsigned i) const {
            const float* p = pointCamera[int(i)].asFloat3();
            return {p[0], p[1], p[2]};
        }
        // `color` of sample i, times its tint when the light has one.
        T3Float tinted(const TvectorDataHandle& color, unsigned i) const {
            const float* c = color[int(i)].asFloat3();
            const T3Float rgb{c[0], c[1], c[2]};
            return tint ? T3Float{rgb.x * tint[i].x, rgb.y * tint[i].y, rgb.z * tint[i].z} : rgb;
        }
    };

    // The pipeline: texture coordinates, intensity and direction, pre-shadow
    // intensity, light colour, depth map and ray traced shadows, the record.
    virtual void computeLightData(LightBatch& b);

    // ---- hooks of the pipeline
    // Samples that get no light (before anything else is done).
    virtual void markSkipped(LightBatch&) {}
    // Texture coordinates for the maps on the light's inputs, for samples not
    // skipped; false when the light has no projection.
    virtual bool projectTextureCoordinates(LightBatch&, T2Float*) { return false; }
    // The scalar intensity and the direction of each sample. The base is a
    // point at the light's position: the unit direction to it, the distance,
    // and `intensity`.
    virtual void illuminate(LightBatch& b);
    // Depth map shadows: none in the base.
    virtual void depthMapShadows(LightBatch&) {}
    // Ray traced shadows into `reflectance` (white: unshadowed); false when
    // no ray was needed. The base aims at a sphere of rayShadowRadius.
    virtual bool rayTracedShadows(LightBatch& b, Tspectrum* reflectance);
    virtual float rayShadowRadius(LightBatch&) const { return 0.0f; }
    // The record's diffuse and specular flags (1 each in the base).
    virtual void readEmitFlags(LightBatch& b, uint8_t* diffuse, uint8_t* specular);
    // The attributes of the shadow eligibility that some lights have.
    virtual const Tattribute* objectTypeAttribute() const { return nullptr; }
    virtual const Tattribute* receiveShadowsAttribute() const { return nullptr; }
    // A change of this attribute means the viewport light must be rebuilt.
    virtual bool refreshesViewportLight(const Tattribute* attribute) const;

    // The first thing a light does for a batch, before its intensity and
    // direction, so that maps on its inputs can be read: texture coordinates
    // written into the block
    // (uCoord, vCoord, uvFilterSize 0.001 and infoBits bit 3), then the
    // block's running element back at the batch start.
    void writeTextureCoordinates(LightBatch& b);

    // ---- ray traced shadows (light_shadows.cpp)
    // Two adaptive stages toward a sphere of `radius` at the light's
    // position: numShadowSamples rays a sample, then four times as many in
    // the penumbra, mixed 0.2 and 0.8. False when no sample asked for rays.
    bool computeRtShadowPt(LightBatch& b, float radius, Tspectrum* reflectance);
    // One stage for a point source: `rays` rays a sample toward the sphere,
    // for samples with `mask` set; sets `penumbra` on samples some but not
    // all of whose rays were blocked, and writes the record's shadow
    // fraction.
    virtual void computeShadowColors(LightBatch& b, float radius, unsigned rays,
                                     const uint8_t* mask, Tspectrum* reflectance,
                                     uint8_t* penumbra);
    // Which samples cast rays in a stage: those with `mask` set, below the
    // ray depth limit, that the light can see (canSee, in its space). Each
    // sample's point in the light's space goes to `local` when given.
    void shadowCasters(LightBatch& b, const uint8_t* mask, uint8_t* casts, T3Float* local);
    // Mixes each sample's colour toward shadowColor by its reflectance;
    // samples with a non-zero skip byte (when given) are left alone.
    void interpolateLightAndShadow(LightBatch& b, T3Float* colours, const Tspectrum* reflectance,
                                   const uint8_t* skip);

    using ShadowRayAim = TshadowRayAim;
    // The surface ids a stage's rays carry when they are read once for the
    // whole batch rather than sample by sample.
    struct BatchIds {
        void* objectId = nullptr;
        int32_t primitiveId = 0;
    };
    // Fills, traces (one traceShadowRays call, unless the batch's rays don't
    // fit the stack budget) and gathers one stage of shadow rays. Each ray
    // carries its sample's ids, or `ids` when given.
    void traceShadowStage(LightBatch& b, unsigned rays, const uint8_t* casts,
                          const ShadowRayAim& aim, Tspectrum* reflectance, uint8_t* penumbra,
                          const BatchIds* ids = nullptr);
    // The two stages around a stage function, shared by the point and
    // directional forms.
    template <class Stage>
    bool twoStageShadows(LightBatch& b, Tspectrum* reflectance, Stage&& stage);

    // An integer input of any integral attribute class.
    static int integerValue(const TdataHandle& h);
    // The integer inputs of `count` samples, the attribute's class looked
    // at once rather than a sample.
    static void integerValues(const TvectorDataHandle& h, unsigned count, int* out);

    T3Float fPosition{};
    T4dFltMatrix fLocalToWorld;
    T4dFltMatrix fWorldToLocal;
    T4dFltMatrix fEyeToWorld;
    T4dFltMatrix fWorldToEye;
    T3dFltVector fDirection{};

private:
    // Flag 56: some plug other than a message has a source.
    bool hasInputNetwork() const;

    std::atomic<uint64_t> fShadingFlags[2] = {0, 0};
};
