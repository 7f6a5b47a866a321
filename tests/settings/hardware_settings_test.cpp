// The hardware settings nodes: their schemas' telling values, the
// resolution text and the alpha warning of the old hardware globals, the
// copy of its settings, and the viewport globals' motion blur messages.

#include <gtest/gtest.h>

#include <sstream>

#include "host/graph.h"
#include "host/qsl/interpreter.h"
#include "settings/hardware_render_globals.h"
#include "settings/hw_render_globals.h"
#include "settings/vpr_render_globals.h"
#include "support/message_capture.h"

namespace {

struct Scene {
    TdependGraph g;
    std::ostringstream out;
    orvo_test::MessageCapture messages;
    void run(const std::string& text) { qsl::Interpreter(g, out).runText(text, "s.qsl"); }
    std::string words(const std::string& plug) {
        std::string all;
        for (const std::string& w : g.evaluateToWords(g.findPlug(plug)))
            all += (all.empty() ? "" : " ") + w;
        return all;
    }
};

} // namespace

TEST(HardwareSettings, ResolutionTextIsANameOrFourWords) {
    using H = TdnHardwareRenderGlobals;
    EXPECT_EQ(H::checkResolution("ntsc"), "");
    EXPECT_EQ(H::checkResolution("hd 1920 1080 1.777"), "");
    EXPECT_EQ(H::checkResolution("big 32767 -32768 1"), "") << "16-bit limits";
    EXPECT_NE(H::checkResolution("hd 1920 1080").find("'hd 1920 1080'"), std::string::npos);
    EXPECT_NE(H::checkResolution("").find("expected a name alone"), std::string::npos);
    EXPECT_NE(H::checkResolution("hd 32768 1080 1").find("whole numbers"), std::string::npos);
    EXPECT_NE(H::checkResolution("hd 19.5 1080 1").find("whole numbers"), std::string::npos);
    EXPECT_NE(H::checkResolution("hd 1920 1080 wide").find("aspect"), std::string::npos);

    // Through the node: a bad text is refused and the good one stays.
    Scene s;
    s.run("node hwRenderGlobals defaultHardwareRenderGlobals\n"
          "set defaultHardwareRenderGlobals.resolution \"hd 1920 1080 1.777\"\n");
    s.run("set defaultHardwareRenderGlobals.resolution \"hd 1920\"\n");
    EXPECT_TRUE(s.messages.contains("Invalid resolution 'hd 1920'")) << s.messages.text();
    TdnHardwareRenderState state;
    ASSERT_TRUE(TdnHardwareRenderGlobals::state(state, &s.g));
    EXPECT_EQ(state.resolution, "hd 1920 1080 1.777");
}

TEST(HardwareSettings, HardwareAlphaWithoutAnAlphaBufferWarnsAndIsKept) {
    Scene s;
    s.run("node hwRenderGlobals defaultHardwareRenderGlobals\n");
    TdnHardwareRenderGlobals::sPortHasAlphaBuffer = false;
    s.run("set defaultHardwareRenderGlobals.alphaSource \"Luminance\"\n");
    EXPECT_EQ(s.messages.count(TcommandEngine::Severity::Warning), 0u);
    s.run("set defaultHardwareRenderGlobals.alphaSource \"Hardware Alpha\"\n");
    TdnHardwareRenderGlobals::sPortHasAlphaBuffer = true;
    EXPECT_EQ(s.messages.count(TcommandEngine::Severity::Warning), 1u);
    EXPECT_TRUE(s.messages.contains("no alpha buffer"));
    TdnHardwareRenderState state;
    ASSERT_TRUE(TdnHardwareRenderGlobals::state(state, &s.g));
    EXPECT_EQ(state.alphaSource, 1);
    // The rest are the schema's defaults.
    EXPECT_EQ(state.renderPasses, 3);
    EXPECT_EQ(state.extension, 3);
    EXPECT_EQ(state.imageFormat, 7);
    EXPECT_EQ(state.drawStyle, 3);
    EXPECT_EQ(state.endFrame, 10);
    EXPECT_TRUE(state.texturing);
    EXPECT_FLOAT_EQ(state.edgeSmoothing, 1.0f);
    // Only the node of that name counts.
    Scene other;
    other.run("node hwRenderGlobals someOther\n");
    EXPECT_FALSE(TdnHardwareRenderGlobals::state(state, &other.g));
}

TEST(HardwareSettings, TheHardwareRenderersSettings) {
    Scene s;
    TdnHwRenderGlobals* hw = TdnHwRenderGlobals::createCurrentGlobals(s.g);
    EXPECT_EQ(TdnHwRenderGlobals::createCurrentGlobals(s.g), hw) << "made once";
    EXPECT_EQ(TdnHwRenderGlobals::currentGlobals(&s.g), hw);
    EXPECT_EQ(hw->name(), "hardwareRenderGlobals");
    // "rle " as a big-endian number: 0x72 0x6C 0x65 0x20 = 1919706400.
    EXPECT_EQ(s.words("hardwareRenderGlobals.hardwareCodec"), "1919706400");
    EXPECT_EQ(s.words("hardwareRenderGlobals.mes"), "1"); // "1 Sample"
    EXPECT_TRUE(hw->isHighQualityLightingEnabled());
    hw->disableHighQualityLighting();
    EXPECT_FALSE(hw->isHighQualityLightingEnabled());
    EXPECT_FLOAT_EQ(hw->getLightIntensityThreshold(), 0.001f);
    hw->setLightIntensityThreshold(5.0f);
    EXPECT_FLOAT_EQ(hw->getLightIntensityThreshold(), 1.0f) << "limited to 1";
    EXPECT_TRUE(hw->graphicsHardwareGeometryCaching(0));
    hw->setShadowLinkMode(1);
    EXPECT_TRUE(hw->shadowsObeyShadowLinking());
    EXPECT_FALSE(hw->shadowsObeyLightLinking());
    hw->setShadowLinkMode(2);
    EXPECT_FALSE(hw->shadowsObeyShadowLinking());
    EXPECT_TRUE(hw->shadowsObeyLightLinking());
}

TEST(HardwareSettings, ViewportGlobalsTellWhenMotionBlurMoves) {
    Scene s;
    TdnVPRRenderGlobals* vpr = TdnVPRRenderGlobals::createCurrentGlobals(s.g);
    EXPECT_EQ(s.words("hardwareRenderingGlobals.renderMode"), "4"); // Shaded And Textured
    EXPECT_EQ(s.words("hardwareRenderingGlobals.ta"), "1");         // Object Sorting
    EXPECT_EQ(s.words("hardwareRenderingGlobals.ssaoFilter"), "\"GaussVariableFilter1\"");
    EXPECT_EQ(s.words("hardwareRenderingGlobals.motionBlurAtlasSize"), "8 4");
    EXPECT_EQ(s.words("hardwareRenderingGlobals.hwFogColor"), "0.5 0.5 0.5");

    std::vector<bool> heard;
    vpr->addMotionblurListener([&](const TVPRrenderGlobalsMotionblurModifiedMsg& m) {
        EXPECT_EQ(m.node, vpr);
        heard.push_back(m.enabled);
    });
    s.run("set hardwareRenderingGlobals.motionBlurEnable true\n");
    EXPECT_EQ(heard, std::vector<bool>{true});
    EXPECT_TRUE(vpr->isMotionblurOnOrAnimated());
    s.run("set hardwareRenderingGlobals.motionBlurEnable false\n");
    EXPECT_FALSE(vpr->isMotionblurOnOrAnimated());
    // A connection may animate it: on while connected; breaking it tells
    // the stored value.
    s.run("node hwRenderGlobals h\nconnect h.grid hardwareRenderingGlobals.motionBlurEnable\n");
    EXPECT_EQ(heard, (std::vector<bool>{true, false, true}));
    EXPECT_TRUE(vpr->isMotionblurOnOrAnimated());
    s.run("disconnect h.grid hardwareRenderingGlobals.motionBlurEnable\n");
    EXPECT_EQ(heard, (std::vector<bool>{true, false, true, false}));

    vpr->setRenderOverrideName("myOverride");
    EXPECT_EQ(vpr->getString(TdnVPRRenderGlobals::aRenderOverrideName), "myOverride");
    s.run("set hardwareRenderingGlobals.otfva \"1 0 1\"\n");
    EXPECT_EQ(vpr->getInt32Array(TdnVPRRenderGlobals::aObjectTypeFilterValueArray),
              (std::vector<int32_t>{1, 0, 1}));
}
