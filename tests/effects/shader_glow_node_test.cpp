#include <gtest/gtest.h>

#include <cstdlib>

#include "effects/shader_glow.h"
#include "framework/render_info.h"
#include "host/env.h"
#include "host/graph.h"
#include "host/qsl/interpreter.h"

// The shaderGlow node: the scene's default, its set-up of the pass from its
// attributes, and the operations on the process's glow array.

namespace {

class ShaderGlowNode : public ::testing::Test {
protected:
    void SetUp() override {
        TdependGraph::fsCurrentGraph = &graph;
        TrenderInfo::getRenderInfo(graph);
        glow = TdnShaderGlow::find(graph);
        ASSERT_NE(glow, nullptr);
    }
    void TearDown() override {
        TdnShaderGlow::clear();
        unsetenv("ORVO_USE_PRE_V45_SHADER_GLOW_FILTER");
        OrvoEnvRefresh();
    }
    void run(const std::string& text) { qsl::Interpreter(graph).runText(text, "glow.qsl"); }

    TdependGraph graph;
    TdnShaderGlow* glow = nullptr;
};

} // namespace

TEST_F(ShaderGlowNode, TheSceneDefaultJoinsThePostProcessList) {
    EXPECT_EQ(glow->name(), "shaderGlow1");
    EXPECT_TRUE(glow->isDefaultNode());
    TrenderInfo* info = TrenderInfo::find(graph);
    EXPECT_EQ(info->shaderGlow(), glow);
    EXPECT_TRUE(info->isPostProcess(glow));
}

TEST_F(ShaderGlowNode, SetUpPicksTheWiderArrayAndHonoursTheOlderFilter) {
    // Defaults at 640 x 360: glow resolution 0.638934 -> 409 x 231 cells,
    // halo 0.260847 -> trunc(166.9) + 1 = 167 x trunc(93.9) + 1 = 94. The
    // glow's array is the wider: it gathers.
    ASSERT_TRUE(glow->initShaderGlow(640, 360, 640, false));
    EXPECT_EQ(TdnShaderGlow::useShaderGlow(), 2);
    EXPECT_EQ(TdnShaderGlow::sgWide(), 409);
    EXPECT_EQ(TdnShaderGlow::sgHigh(), 231);
    EXPECT_EQ(TdnShaderGlow::data().halo.wide, 167);
    EXPECT_EQ(TdnShaderGlow::data().halo.high, 94);

    // Glow off: the halo gathers.
    run("set shaderGlow1.glowType 0\n");
    ASSERT_TRUE(glow->initShaderGlow(640, 360, 640, false));
    EXPECT_EQ(TdnShaderGlow::sgWide(), 167);

    // Both off, or the one on at intensity 0: no pass, statics cleared.
    run("set shaderGlow1.haloIntensity 0\n");
    EXPECT_FALSE(glow->initShaderGlow(640, 360, 640, false));
    EXPECT_EQ(TdnShaderGlow::useShaderGlow(), 0);
    EXPECT_EQ(TdnShaderGlow::shaderGlowArray(), nullptr);

    // The older filter: glow spread 0.1 gives width 29 (see the post
    // tests); its gain 25 stands, where the newer one is 841 * 0.05668934.
    run("set shaderGlow1.glowType 1\nset shaderGlow1.glowSpread 0.1\n");
    ASSERT_TRUE(glow->initShaderGlow(640, 360, 640, false));
    EXPECT_NEAR(TdnShaderGlow::data().glow.gain, 47.6757f, 1e-3f);
    setenv("ORVO_USE_PRE_V45_SHADER_GLOW_FILTER", "1", 1);
    OrvoEnvRefresh();
    ASSERT_TRUE(glow->initShaderGlow(640, 360, 640, false));
    EXPECT_FLOAT_EQ(TdnShaderGlow::data().glow.gain, 25.0f);
}

TEST_F(ShaderGlowNode, SplatAndOverlayOnTheArray) {
    // Spread 1e-5 keeps the resolution at 1: one cell a pixel, 11 x 11
    // cells for 10 x 10 pixels.
    run("set shaderGlow1.glowSpread 0\nset shaderGlow1.haloType 0\n");
    ASSERT_TRUE(glow->initShaderGlow(10, 10, 10, false));
    ASSERT_EQ(TdnShaderGlow::sgWide(), 11);
    const PX_Rgb* array = TdnShaderGlow::shaderGlowArray();
    // Black is skipped by the renderer's call; a colour at (2, 3) lands
    // whole in cell (2, 3) (p 2, j trunc(3) = 3, weight 3 - 2 = 1).
    const float black[4] = {0, 0, 0, 1};
    EXPECT_FALSE(addShaderGlowToBuffer(nullptr, 2.0f, 3.0f, black));
    const float orange[4] = {200, 100, 0, 1};
    EXPECT_TRUE(addShaderGlowToBuffer(nullptr, 2.0f, 3.0f, orange));
    EXPECT_FLOAT_EQ(array[3 * 11 + 2].r, 200.0f);
    EXPECT_FLOAT_EQ(array[3 * 11 + 2].g, 100.0f);
    // Overlay at (2.9, 3): column trunc(2.9 - 0.5) = 2. A lit cell becomes
    // trunc(clamp(cell * 1.5 + add)): 200 * 1.5 + 10 = 310 -> 255, 100 *
    // 1.5 + 10.7 = 160.7 -> 160, 0 * 1.5 + 0.5 -> 0. A black cell becomes
    // `add`: (10, 10.7, 0.5) -> (10, 10, 0).
    const float add[3] = {10.0f, 10.7f, 0.5f};
    TdnShaderGlow::overlayShaderGlow(add, 1.5f, 2.9f, 3.0f);
    EXPECT_FLOAT_EQ(array[3 * 11 + 2].r, 255.0f);
    EXPECT_FLOAT_EQ(array[3 * 11 + 2].g, 160.0f);
    EXPECT_FLOAT_EQ(array[3 * 11 + 2].b, 0.0f);
    TdnShaderGlow::overlayShaderGlow(add, 1.5f, 6.0f, 6.0f);
    EXPECT_FLOAT_EQ(array[6 * 11 + 5].r, 10.0f);
    EXPECT_FLOAT_EQ(array[6 * 11 + 5].g, 10.0f);
}

TEST_F(ShaderGlowNode, TheShaderListSaysWhetherAnyShaderGlows) {
    EXPECT_FALSE(TdnShaderGlow::isShaderGlowOn(graph));
    run("node lambert hot\nset hot.glowIntensity 0.5\n");
    EXPECT_TRUE(TdnShaderGlow::isShaderGlowOn(graph));
    run("set hot.glowIntensity 0\nnode lambert driver\n"
        "connect driver.diffuse hot.glowIntensity\n");
    // Connected: glow driven by a network counts as on.
    EXPECT_TRUE(TdnShaderGlow::isShaderGlowOn(graph));
}
