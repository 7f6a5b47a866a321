#pragma once

// lambert: the diffuse material, and the base of the specular materials. It
// holds the attributes every classic material shares, the loop over the
// lights the shading group places in lightDataArray, translucence, glow and
// matte outputs, and refraction through the ray sampler.

#include "framework/node_pattern.h"
#include "materials/refraction.h"
#include "shading/ray_options.h"
#include "shading/ray_sampler.h"
#include "shading/render_thread.h"

// A colour or vector compound whose children's short names are not the
// parent's with a suffix (ambientColor "ambc" has children "acr", "acg",
// "acb"): the parent, then its three children, each with its own default.
#define ORVO_LAMBERT_C3(A, Name, Long, Short, S1, S2, S3, s1, s2, s3, d1, d2, d3, PSetup, CSetup)  \
    A(Tattribute3Float, Name, Long, Short, PSetup)                                                 \
    A(TattributeFloat, Name##S1, Long #S1, s1, CSetup.setNativeDefaultData(d1).childOf(Name))      \
    A(TattributeFloat, Name##S2, Long #S2, s2, CSetup.setNativeDefaultData(d2).childOf(Name))      \
    A(TattributeFloat, Name##S3, Long #S3, s3, CSetup.setNativeDefaultData(d3).childOf(Name))

#define ORVO_SCHEMA_TdnLambert(A, C2, C3)                                                          \
    A(TattributeAddr, ObjectId, "objectId", "oi", .implicitSample())                               \
    A(TattributeInt32, PrimitiveId, "primitiveId", "pi",                                           \
      .implicitSample().setNativeDefaultData(0))                                                   \
    A(TattributeAddr, RaySampler, "raySampler", "rtr", .implicitSample())                          \
    A(TattributeInt16, RayDepth, "rayDepth", "rd", .implicitSample().setNativeDefaultData(0))      \
    A(TattributeInt32, RayInstance, "rayInstance", "ryi",                                          \
      .implicitSample().setNativeDefaultData(0))                                                   \
    A(TattributeInt16, RefractedRayDepthLimit, "refractionLimit", "rdl",                           \
      .input().setNativeDefaultData(6).min(0).softMax(10))                                         \
    A(TattributeFloat, RefractiveIndex, "refractiveIndex", "rfi",                                  \
      .input().setNativeDefaultData(1.0f).min(0.01).softMax(3))                                    \
    A(TattributeFloat, MediumRefractiveIndex, "mediumRefractiveIndex", "mrfi",                     \
      .implicitSample().setNativeDefaultData(1.0f))                                                \
    A(TattributeBoolean, RtRefractedColor, "refractions", "rfc",                                   \
      .input().setNativeDefaultData(false))                                                        \
    A(TattributeFloat, DiffuseCoeff, "diffuse", "dc",                                              \
      .input().setNativeDefaultData(0.8f).min(0).softMax(1))                                       \
    ORVO_LAMBERT_C3(A, RayDirection, "rayDirection", "rad", X, Y, Z, "rdx", "rdy", "rdz", 0.0f,    \
                    0.0f, 1.0f, .implicitSample(), .implicitSample())                              \
    C3(Tattribute3Float, Color, "color", "c", ORVO_RGB,                                            \
       .inputParent().colour().setNativeDefaultData(0.5f, 0.5f, 0.5f), .input())                   \
    C3(Tattribute3Float, Transparency, "transparency", "it", ORVO_RGB,                             \
       .inputParent().colour().setNativeDefaultData(0, 0, 0), .input())                            \
    ORVO_LAMBERT_C3(A, AmbientColor, "ambientColor", "ambc", R, G, B, "acr", "acg", "acb", 0.0f,   \
                    0.0f, 0.0f, .inputParent().colour(), .input())                                 \
    ORVO_LAMBERT_C3(A, Incandescence, "incandescence", "ic", R, G, B, "ir", "ig", "ib", 0.0f,      \
                    0.0f, 0.0f, .inputParent().colour(), .input())                                 \
    A(TattributeFloat, TranslucenceCoeff, "translucence", "tc",                                    \
      .input().setNativeDefaultData(0.0f).softRange(0, 1))                                         \
    A(TattributeFloat, TranslucenceFocus, "translucenceFocus", "tcf",                              \
      .input().setNativeDefaultData(0.5f).range(0, 1))                                             \
    A(TattributeFloat, TranslucenceDepth, "translucenceDepth", "trsd",                             \
      .input().softRange(0, 5).setNativeDefaultData(TdnLambert::translucenceDepthDefault()))       \
    A(TattributeFloat, OpacityDepth, "opacityDepth", "opad",                                       \
      .input().setNativeDefaultData(0.0f).softRange(0, 5))                                         \
    A(TattributeFloat, GlowIntensity, "glowIntensity", "gi",                                       \
      .input().setNativeDefaultData(0.0f).softRange(0, 1))                                         \
    A(TattributeBoolean, VROverwriteDefaults, "vrOverwriteDefaults", "vrod",                       \
      .input().setNativeDefaultData(false))                                                        \
    A(TattributeEnumOf, VRFillObject, "vrFillObject", "vrfo",                                      \
      .input()                                                                                     \
          .ORVO_FIELD(kDefaultFill, "Default Fill")                                                \
          .ORVO_FIELD(kSingleColor, "Single Color")                                                \
          .ORVO_FIELD(kTwoColor, "Two Color")                                                      \
          .ORVO_FIELD(kFourColor, "Four Color")                                                    \
          .ORVO_FIELD(kFullColor, "Full Color")                                                    \
          .ORVO_FIELD(kAverageColor, "Average Color")                                              \
          .ORVO_FIELD(kAreaGradient, "Area Gradient")                                              \
          .ORVO_FIELD(kMeshGradient, "Mesh Gradient")                                              \
          .ORVO_FIELD(kNoFill, "No Fill")                                                          \
          .setNativeDefaultData(0))                                                                \
    A(TattributeDouble, VREdgeWeight, "vrEdgeWeight", "vrew", .input().setNativeDefaultData(0.0))  \
    ORVO_LAMBERT_C3(A, VREdgeColor, "vrEdgeColor", "vrec", R, G, B, "vecr", "vecg", "vecb", 0.5f,  \
                    0.5f, 0.5f, .inputParent().colour(), .input())                                 \
    A(TattributeEnumOf, VREdgeStyle, "vrEdgeStyle", "vres",                                        \
      .input()                                                                                     \
          .ORVO_FIELD(kDefaultEdge, "Default")                                                     \
          .ORVO_FIELD(kOutline, "Outlines")                                                        \
          .ORVO_FIELD(kEntireMesh, "Entire Mesh")                                                  \
          .ORVO_FIELD(kNoEdges, "No Edges")                                                        \
          .setNativeDefaultData(0))                                                                \
    A(TattributeInt32, VREdgePriority, "vrEdgePriority", "vrep",                                   \
      .input().setNativeDefaultData(0).min(0))                                                     \
    A(TattributeBoolean, VRHiddenEdges, "vrHiddenEdges", "vrhe",                                   \
      .input().setNativeDefaultData(false))                                                        \
    A(TattributeBoolean, VRHiddenEdgesOnTransparent, "vrHiddenEdgesOnTransparent", "vrht",         \
      .input().setNativeDefaultData(false))                                                        \
    A(TattributeBoolean, VROutlinesAtIntersections, "vrOutlinesAtIntersections", "vroi",           \
      .input().setNativeDefaultData(true))                                                         \
    A(TattributeFloat, MaterialAlphaGain, "materialAlphaGain", "maga",                             \
      .input().setNativeDefaultData(1.0f).softRange(0, 1))                                         \
    A(TattributeBoolean, HideSource, "hideSource", "hs", .input().setNativeDefaultData(false))     \
    A(TattributeFloat, SurfaceThickness, "surfaceThickness", "thik",                               \
      .input().setNativeDefaultData(0.0f).min(0).softMax(1))                                       \
    A(TattributeFloat, FakeRefractionCaustics, "shadowAttenuation", "fakc",                        \
      .input().setNativeDefaultData(0.5f).range(0, 1))                                             \
    A(TattributeFloat, TransparencyDepth, "transparencyDepth", "trdp",                             \
      .input().setNativeDefaultData(0.0f).min(0).softMax(10))                                      \
    A(TattributeFloat, LightAbsorbance, "lightAbsorbance", "absb",                                 \
      .input().setNativeDefaultData(0.0f).min(0).softMax(10))                                      \
    A(TattributeBoolean, ChromaticAberration, "chromaticAberration", "crab",                       \
      .input().setNativeDefaultData(false))                                                        \
    C3(Tattribute3Float, OutColor, "outColor", "oc", ORVO_RGB,                                     \
       .output().colour().setNativeDefaultData(0, 0, 0), .output())                                \
    C3(Tattribute3Float, OutTransparency, "outTransparency", "ot", ORVO_RGB,                       \
       .output().colour().setNativeDefaultData(0, 0, 0), .output())                                \
    ORVO_LAMBERT_C3(A, OutGlowColor, "outGlowColor", "ogc", R, G, B, "ogr", "ogg", "ogb", 0.0f,    \
                    0.0f, 0.0f, .output().colour(), .output())                                     \
    ORVO_LAMBERT_C3(A, PointCamera, "pointCamera", "pc", X, Y, Z, "px", "py", "pz", 1.0f, 1.0f,    \
                    1.0f, .implicitSample(), .implicitSample())                                    \
    C3(Tattribute3Float, NormalCamera, "normalCamera", "n", ORVO_XYZ,                              \
       .implicitSample().setNativeDefaultData(1, 1, 1), .implicitSample())                         \
    A(TattributeArrayOf<TattributeLightData>, LightData, "lightDataArray", "ltd",                  \
      .implicitLight();                                                                            \
      TdnLambert::setMaterialLightDefaults(LightData))                                             \
    A(TattributeEnumOf, MatteOpacityMode, "matteOpacityMode", "mom",                               \
      .input()                                                                                     \
          .ORVO_FIELD(kBlackHoleM, "Black Hole")                                                   \
          .ORVO_FIELD(kSolidMatte, "Solid Matte")                                                  \
          .ORVO_FIELD(kOpacityGain, "Opacity Gain")                                                \
          .setNativeDefaultData(2))                                                                \
    A(TattributeFloat, MatteOpacityGain, "matteOpacity", "mog",                                    \
      .input().setNativeDefaultData(1.0f).softRange(0, 1))                                         \
    C3(Tattribute3Float, OutMatteOpacity, "outMatteOpacity", "omo", ORVO_RGB,                      \
       .output().setNativeDefaultData(0, 0, 0), .output())                                         \
    ORVO_LAMBERT_C3(A, HardwareShader, "hardwareShader", "hws", R, G, B, "hwr", "hwg", "hwb",      \
                    0.0f, 0.0f, 0.0f, .inputParent().colour(), .input())

// What refracted rays and the transmission read, by the names a classic
// material's descriptor gives them (for dependency lists).
#define ORVO_MATERIAL_RAY_INPUTS                                                                   \
    &ObjectId, &PrimitiveId, &RaySampler, &RayDepth, &RayInstance, &RefractedRayDepthLimit,        \
        &RefractiveIndex, &MediumRefractiveIndex, &RtRefractedColor, &RayDirection, &PointCamera,  \
        &NormalCamera, &Transparency, &HideSource, &SurfaceThickness, &ChromaticAberration,        \
        &FakeRefractionCaustics

class TdnLambert;
template <>
struct TdnKernel<TdnLambert> {
    enum eMatteOpacityMode : int16_t { kBlackHoleM = 0, kSolidMatte = 1, kOpacityGain = 2 };
    enum eVRFillObject : int16_t {
        kDefaultFill = 0,
        kSingleColor = 1,
        kTwoColor = 2,
        kFourColor = 3,
        kFullColor = 4,
        kAverageColor = 5,
        kAreaGradient = 6,
        kMeshGradient = 7,
        kNoFill = 8,
    };
    enum eVREdgeStyle : int16_t { kDefaultEdge = 0, kOutline = 1, kEntireMesh = 2, kNoEdges = 3 };
};

ORVO_NODE(TdnLambert, TshadingDependNode, "lambert", "RLAM", 369, "kLambert",
          "shader/surface:drawdb/shader/surface/lambert", "n_lambert")

class TdnLambert : public TdnPattern<TdnLambert, TshadingDependNode> {
public:
    TdnLambert();

    // The scalar entry runs the batch compute over every element of the
    // block: a material is always computed a batch at a time.
    bool computePlug(const Tplug& plug, TdataBlock& block) override;
    // outColor and outGlowColor (and outMatteOpacity in the shadow pass)
    // come from the lighting; outTransparency and outMatteOpacity otherwise
    // from the transmission.
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                           unsigned count) override;

    // ---- shading network
    void analyse(TDNshadingEngine* engine, TSEnodeDescription* description, void* option,
                 TbitField64& fields) override;
    // The 4th argument is the analysis' description of this node, when the
    // engine passes it: TDNshadingEngine::sampleDependent needs it to say
    // whether a connected input varies (without it every connection counts
    // as varying).
    void modifyAffects(const Tattribute* attribute, TbitFieldFixedN& affects,
                       TDNshadingEngine* engine, void* description) override;
    void shadingNodeInit(TframeSampleData* frame) override;
    void endOfRender() override;
    void groupedAttrs(const Tattribute* attribute, TattributeArray& out) override;
    // Refracts while `refractions` is on.
    unsigned transparencyOptions() override;

    // ---- plug values for the viewport and material info (through the
    // connections, as they evaluate now)
    T3Float getColor();
    float getDiffuseCoeff();
    T3Float getIncandescence();
    T3Float getTransparency();
    // glowIntensity; kGlowFromNetwork instead of 0 when the plug is
    // connected, since the network may well glow.
    float getGlowIntensity();

    // The cut-off below which translucence doesn't reach, as set by the last
    // shadingNodeInit (the default depth's until then).
    float translucenceCutoff() const { return fTranslucenceCutoff; }

    static constexpr float kGlowFromNetwork = 1234.5677f;
    static constexpr float kBlackHoleMatte = -1000000.0f;
    // mediumRefractiveIndex of a sample whose medium isn't known: no
    // refraction for it.
    static constexpr double kUnknownMedium = -1234.567;
    // Below this in every channel a surface lets nothing through.
    static constexpr float kOpaqueTransparency = 1e-5f;
    // Index added per chromatic aberration slot.
    static constexpr float kAberrationStep = 0.06f;
    // A cut-off of cos = depth * -11.5: the default depth 0.5 lets light
    // through from every direction, depth 0 only from the front hemisphere.
    static constexpr float kCutoffPerDepth = -11.5f;

    // The default of translucenceDepth: 0.5, or 0 for scenes that want the
    // old default (ORVO_USE_OLD_TRANSLUCENCE_DEPTH_DEFAULT set to anything).
    static float translucenceDepthDefault();
    // The light record defaults a material starts from: direction and
    // intensity 1, 1, 1; ambient and diffuse on, specular off.
    static void setMaterialLightDefaults(TattributeLightData& record);

    // Whether the light loop runs in this pass: the colour passes and the
    // shadow pass, which sums the shadow fractions of the lights.
    static bool passLightsSurface(int pass) {
        return pass == kRenderPassBeauty || pass == kRenderPassColor ||
               pass == kRenderPassDiffuse || pass == kRenderPassShadow;
    }

    // Calls f(record) for each light record of one sample's lightDataArray
    // element, walked where the records lie, without copying.
    template <class F>
    static void forEachLight(const TdataHandle& lights, F&& f) {
        const TmultiHeader* header = lights.asMultiHeader();
        if (!header || header->count == 0)
            return;
        const std::byte* slot = header->data + TmultiBuilder::valueOffset(aLightData);
        for (unsigned k = header->count; k > 0; --k, slot += header->stride)
            f(*reinterpret_cast<const TlightData*>(slot));
    }

protected:
    // Runs the steps over at most this many samples at a time, so that the
    // per-sample scratch on the stack stays small for long runs.
    static constexpr unsigned kChunk = 256;

    // The value of one of this node's plugs, brought up to date through
    // its connection.
    TdataHandle plugValue(const Tattribute& attribute);

    // The batch steps, shared with the specular materials.
    void computeLambert(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count);
    void computeTransparency(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count);
    void computeBlackHole(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count);
    // The tail of the colour compute: hidden samples go black, glow is
    // scaled by glowIntensity, black holes go black. A specular material
    // passes its highlight S (one triple a sample), which is added to
    // outColor, is all of outColor in the highlight pass, and glows.
    void finishColour(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count,
                      const T3Float* highlight, int pass);
    // Adds the light refracted through the samples to `accumulated`, one
    // triple a sample.
    void accumulateRefraction(TdataBlock& block, unsigned first, unsigned count,
                              T3Float* accumulated);

    // Set once a frame from translucenceDepth.
    float fTranslucenceCutoff;

private:
    // The transparency of each sample, as the shared refraction steps take it.
    static void transparencies(TdataBlock& block, unsigned first, unsigned count, T3Float* out);
    void computeLambertChunk(TdataBlock& block, unsigned first, unsigned count, int pass);
};

// What one compute of a classic material writes together, for a material
// type T with lambert's outputs: the colour and the glow (and in the shadow
// pass the matte with them), or the transparency and the matte.
template <class T>
void OrvoMaterialGroupedAttrs(const Tattribute* attribute, TattributeArray& out) {
    out.clear();
    if (!attribute)
        return;
    const Tattribute* a = attribute->parent() ? attribute->parent() : attribute;
    const bool shadowPass = OrvoRenderPass() == kRenderPassShadow;
    if (a == &T::aOutColor || a == &T::aOutGlowColor) {
        out.push_back(a == &T::aOutColor ? &T::aOutGlowColor : &T::aOutColor);
        if (shadowPass)
            out.push_back(&T::aOutMatteOpacity);
    } else if (a == &T::aOutTransparency) {
        if (!shadowPass)
            out.push_back(&T::aOutMatteOpacity);
    } else if (a == &T::aOutMatteOpacity) {
        if (shadowPass) {
            out.push_back(&T::aOutColor);
            out.push_back(&T::aOutGlowColor);
        } else {
            out.push_back(&T::aOutTransparency);
        }
    }
}

// The ray sampler goes away with the render: a material forgets its
// address (its own value, unless something drives the plug).
template <class T>
void OrvoForgetRaySampler(T& node) {
    const Tplug plug(&node, &T::aRaySampler);
    void* none = nullptr;
    if (node.graph() && plug.source().isNull())
        node.graph()->setPlugValue(plug, &none);
    else if (!node.graph())
        node.setAttributeValue(&T::aRaySampler, &none);
}

// A plug's value brought up to date through its connection: the graph's
// evaluation, or the node's own block outside a graph.
inline TdataHandle OrvoEvaluatedValue(TdependNode& node, const Tattribute& attribute) {
    if (TdependGraph* graph = node.graph())
        return graph->evaluate(Tplug(&node, &attribute));
    return node.forceGetDatablock().inputValue(attribute);
}

// The translucence cut-off of a material type T for a frame, from the
// node's own translucenceDepth, whatever is connected: one number a frame.
template <class T>
float OrvoTranslucenceCutoff(T& node) {
    const auto* depth =
        static_cast<const float*>(node.forceGetDatablock().valueAddress(T::aTranslucenceDepth, 0));
    return (depth ? *depth : T::aTranslucenceDepth.nativeDefault()) * TdnLambert::kCutoffPerDepth;
}
