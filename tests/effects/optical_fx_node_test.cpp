#include <gtest/gtest.h>

#include "effects/optical_fx.h"
#include "framework/render_info.h"
#include "host/graph.h"
#include "host/qsl/interpreter.h"
#include "host/scene/matrix.h"

// The opticalFX node: its light through lightConnection, placed on the
// picture and coloured, once a frame.

namespace {

class OpticalFXNode : public ::testing::Test {
protected:
    void SetUp() override {
        TdependGraph::fsCurrentGraph = &graph;
        TrenderInfo::getRenderInfo(graph);
        run(R"(
node transform lamp
set lamp.translate 1 0.5 -10
node pointLight lampShape -parent lamp
set lampShape.color 1 0.5 0
set lampShape.intensity 2
node opticalFX fx
connect lampShape.message fx.lightConnection
)");
        fx = static_cast<TdnOpticalFX*>(graph.findNode("fx"));
    }
    void run(const std::string& text) { qsl::Interpreter(graph).runText(text, "fx.qsl"); }

    TdependGraph graph;
    TdnOpticalFX* fx = nullptr;
    // Eye space is world space; the image plane at distance 1 is 1 wide and
    // 0.5 high.
    const orvo::post::TpostView view{64, 32, 0.5, 0.25};
};

} // namespace

TEST_F(OpticalFXNode, PlacesAndColoursItsLight) {
    ASSERT_NE(fx, nullptr);
    ASSERT_TRUE(fx->reset(T4dDblMatrix::identity(), view));
    const orvo::post::TopticalFXLight& light = fx->placedLight();
    // (1, 0.5, -10): on the plane at distance 1, (0.1, 0.05); over the
    // half sizes 0.5 and 0.25: (0.2, 0.2).
    EXPECT_NEAR(light.px, 0.2f, 1e-6f);
    EXPECT_NEAR(light.py, 0.2f, 1e-6f);
    // Colour (1, 0.5, 0) at intensity 2, in 0..255 steps: (510, 255, 0).
    EXPECT_FLOAT_EQ(light.colour[0], 510.0f);
    EXPECT_FLOAT_EQ(light.colour[1], 255.0f);
    EXPECT_FLOAT_EQ(light.colour[2], 0.0f);
    // The spreads come with the reset: linear glow, g = 1/30.
    EXPECT_NEAR(fx->params().G, -1.0000370, 1e-7);

    // ignoreLight: white, whatever the light; lightColor and visibility
    // still tint it: 255 * 0.5 * 0.4 = 51 in red.
    run("set fx.ignoreLight true\nset fx.lightColor 0.5 1 1\nset fx.visibility 0.4 1 1\n");
    ASSERT_TRUE(fx->reset(T4dDblMatrix::identity(), view));
    EXPECT_FLOAT_EQ(fx->placedLight().colour[0], 51.0f);
    EXPECT_FLOAT_EQ(fx->placedLight().colour[2], 255.0f);
}

TEST_F(OpticalFXNode, OffBehindOrUnconnectedAddsNothing) {
    EXPECT_EQ(TopticalFXarray::collect(graph).length(), 1u);
    run("set fx.active false\n");
    EXPECT_FALSE(fx->reset(T4dDblMatrix::identity(), view));
    EXPECT_EQ(TopticalFXarray::collect(graph).length(), 0u);
    run("set fx.active true\nset lamp.translate 0 0 5\n");
    EXPECT_FALSE(fx->reset(T4dDblMatrix::identity(), view)); // behind the eye
    EXPECT_TRUE(fx->adjustViewport().empty());
    run("disconnect lampShape.message fx.lightConnection\n");
    EXPECT_EQ(fx->light(), nullptr);
    EXPECT_FALSE(fx->reset(T4dDblMatrix::identity(), view));
}
