// The 2D texture base: its helpers, evaluation outside a render, and the
// checks that hold for every 2D texture type in the registry.

#include <gtest/gtest.h>

#include <cstring>

#include "framework/nodes/utility/utility_test_support.h"
#include "textures/checker.h"
#include "textures/texture_test_support.h"

namespace {

using orvo_test::PlacedTexture;
using orvo_test::set;
using Values = std::vector<double>;

// ---------------------------------------------------------------- helpers

TEST(Texture2d, OutsideMarkerAndDefaultColour) {
    EXPECT_EQ(std::bit_cast<uint32_t>(TdnTx2D::kOutside), 0xCB189680u);
    EXPECT_TRUE(TdnTx2D::isOutside(-1e7f, -1e7f));
    EXPECT_TRUE(TdnTx2D::isOutside(-2e7f, -1e8f)); // at or below, both
    EXPECT_FALSE(TdnTx2D::isOutside(-1e7f, 0.3f));
    EXPECT_FALSE(TdnTx2D::isOutside(0.3f, -1e7f));

    // On handles: the default colour and its luminance, 0.3 * 0.2 + 0.59 *
    // 0.5 + 0.11 * 1 = 0.465.
    float uv[2] = {-1e7f, -1e7f}, dc[3] = {0.2f, 0.5f, 1.0f}, oc[3] = {}, oa = 0.0f;
    const TdataHandle uvH(nullptr, &TdnTx2D::aUvCoord, uv),
        dcH(nullptr, &TdnTx2D::aDefaultColor, dc), ocH(nullptr, &TdnTx2D::aOutColor, oc),
        oaH(nullptr, &TdnTx2D::aOutAlpha, &oa);
    EXPECT_TRUE(TdnTx2D::checkOutside(uvH, dcH, ocH, oaH));
    EXPECT_EQ(oc[2], 1.0f);
    EXPECT_FLOAT_EQ(oa, 0.465f);
    uv[1] = 0.5f;
    oc[0] = 9.0f;
    EXPECT_FALSE(TdnTx2D::checkOutside(uvH, dcH, ocH, oaH));
    EXPECT_EQ(oc[0], 9.0f); // untouched
}

TEST(Texture2d, ColourEffectsAndFilteredSize) {
    const float gain[3] = {2.0f, 1.0f, 0.5f}, offset[3] = {0.1f, 0.0f, -0.5f};
    T3Float c{0.25f, 0.5f, 1.0f};
    float a = 0.2f;
    // Invert: (0.75, 0.5, 0), 0.8; then gain and offset, with no clamping:
    // (1.6, 0.5, -0.5), 0.8 * 3 - 1.
    TdnTx2D::colorEffects(true, gain, offset, 3.0f, -1.0f, c, a);
    EXPECT_FLOAT_EQ(c.x, 1.6f);
    EXPECT_FLOAT_EQ(c.y, 0.5f);
    EXPECT_FLOAT_EQ(c.z, -0.5f);
    EXPECT_FLOAT_EQ(a, 1.4f);

    // max(0.5, 0.2) * 2 + 0.25.
    EXPECT_FLOAT_EQ(TdnTx2D::filteredSize(0.5f, 0.2f, 2.0f, 0.25f), 1.25f);
    // filter -3 acts as 0: |-0.25|.
    EXPECT_FLOAT_EQ(TdnTx2D::filteredSize(0.5f, 0.2f, -3.0f, -0.25f), 0.25f);
    // A negative sum folds back: 0.3 - 0.5 -> 0.2.
    EXPECT_FLOAT_EQ(TdnTx2D::filteredSize(0.1f, 0.3f, 1.0f, -0.5f), 0.2f);
}

TEST(Texture2d, AlternateAttributeAndInputs) {
    TdependGraph g;
    auto* a = static_cast<TdnChecker*>(g.createNode("checker", "a"));
    g.createNode("checker", "b");
    g.createNode("reverse", "r");
    EXPECT_EQ(a->alternateAttr(&TdnTx2D::aOutColor), &TdnTx2D::aDefaultColor);
    EXPECT_EQ(a->alternateAttr(&TdnTx2D::aOutColorG), &TdnTx2D::aDefaultColorG);
    EXPECT_EQ(a->alternateAttr(&TdnTx2D::aOutAlpha), nullptr);

    // A texture feeding a plug is found; anything else is not.
    g.connect(g.findPlug("b.outColor"), g.findPlug("a.color1"));
    g.connect(g.findPlug("r.output"), g.findPlug("a.color2"));
    TdnTx2D* b = TdnTx2D::getInputTxNode(a, TdnChecker::aColor1, -1);
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(static_cast<TdependNode*>(b), g.findNode("b"));
    EXPECT_EQ(TdnTx2D::getInputTxNode(a, TdnChecker::aColor2, -1), nullptr);
    EXPECT_EQ(TdnTx2D::getInputTxNode(a, TdnTx2D::aColorGain, -1), nullptr);

    const Tplug p = TdnTx2D::buildPlug(a, TdnChecker::aColor1, 3); // not an array: no index
    EXPECT_EQ(p, Tplug(a, &TdnChecker::aColor1));
    EXPECT_TRUE(TdnTx2D::checkCycle(p, {Tplug(a, &TdnChecker::aColor2), p}));
    EXPECT_FALSE(TdnTx2D::checkCycle(p, {Tplug(a, &TdnChecker::aColor2)}));
}

TEST(Texture2d, BaseBakeFillsBlack) {
    TtextureMethods base;
    TplugArray plugs;
    TdoubleArray reserved(3, 7.0), alphas;
    base.mapUVtoClr(plugs, nullptr, &reserved, &alphas, nullptr, nullptr);
    EXPECT_EQ(reserved, TdoubleArray(3, 0.0)); // the count comes from here
    EXPECT_EQ(alphas, TdoubleArray(3, 1.0));
}

TEST(Texture2d, BakeThroughConnectedTextures) {
    // b's color1 comes from checker c at the same coordinates: at (0.25,
    // 0.25) c is on its color1 square, (0.2, 0.4, 0.6); b is too.
    TdependGraph g;
    auto* b = static_cast<TdnTx2D*>(g.createNode("checker", "b")->cast(TdnTx2D::sTypeof()));
    g.createNode("checker", "c");
    set(g, "c.color1", Values{0.2, 0.4, 0.6});
    g.connect(g.findPlug("c.outColor"), g.findPlug("b.color1"));
    TplugArray plugs;
    T3Float out;
    b->mapUVtoColor(plugs, 0.25f, 0.25f, out);
    EXPECT_FLOAT_EQ(out.x, 0.2f);
    EXPECT_FLOAT_EQ(out.z, 0.6f);
    EXPECT_TRUE(plugs.empty());
    EXPECT_TRUE(TdnTx2D::getColorAttrValue(plugs, b, TdnChecker::aColor1, -1, 0.25f, 0.25f, out));
    EXPECT_FLOAT_EQ(out.y, 0.4f);
    // An unconnected colour is the caller's to read.
    EXPECT_FALSE(TdnTx2D::getColorAttrValue(plugs, b, TdnChecker::aColor2, -1, 0.25f, 0.25f, out));
}

TEST(Texture2d, CycleThroughColorGainBakesWithThePlainValue) {
    // a.defaultColor <- b.outColor and b.colorGain <- a.outColor. a sits
    // behind a placement that sends u = 0.75 outside (wrap off, coverage
    // 0.5); b has none, so (0.75, 0.25) is on its color2 square.
    TdependGraph g;
    g.createNode("place2dTexture", "p");
    TdependNode* a = g.createNode("checker", "a");
    g.createNode("checker", "b");
    g.connect(g.findPlug("p.outUV"), g.findPlug("a.uvCoord"));
    set(g, "p.wrapU", {"false"});
    set(g, "p.coverage", Values{0.5, 1});
    set(g, "a.defaultColor", Values{1, 0.5, 0.25});
    set(g, "b.color2", Values{0.2, 0.4, 0.6});
    g.connect(g.findPlug("b.outColor"), g.findPlug("a.defaultColor"));
    g.connect(g.findPlug("a.outColor"), g.findPlug("b.colorGain"));

    // a is outside, so it shows its defaultColor, which is b at (0.75, 0.25):
    // color2 times b's colorGain, which is a again; there a's defaultColor is
    // the plug already on the way, so a's own value (1, 0.5, 0.25) is used:
    // (0.2, 0.2, 0.15), alpha its luminance 0.06 + 0.118 + 0.0165.
    auto* tx = static_cast<TdnTx2D*>(a->cast(TdnTx2D::sTypeof()));
    TplugArray plugs;
    T4dDblVectorArray colors;
    TdoubleArray alphas;
    const TdoubleArray us{0.75}, vs{0.25};
    orvo_test::MessageCapture messages;
    tx->mapUVtoClr(plugs, &colors, nullptr, &alphas, &us, &vs);
    ASSERT_EQ(colors.size(), 1u);
    EXPECT_NEAR(colors[0].x, 0.2, 1e-6);
    EXPECT_NEAR(colors[0].y, 0.2, 1e-6);
    EXPECT_NEAR(colors[0].z, 0.15, 1e-6);
    EXPECT_NEAR(alphas[0], 0.1945, 1e-6);
    EXPECT_TRUE(plugs.empty());
    EXPECT_TRUE(messages.messages().empty());
}

// ---------------------------------------------------------------- every 2D texture

std::vector<std::string> textureTypes() {
    std::vector<std::string> names;
    for (TdependNodeClass* c : TdependGraph::nodeTypes())
        if (c->metaclass() && c->metaclass()->istype(TdnTx2D::sTypeof()))
            names.push_back(c->typeName());
    return names;
}

// Same bits, or both not a number.
bool same(float a, float b) {
    return std::memcmp(&a, &b, sizeof a) == 0 || (std::isnan(a) && std::isnan(b));
}

TEST(Texture2dTypes, BakeEqualsRenderAtTheSameCoordinates) {
    const std::vector<std::pair<double, double>> coordinates = {
        {0.0, 0.0},   {1.0, 1.0},   {-1e7, -1e7}, {-1e7, 0.3},  {-0.25, 0.4}, {0.5, 0.5},
        {0.37, 0.81}, {0.999, 0.2}, {2.3, -1.7},  {0.05, 0.95}, {0.62, 0.13}};
    for (const std::string& type : textureTypes()) {
        for (int variant = 0; variant < 2; ++variant) {
            PlacedTexture t(type);
            set(t.g, "p.uvFilterSize", Values{0.004, 0.007});
            if (variant == 1) {
                // A turned, repeated and partly covered placement, and the
                // colour effects.
                set(t.g, "p.rotateUV", Values{0.4});
                set(t.g, "p.repeatUV", Values{2, 3});
                set(t.g, "p.coverage", Values{0.9, 1});
                set(t.g, "t.invert", {"true"});
                set(t.g, "t.colorGain", Values{0.5, 1, 2});
                set(t.g, "t.alphaIsLuminance", {"true"});
            }
            for (const auto& [u, v] : coordinates) {
                const std::vector<float> rendered = t.at(u, v);
                const std::vector<float> baked = t.baked(u, v);
                ASSERT_EQ(baked.size(), 4u) << type;
                for (int k = 0; k < 4; ++k)
                    EXPECT_TRUE(same(rendered[size_t(k)], baked[size_t(k)]))
                        << type << " variant " << variant << " at (" << u << ", " << v
                        << ") channel " << k << ": " << rendered[size_t(k)] << " vs "
                        << baked[size_t(k)];
            }
        }
    }
}

TEST(Texture2dTypes, RunOfSamplesEqualsSamplesOneByOne) {
    for (const std::string& type : textureTypes()) {
        TdependGraph g;
        TdependNode* node = g.createNode(type, "t");
        const unsigned n = 300; // more than a chunk of the checker's passes
        TordinaryDataBlock run(node, n), ones(node, n), scalar(node, n);
        for (TordinaryDataBlock* b : {&run, &ones, &scalar})
            for (unsigned e = 0; e < n; ++e) {
                float* uv = static_cast<float*>(b->valueAddress(TdnTx2D::aUvCoord, e));
                uv[0] = e % 17 == 0 ? -1e7f : 0.0137f * float(e) - 0.5f;
                uv[1] = e % 17 == 0 ? -1e7f : 0.0071f * float(e);
                float* fs = static_cast<float*>(b->valueAddress(TdnTx2D::aUvFilterSize, e));
                fs[0] = 0.001f * float(e % 7);
                fs[1] = 0.002f;
            }
        const Tplug plug(node, &TdnTx2D::aOutColor);
        ASSERT_TRUE(node->vectorComputePlug(plug, run, 0, n)) << type;
        for (unsigned e = 0; e < n; ++e)
            node->vectorComputePlug(plug, ones, e, 1);
        // The scalar entry on a block of many elements computes them all.
        ASSERT_TRUE(node->computePlug(plug, scalar)) << type;
        for (unsigned e = 0; e < n; ++e)
            for (const Tattribute* a : {&TdnTx2D::aOutColorR, &TdnTx2D::aOutColorG,
                                        &TdnTx2D::aOutColorB, &TdnTx2D::aOutAlpha}) {
                const float x = float(a->numericGet(run.valueAddress(*a, e), 0));
                const float y = float(a->numericGet(ones.valueAddress(*a, e), 0));
                const float z = float(a->numericGet(scalar.valueAddress(*a, e), 0));
                EXPECT_TRUE(same(x, y)) << type << " element " << e << " " << a->longName();
                EXPECT_TRUE(same(x, z)) << type << " scalar, element " << e << " " << a->longName();
            }
    }
}

} // namespace
