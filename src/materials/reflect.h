#pragma once

// reflect: lambert with a mirror and a highlight. The frame every specular
// material shares: trace the mirror ray (the colour it brings back lands in
// outColor), run lambert's diffuse, then add the model's highlight and the
// reflection to outColor and outGlowColor. The highlight models (phong,
// phongE, blinn, anisotropic, hairTubeShader) derive from it and supply
// the highlight; reflect on its own has none: its highlight is the
// reflection alone.

#include "host/scene/matrix.h"
#include "materials/lambert.h"
#include "shading/light_blind_data.h"

#define ORVO_SCHEMA_TdnReflect(A, C2, C3)                                                          \
    A(TattributeInt16, ReflectedRayDepthLimit, "reflectionLimit", "fll",                           \
      .input().setNativeDefaultData(1))                                                            \
    ORVO_LAMBERT_C3(A, SpecularColor, "specularColor", "sc", R, G, B, "sr", "sg", "sb", 0.5f,      \
                    0.5f, 0.5f, .inputParent().colour(), .input())                                 \
    A(TattributeFloat, Reflectivity, "reflectivity", "rfl", .input().setNativeDefaultData(0.5f))   \
    ORVO_LAMBERT_C3(A, ReflectedColor, "reflectedColor", "rc", R, G, B, "rr", "rg", "rb", 0.0f,    \
                    0.0f, 0.0f, .inputParent().colour(), .input())                                 \
    ORVO_LAMBERT_C3(A, TriangleNormalCamera, "triangleNormalCamera", "tnc", X, Y, Z, "tnx", "tny", \
                    "tnz", 0.0f, 1.0f, 0.0f, .implicitSample(), .implicitSample())                 \
    A(TattributeFloat, ReflectionSpecular, "reflectionSpecularity", "rsp",                         \
      .input().setNativeDefaultData(1.0f).range(0, 1))

// No API type of its own: to the API a reflect is a lambert.
ORVO_NODE(TdnReflect, TdnLambert, "reflect", "RFLC", 369, "kLambert",
          "shader/surface:drawdb/shader/surface/reflect", "n_reflect")

class TdnReflect : public TdnPattern<TdnReflect, TdnLambert> {
public:
    // outColor and outGlowColor (and outMatteOpacity in the shadow pass,
    // where only the diffuse runs) come from the frame; outTransparency and
    // outMatteOpacity otherwise from lambert's transmission.
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                           unsigned count) override;

    void shadingNodeInit(TframeSampleData* frame) override;
    void shadingNodeOnDemand(Tplug& plug, TdataBlock& block) override;
    void endOfRender() override { TdnLambert::endOfRender(); }
    // lambert's answer, and reflects while reflectivity can be above 0 and
    // the reflection limit lets a first mirror ray go.
    unsigned transparencyOptions() override;

    // v / |v|, or v itself when it has no length.
    static T3Float normalised(const T3Float& v) {
        const float length = OrvoLength(v);
        return length > 0.0f ? v * (1.0f / length) : v;
    }

    // specularColor as it evaluates now, for the viewport.
    T3Float getSpecularColor();

    // Whether reflectedColor (or a child) is the destination of a
    // connection: what a sample shows where its mirror ray is not traced.
    bool reflectedColorDriven() const { return fReflectedColorDriven; }

protected:
    // Leaves in outColor, for each sample, what its mirror ray sees: the
    // traced colour, or reflectedColor where that is driven, or the
    // background; without a ray sampler reflectedColor where driven, else
    // black. At most a batch (64 samples) a call.
    void computeReflection(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count);

    // The model's highlight S of each sample: the reflection term from
    // `mirror` (what computeReflection left), the light loop (except in
    // kRenderPassDiffuse, which keeps the reflection and drops the
    // highlights), and specularColor. Called after the diffuse ran.
    virtual void highlight(TdataBlock& block, unsigned first, unsigned count, int pass,
                           const T3Float* mirror, T3Float* S);

    // The light-independent part of one sample, read once, and the walk of
    // its specular lights: for each light record with lightSpecular set, L
    // and att (from the light's blind data when there is one, else the
    // record's direction and 1), then the model's value v = value(L, record)
    // (return false to add nothing). Rays that were reflected or refracted
    // (depth above 0) scale v by reflectionSpecularity and skip the light
    // when it is 0. Adds intensity * att * v to `sum`.
    struct SpecularSample {
        T3Float point, normal, rayDirection;
        short rayDepth;
        float reflectionSpecularity;
    };
    // The inputs of SpecularSample for a run of samples.
    struct SpecularInputs {
        TvectorDataHandle point, normal, rayDirection, rayDepth, reflectionSpecularity, lights;
        SpecularInputs(TdataBlock& block, unsigned first, unsigned count);
        SpecularSample at(int e) const;
    };
    template <class Value>
    static void addSpecularLights(const TdataHandle& lights, const SpecularSample& s, T3Float& sum,
                                  Value&& value);

    // Multiplies the S of each sample by specularColor.
    void applySpecularColor(TdataBlock& block, unsigned first, unsigned count, T3Float* S);
    // Sets S = mirror * reflectivity.
    void reflectionTerm(TdataBlock& block, unsigned first, unsigned count, const T3Float* mirror,
                        T3Float* S);

    // R = normalise(I - 2 dot(N, I) N): the mirror direction of the view.
    static T3Float mirrorDirection(const T3Float& normal, const T3Float& rayDirection);

private:
    void computeColourChunk(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count,
                            int pass);
    void refreshReflectedColorDriven();

    bool fReflectedColorDriven = false;
};

template <class Value>
void TdnReflect::addSpecularLights(const TdataHandle& lights, const SpecularSample& s, T3Float& sum,
                                   Value&& value) {
    if (s.rayDepth != 0 && s.reflectionSpecularity <= 0.0f)
        return; // a reflected or refracted ray sees no highlight at all
    forEachLight(lights, [&](const TlightData& record) {
        if (!record.specular)
            return;
        T3Float L{record.direction[0], record.direction[1], record.direction[2]};
        float att = 1.0f;
        if (auto* blind = static_cast<TlightBlindData*>(record.blindData)) {
            // The arguments go in the order the light's interface names
            // them for this call: the normal, then the view direction.
            L = blind->maxPhongSpecularDirection(L, s.point, s.normal, s.rayDirection, nullptr);
            att = blind->lightAttenuation(s.point, s.normal, false);
        }
        float v = 0.0f;
        if (!value(L, record, v))
            return;
        if (s.rayDepth != 0)
            v *= s.reflectionSpecularity;
        const float k = att * v;
        sum.x += record.intensity[0] * k;
        sum.y += record.intensity[1] * k;
        sum.z += record.intensity[2] * k;
    });
}
