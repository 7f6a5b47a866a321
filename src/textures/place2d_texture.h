#pragma once

// place2dTexture: turns a surface's UV into a texture's UV (coverage,
// translation, rotation, wrap, repeat, offset, noise, stagger, mirror) and
// scales the filter size to match. Placement and texture meet only through
// attributes: outUV feeds uvCoord, outUvFilterSize feeds uvFilterSize.
//
// The placement of one sample, in the order place() takes (comments name the
// steps by number):
//   1. the outside marker passes through, with the filter size unscaled;
//   2. so does any sample on the fast path when nothing transforms;
//   3. and any sample when a coverage shows nothing;
//   4. the filter scale, repeat over coverage;
//   5. the filter size: the rotated footprint's box;
//   6. noise;
//   7. an exact 1.0 moves to 0.9999 (the top edge belongs to the tile);
//   8. the frame rotation about the centre;
//   9. per axis, U first: coverage, translate frame, wrap, the range test,
//      repeat and offset;
//  10. stagger of odd rows; 11. mirror of odd tiles;
//  12. the UV rotation about the centre.

#include <cmath>

#include "framework/node_pattern.h"
#include "textures/texture_methods.h"

#define ORVO_SCHEMA_TdnPlace2dTx(A, C2, C3)                                                        \
    A(Tattribute2Float, UvCoord, "uvCoord", "uv", .implicitSample())                               \
    A(TattributeFloat, UCoord, "uCoord", "u",                                                      \
      .implicitSample().setNativeDefaultData(0.0f).childOf(UvCoord))                               \
    A(TattributeFloat, VCoord, "vCoord", "v",                                                      \
      .implicitSample().setNativeDefaultData(0.0f).childOf(UvCoord))                               \
    C2(Tattribute2Float, UvFilterSize, "uvFilterSize", "fs", ORVO_XY, .implicitSample(),           \
       .implicitSample().setNativeDefaultData(0.0f))                                               \
    C2(Tattribute2Float, VertexUvOne, "vertexUvOne", "vt1", ORVO_UV, .implicitSample(),            \
       .implicitSample().setNativeDefaultData(0.0f))                                               \
    C2(Tattribute2Float, VertexUvTwo, "vertexUvTwo", "vt2", ORVO_UV, .implicitSample(),            \
       .implicitSample().setNativeDefaultData(0.0f))                                               \
    C2(Tattribute2Float, VertexUvThree, "vertexUvThree", "vt3", ORVO_UV, .implicitSample(),        \
       .implicitSample().setNativeDefaultData(0.0f))                                               \
    C3(Tattribute3Float, VertexCameraOne, "vertexCameraOne", "vc1", ORVO_XYZ, .implicitSample(),   \
       .implicitSample().setNativeDefaultData(0.0f))                                               \
    C2(Tattribute2Float, Coverage, "coverage", "c", ORVO_UV, .inputParent(),                       \
       .input().setNativeDefaultData(1.0f).min(0.0).softMax(1.0))                                  \
    C2(Tattribute2Float, TranslateFrame, "translateFrame", "tf", ORVO_UV, .inputParent(),          \
       .input().setNativeDefaultData(0.0f))                                                        \
    A(TattributeDoubleAngle, RotateFrame, "rotateFrame", "rf",                                     \
      .input().setNativeDefaultData(0.0).softRange(0, 6.283185307179586))                          \
    A(TattributeBoolean, MirrorU, "mirrorU", "mu", .input().setNativeDefaultData(false))           \
    A(TattributeBoolean, MirrorV, "mirrorV", "mv", .input().setNativeDefaultData(false))           \
    A(TattributeBoolean, Stagger, "stagger", "s", .input().setNativeDefaultData(false))            \
    A(TattributeBoolean, WrapU, "wrapU", "wu", .input().setNativeDefaultData(true))                \
    A(TattributeBoolean, WrapV, "wrapV", "wv", .input().setNativeDefaultData(true))                \
    A(Tattribute2Float, RepeatUV, "repeatUV", "re", .inputParent())                                \
    A(TattributeFloat, RepeatU, "repeatU", "reu",                                                  \
      .input().setNativeDefaultData(1.0f).childOf(RepeatUV))                                       \
    A(TattributeFloat, RepeatV, "repeatV", "rev",                                                  \
      .input().setNativeDefaultData(1.0f).childOf(RepeatUV))                                       \
    C2(Tattribute2Float, Offset, "offset", "of", ORVO_UV, .inputParent(),                          \
       .input().setNativeDefaultData(0.0f))                                                        \
    A(TattributeDoubleAngle, RotateUV, "rotateUV", "r",                                            \
      .input().setNativeDefaultData(0.0).softRange(0, 6.283185307179586))                          \
    A(Tattribute2Float, NoiseUV, "noiseUV", "n", .inputParent())                                   \
    A(TattributeFloat, NoiseU, "noiseU", "nu",                                                     \
      .input().setNativeDefaultData(0.0f).childOf(NoiseUV))                                        \
    A(TattributeFloat, NoiseV, "noiseV", "nv",                                                     \
      .input().setNativeDefaultData(0.0f).childOf(NoiseUV))                                        \
    A(TattributeBoolean, Fast, "fast", "fa", .input().setNativeDefaultData(false))                 \
    A(Tattribute2Float, OutUV, "outUV", "o", .output())                                            \
    A(TattributeFloat, OutU, "outU", "ou", .output().setNativeDefaultData(0.0f).childOf(OutUV))    \
    A(TattributeFloat, OutV, "outV", "ov", .output().setNativeDefaultData(0.0f).childOf(OutUV))    \
    C2(Tattribute2Float, OutUvFilterSize, "outUvFilterSize", "ofs", ORVO_XY, .output(), .output()) \
    A(TattributeBoolean, DoTransform, "doTransform", "do", .output())

ORVO_NODE(TdnPlace2dTx, TshadingDependNode, "place2dTexture", "RPL2", 447, "kPlace2dTexture",
          "utility/general/placement:drawdb/shader/operation/place2dTexture", "n_place2dTexture")

class TdnPlace2dTx : public TdnPattern<TdnPlace2dTx, TshadingDependNode> {
public:
    // The placement's parameters for one sample.
    struct Params {
        float coverage[2] = {1.0f, 1.0f};
        float translate[2] = {0.0f, 0.0f};
        float repeat[2] = {1.0f, 1.0f};
        float offset[2] = {0.0f, 0.0f};
        float noise[2] = {0.0f, 0.0f};
        bool wrap[2] = {true, true};
        bool mirror[2] = {false, false};
        bool stagger = false;
        bool fast = false;
    };
    // Cosine and sine of an angle narrowed to float, and whether it turns at
    // all. Made once per batch for a constant angle.
    struct Rotation {
        float c = 1.0f;
        float s = 0.0f;
        bool on = false;
        static Rotation of(double angle);
    };
    static bool noiseOn(const Params& p) {
        return std::fabs(p.noise[0]) > 1e-5f || std::fabs(p.noise[1]) > 1e-5f;
    }

    // The placement of one sample, in 32-bit floats. `transform` is the
    // cached result of the transform test.
    static void place(const Params& p, const Rotation& frame, const Rotation& uv, bool noise,
                      bool transform, float u, float v, float fu, float fv, float outUV[2],
                      float outSize[2]);
    // Steps 1 to 5 of the placement: the placed filter size alone. False
    // when the sample ends there (outside, or passed through by the fast
    // path or an empty coverage), with the filter size unscaled.
    static bool placeFilterSize(const Params& p, const Rotation& frame, const Rotation& uv,
                                bool transform, float u, float v, float fu, float fv,
                                float outSize[2]);
    // The matrix that turns a filter footprint with the filter scale (su,
    // sv) and the frame and UV rotations, both or either on.
    static void footprintMatrix(const Rotation& frame, const Rotation& uv, float su, float sv,
                                float m[4]) {
        const float cf = frame.c, sf = frame.s, cu = uv.c, sn = uv.s;
        if (!frame.on) {
            m[0] = su * cu;
            m[1] = -sv * sn;
            m[2] = su * sn;
            m[3] = sv * cu;
        } else if (!uv.on) {
            m[0] = su * cf;
            m[1] = -su * sf;
            m[2] = sv * sf;
            m[3] = sv * cf;
        } else {
            m[0] = cf * su * cu - sf * sv * sn;
            m[1] = -(sf * su * cu) - sv * sn * cf;
            m[2] = sv * cu * sf + su * sn * cf;
            m[3] = sv * cu * cf - su * sn * sf;
        }
    }
    // The transform test: false only when `fast` is on and nothing else
    // moves the coordinate.
    static bool computeDoTransform(const Params& p, double rotateFrame, double rotateUV);

    // outUV, outUvFilterSize, their children and doTransform: a run over
    // every sample of the block.
    bool computePlug(const Tplug& plug, TdataBlock& block) override;
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first,
                           unsigned count) override;
    // Runs the transform test on the block's values, before a render's
    // samples arrive.
    void shadingNodeOnDemand(Tplug& plug, TdataBlock& block) override;
    // outUV and outUvFilterSize come out of one compute: a texture that
    // reads both costs one placement.
    void groupedAttrs(const Tattribute* attribute, TattributeArray& out) override;

    // The same placement for baking: every (uIn[i], vIn[i]) through the
    // pipeline with the node's current values, and the placed filter size.
    // Unequal input lengths leave the outputs untouched.
    void mapToTxUV(const TdoubleArray& uIn, const TdoubleArray& vIn, TdoubleArray& uOut,
                   TdoubleArray& vOut, T2Float& filterSize);

    // ---- accessors of the attribute values
    float coverageU();
    float coverageV();
    float translateFrameU();
    float translateFrameV();
    double rotateFrame();
    bool getMirrorU();
    bool getMirrorV();
    T2Float getRepeatUV();
    T2Float getOffsetUV();
    double getRotateUV();
    T2Float getNoiseUV();
    bool getStagger();
    bool getWrapU();
    bool getWrapV();
    void setMirrorU(bool on);
    void setMirrorV(bool on);
    void setRotateFrame(double angle);
    void setRotateUV(double angle);
    void setStagger(bool on);

    bool cachedDoTransform() const { return fDoTransform; }

private:
    // The node's current values, as the data block holds them.
    Params currentParams();
    template <class V>
    void setValue(const Tattribute& a, V value);

    // The cached transform test. Until a render runs the test, the full
    // pipeline runs: `fast` never skips more than the test allows.
    bool fDoTransform = true;
};
