#pragma once

// TdnTx2D: the abstract base of every texture evaluated at a (u, v)
// coordinate. It holds the attributes all of them share and the static
// helpers that make every 2D texture treat a sample the same way: the
// outside marker, the default colour, the colour effects, the filter size,
// and the evaluation of connected colours on arrays for baking.
//
// A 2D texture computes outColor and outAlpha (and nothing else) for each
// sample in these steps, which the comments below name by number:
//   1. accept only outColor, its children or outAlpha;
//   2. take handles on uvCoord, the texture's inputs and the effects;
//   3. a coordinate at the outside marker gets the default colour;
//   4. the pattern gives a colour and an alpha;
//   5. with alphaIsLuminance the alpha becomes the pattern colour's
//      luminance, before any effect (so invert inverts it);
//   6. the colour effects (invert, gain and offset, alpha gain and offset),
//      and the two outputs written.
//
// It is not a node type of its own (nothing can be made of it, and it has no
// scene-file identity); it has a metaclass so that a network can ask whether
// a node is a 2D texture, and its descriptor is reached through the types
// derived from it.

#include <array>
#include <cmath>
#include <type_traits>
#include <variant>

#include "framework/node_pattern.h"
#include "textures/texture_methods.h"

class TdnPlace2dTx;

#define ORVO_SCHEMA_TdnTx2D(A, C2, C3)                                                             \
    A(Tattribute2Float, UvCoord, "uvCoord", "uv", .implicitSample())                               \
    A(TattributeFloat, UCoord, "uCoord", "u",                                                      \
      .implicitSample().setNativeDefaultData(0.0f).childOf(UvCoord))                               \
    A(TattributeFloat, VCoord, "vCoord", "v",                                                      \
      .implicitSample().setNativeDefaultData(0.0f).childOf(UvCoord))                               \
    C2(Tattribute2Float, UvFilterSize, "uvFilterSize", "fs", ORVO_XY, .implicitSample(),           \
       .implicitSample().setNativeDefaultData(0.0f))                                               \
    A(TattributeFloat, Filter, "filter", "f",                                                      \
      .input().setNativeDefaultData(1.0f).min(0.0).softMax(1.0))                                   \
    A(TattributeFloat, FilterOffset, "filterOffset", "fo",                                         \
      .input().setNativeDefaultData(0.0f).softMax(1.0))                                            \
    A(TattributeBoolean, Invert, "invert", "i", .input().setNativeDefaultData(false))              \
    A(TattributeBoolean, AlphaIsLuminance, "alphaIsLuminance", "ail",                              \
      .input().setNativeDefaultData(false))                                                        \
    C3(Tattribute3Float, ColorGain, "colorGain", "cg", ORVO_RGB,                                   \
       .inputParent().colour().setNativeDefaultData(1, 1, 1), .input().range(0, 2))                \
    C3(Tattribute3Float, ColorOffset, "colorOffset", "co", ORVO_RGB,                               \
       .inputParent().colour().setNativeDefaultData(0, 0, 0), .input().range(0, 2))                \
    A(TattributeFloat, AlphaGain, "alphaGain", "ag",                                               \
      .input().setNativeDefaultData(1.0f).softMax(2.0))                                            \
    A(TattributeFloat, AlphaOffset, "alphaOffset", "ao",                                           \
      .input().setNativeDefaultData(0.0f).softMax(2.0))                                            \
    C3(Tattribute3Float, DefaultColor, "defaultColor", "dc", ORVO_RGB,                             \
       .inputParent().colour().setNativeDefaultData(0.5f, 0.5f, 0.5f), .input().range(0, 1))       \
    C3(Tattribute3Float, OutColor, "outColor", "oc", ORVO_RGB,                                     \
       .output().colour().setNativeDefaultData(0, 0, 0), .output())                                \
    A(TattributeFloat, OutAlpha, "outAlpha", "oa", .output())

ORVO_NODE(TdnTx2D, TshadingDependNode, "texture2d", "", 0, "kTexture2d", "texture/2d",
          "n_texture2d")

class TdnTx2D : public TtextureMethods, public TshadingDependNode, public TdnAttr<TdnTx2D> {
public:
    using VS = TdnVS<TdnTx2D>;

    // A sample at or below this in both u and v lies outside the placed
    // texture (bits 0xCB189680).
    static constexpr float kOutside = -1e7f;
    static bool isOutside(float u, float v) { return u <= kOutside && v <= kOutside; }

    // ---- the face of the node pattern, written out: no type is registered
    static VS* sVsData();
    static TdependNodeVS* sVsBaseData() { return sVsData(); }
    static Tmetaclass* sTypeof();
    Tmetaclass* typeof() const override;
    void* cast(Tmetaclass* meta) override;
    TdependNodeVS* vsData() const override { return sVsData(); }

    // outColor, its children and outAlpha: a run over every sample of the
    // block. Anything else goes to the base.
    bool computePlug(const Tplug& plug, TdataBlock& block) override;
    static bool isTextureOutput(const Tattribute* attribute);

    // outColor stands in for defaultColor, child for child.
    const Tattribute* alternateAttr(const Tattribute* attribute) override;

    // ---- helpers, on a data block, on data handles, and on vector handles
    // with a sample index
    static bool checkOutside(TdataBlock& block);
    static bool checkOutside(const TdataHandle& uv, const TdataHandle& defaultColor,
                             const TdataHandle& outColor, const TdataHandle& outAlpha);
    static bool checkOutside(int i, const TvectorDataHandle& uv,
                             const TvectorDataHandle& defaultColor,
                             const TvectorDataHandle& outColor, const TvectorDataHandle& outAlpha);

    static void setToDefaultColor(TdataBlock& block);
    static void setToDefaultColor(const TdataHandle& defaultColor, const TdataHandle& outColor,
                                  const TdataHandle& outAlpha);
    static void setToDefaultColor(int i, const TvectorDataHandle& defaultColor,
                                  const TvectorDataHandle& outColor,
                                  const TvectorDataHandle& outAlpha);

    // invert, then gain and offset; no clamping.
    // Inline: the textures call it once a sample in their inner loops.
    static void colorEffects(bool invert, const float gain[3], const float offset[3],
                             float alphaGain, float alphaOffset, T3Float& c, float& a) {
        if (invert) {
            for (int k = 0; k < 3; ++k)
                c[k] = 1.0f - c[k];
            a = 1.0f - a;
        }
        for (int k = 0; k < 3; ++k)
            c[k] = c[k] * gain[k] + offset[k];
        a = a * alphaGain + alphaOffset;
    }
    static void colorEffects(TdataBlock& block, T3Float& c, float& a);
    static void colorEffects(const TdataHandle& invert, const TdataHandle& gain,
                             const TdataHandle& offset, const TdataHandle& alphaGain,
                             const TdataHandle& alphaOffset, T3Float& c, float& a);
    static void colorEffects(int i, const TvectorDataHandle& invert, const TvectorDataHandle& gain,
                             const TvectorDataHandle& offset, const TvectorDataHandle& alphaGain,
                             const TvectorDataHandle& alphaOffset, T3Float& c, float& a);

    // The size a texture blurs its pattern by: the larger filter size
    // component times max(0, filter), plus filterOffset, folded to positive.
    static float filteredSize(float sizeX, float sizeY, float filter, float filterOffset);
    static float filteredSize(TdataBlock& block);
    static float filteredSize(const TdataHandle& filterSize, const TdataHandle& filter,
                              const TdataHandle& filterOffset);
    static float filteredSize(int i, const TvectorDataHandle& filterSize,
                              const TvectorDataHandle& filter,
                              const TvectorDataHandle& filterOffset);

    static float luminance(const T3Float& c) { return OrvoLuminance(c); }
    // x in 0 .. 1 unchanged (so 1.0 stays 1.0), else its fraction.
    static float fract1(float x) { return x >= 0.0f && x <= 1.0f ? x : x - std::floor(x); }

    // ---- evaluation outside a render
    // This texture at one coordinate, narrowed to floats.
    void mapUVtoColor(TplugArray& plugs, float u, float v, T3Float& out);
    // What feeds a colour attribute of `node`, evaluated at the coordinates
    // when it is a 2D texture. False (and `out` untouched) when it is not, or
    // when the plug is already on the way here: the caller then uses the
    // attribute's own value.
    static bool getColorAttrValue(TplugArray& plugs, TdependNode* node, const Tattribute& attribute,
                                  int multiIndex, float u, float v, T3Float& out);
    static bool getColorAttrValue(TplugArray& plugs, TdependNode* node, const Tattribute& attribute,
                                  int multiIndex, const TdoubleArray& u, const TdoubleArray& v,
                                  T4dDblVectorArray& out);
    static TdnTx2D* getInputTxNode(const Tplug& plug);
    static TdnTx2D* getInputTxNode(TdependNode* node, const Tattribute& attribute, int multiIndex);
    static bool checkCycle(const Tplug& plug, const TplugArray& plugs);
    // A plug on node.attribute; the multi index is set when it is not -1 and
    // the attribute or its parent is an array.
    static Tplug buildPlug(TdependNode* node, const Tattribute& attribute, int multiIndex);

protected:
    // The per-sample handles every 2D texture takes, and the skeleton's
    // steps around the pattern.
    struct Samples {
        TvectorDataHandle uv, filterSize, filter, filterOffset, invert, alphaIsLuminance, gain,
            offset, alphaGain, alphaOffset, defaultColor, outColor, outAlpha;

        // The colour effects when they are the same for every sample, as
        // they usually are: read once, not per sample.
        bool effectsConstant = false;
        bool invertAll = false, alphaIsLuminanceAll = false;
        const float* gainAll = nullptr;
        const float* offsetAll = nullptr;
        float alphaGainAll = 1.0f, alphaOffsetAll = 0.0f;

        Samples(TdataBlock& block, unsigned first, unsigned count);
        // Step 3: an outside sample gets the default colour.
        bool outside(int i) const { return checkOutside(i, uv, defaultColor, outColor, outAlpha); }
        float u(int i) const { return uv[i].asFloats()[0]; }
        float v(int i) const { return uv[i].asFloats()[1]; }
        float filtered(int i) const { return filteredSize(i, filterSize, filter, filterOffset); }
        // Steps 5 and 6. Inline, as the patterns' loops call them a sample
        // at a time.
        void finish(int i, T3Float c, float a) const {
            // The luminance of the pattern's colour, before the effects:
            // invert then inverts it.
            if (effectsConstant ? alphaIsLuminanceAll : alphaIsLuminance[i].asBool())
                a = luminance(c);
            finishWithAlpha(i, c, a);
        }
        // Step 6 alone, for a pattern that sets its own alpha.
        void finishWithAlpha(int i, T3Float c, float a) const {
            if (effectsConstant)
                colorEffects(invertAll, gainAll, offsetAll, alphaGainAll, alphaOffsetAll, c, a);
            else
                colorEffects(i, invert, gain, offset, alphaGain, alphaOffset, c, a);
            outColor[i].set(c);
            outAlpha[i].set(a);
        }
    };

    // The same steps outside a render: coordinates placed through the
    // placement on uvCoord, plain values of the effect attributes, and the
    // colours of defaultColor, colorGain and colorOffset through their
    // connections.
    struct Bake {
        const TdoubleArray* rawU = nullptr; // as given: connected textures place their own
        const TdoubleArray* rawV = nullptr;
        TdoubleArray u, v; // placed
        size_t count = 0;
        float filterSize[2] = {0.0f, 0.0f};
        float filter = 1.0f, filterOffset = 0.0f, alphaGain = 1.0f, alphaOffset = 0.0f;
        bool invert = false, alphaIsLuminance = false;
        T4dDblVectorArray defaultColor, gain, offset;

        float uAt(size_t k) const { return float(u[k]); }
        float vAt(size_t k) const { return float(v[k]); }
        bool outside(size_t k) const { return isOutside(uAt(k), vAt(k)); }
        float filtered() const {
            return filteredSize(filterSize[0], filterSize[1], filter, filterOffset);
        }
    };
    // False when there is nothing to evaluate (no coordinates).
    bool beginBake(TplugArray& plugs, const TdoubleArray* u, const TdoubleArray* v, Bake& bake);
    // A colour attribute (of this node) at the raw coordinates: through its
    // connection, or its own value for every element.
    void bakeColor(TplugArray& plugs, const Tattribute& attribute, int multiIndex, const Bake& bake,
                   T4dDblVectorArray& out);
    // The attribute's value, brought up to date through its connection.
    T3Float plainColor(const Tattribute& attribute, int multiIndex = -1);
    // The value the node holds, as it stands.
    T3Float heldColor(const Tplug& plug);
    float plainFloat(const Tattribute& attribute);
    bool plainBool(const Tattribute& attribute);
    // Sizes the outputs that are asked for.
    static void sizeOutputs(const Bake& bake, T4dDblVectorArray* colors, TdoubleArray* alphas);
    // Element k: the default colour when outside, else the pattern's colour
    // after steps 5 (when `luminanceStep`) and 6.
    static void bakeDefault(const Bake& bake, size_t k, T4dDblVectorArray* colors,
                            TdoubleArray* alphas);
    static void bakeFinish(const Bake& bake, size_t k, T3Float c, float a, bool luminanceStep,
                           T4dDblVectorArray* colors, TdoubleArray* alphas);
    static T3Float narrow(const T4dDblVector& c) { return {float(c.x), float(c.y), float(c.z)}; }
};

// One parameter of a texture's pattern: a field of its Params struct and
// the input it is read from. A texture lists its parameters once; the same
// list fills them per sample in a render and from the held values outside
// one.
template <class P>
struct TtextureParam {
    const Tattribute* attribute;
    std::variant<float P::*, bool P::*, int16_t P::*, float (P::*)[2]> field;

    void read(const TdataHandle& h, P& p) const {
        std::visit(
            [&](auto member) {
                using M = decltype(member);
                if constexpr (std::is_same_v<M, float P::*>) {
                    p.*member = h.asFloat();
                } else if constexpr (std::is_same_v<M, bool P::*>) {
                    p.*member = h.asBool();
                } else if constexpr (std::is_same_v<M, int16_t P::*>) {
                    p.*member = h.asShort();
                } else {
                    const float* c = h.asFloats();
                    (p.*member)[0] = c[0];
                    (p.*member)[1] = c[1];
                }
            },
            field);
    }
};

// The parameters of a batch: one handle per parameter, read per sample.
template <class P, size_t N>
class TtextureParams {
public:
    using Table = std::array<TtextureParam<P>, N>;

    TtextureParams(const Table& table, TdataBlock& block, unsigned first, unsigned count)
        : fTable(table) {
        for (size_t k = 0; k < N; ++k)
            fHandles[k] = block.vectorInputValue(*table[k].attribute, first, count);
    }
    void read(int i, P& p) const {
        for (size_t k = 0; k < N; ++k)
            fTable[k].read(fHandles[k][i], p);
    }
    // The values the block holds, outside a render.
    static P held(const Table& table, TdataBlock& block) {
        P p;
        for (const TtextureParam<P>& param : table)
            param.read(block.inputValue(*param.attribute), p);
        return p;
    }

private:
    const Table& fTable;
    std::array<TvectorDataHandle, N> fHandles;
};

// Declares what every 2D texture type overrides.
#define ORVO_TX2D_OVERRIDES                                                                        \
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count)   \
        override;                                                                                  \
    void mapUVtoClr(TplugArray& plugs, T4dDblVectorArray* colors, TdoubleArray* reserved,          \
                    TdoubleArray* alphas, const TdoubleArray* u, const TdoubleArray* v) override;
