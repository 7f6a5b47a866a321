// A file texture's input colour: the file rules choose the space a file is
// read in, the node may name its own, and an unknown space reads raw with
// one warning.

#include <gtest/gtest.h>

#include <OpenImageIO/imageio.h>

#include <sstream>

#include "colour/color_mgt_globals.h"
#include "host/colour/file_rules.h"
#include "host/env.h"
#include "host/qsl/interpreter.h"
#include "support/message_capture.h"
#include "support/temp_folder.h"
#include "textures/file_texture.h"
#include "textures/texture_test_support.h"

namespace {

using orvo_test::eval;
using orvo_test::set;

void grey(const std::string& path, uint8_t value) {
    auto out = OIIO::ImageOutput::create(path);
    ASSERT_TRUE(out && out->open(path, OIIO::ImageSpec(1, 1, 3, OIIO::TypeDesc::UINT8)));
    const uint8_t px[3] = {value, value, value};
    ASSERT_TRUE(out->write_image(OIIO::TypeDesc::UINT8, px));
    out->close();
}

// A scene (with its colour settings) and a file node "t" sampled at its
// centre with the filter off.
struct Scene {
    TdependGraph g;
    std::ostringstream out;
    TdnFileTexture* file = nullptr;
    Scene() {
        qsl::Interpreter(g, out).runText("node file t\nset t.filterType \"Off\"\n", "s.qsl");
        file = static_cast<TdnFileTexture*>(g.findNode("t"));
        set(g, "t.uvCoord", std::vector<double>{0.5, 0.5});
    }
    float red() { return eval(g, "t.outColor").at(0); }
};

} // namespace

TEST(FileTextureColour, TheRulesChooseTheSpaceAndTheNodeMayOverride) {
    if (OrvoEnvIsSet("OCIO"))
        GTEST_SKIP() << "the OCIO variable is set in this environment";
    TcolorMgtFileRules::instance().restoreDefaults();
    TempFolder dir;
    const std::string png = dir.file("grey.png");
    grey(png, 128);
    Scene s;
    set(s.g, "t.fileTextureName", std::vector<std::string>{png});
    // 8-bit, Default rule, sRGB: ((128/255 + 0.055) / 1.055)^2.4 = 0.2158605.
    EXPECT_NEAR(s.red(), 0.2158605f, 2e-6f);
    auto prov = s.file->colourProvenance();
    ASSERT_EQ(prov.size(), 1u);
    EXPECT_EQ(prov[0].colorSpace, "sRGB");
    EXPECT_EQ(prov[0].rule, "Default");
    EXPECT_EQ(prov[0].file, png);

    // Rendering in ACEScg: the same grey, and grey stays grey (rows of the
    // matrix sum to one).
    TdnColorMgtGlobals::find(s.g)->SetWorkingSpaceName("ACEScg");
    set(s.g, "t.uvCoord", std::vector<double>{0.5, 0.5});
    EXPECT_NEAR(s.red(), 0.2158605f, 1e-5f);
    TdnColorMgtGlobals::find(s.g)->SetWorkingSpaceName("scene-linear Rec.709-sRGB");

    // A rule of the user's by name: this file is data.
    std::string why;
    ASSERT_TRUE(TcolorMgtFileRules::instance().addRule({"Masks", "grey.*", "*", "Raw"}, 0, why));
    set(s.g, "t.uvCoord", std::vector<double>{0.5, 0.5});
    EXPECT_NEAR(s.red(), 128.0f / 255.0f, 1e-6f);
    EXPECT_EQ(s.file->colourProvenance().at(0).rule, "Masks");
    TcolorMgtFileRules::instance().restoreDefaults();

    // The node's own space counts only when it ignores the rules.
    set(s.g, "t.colorSpace", std::vector<std::string>{"Raw"});
    set(s.g, "t.uvCoord", std::vector<double>{0.5, 0.5});
    EXPECT_NEAR(s.red(), 0.2158605f, 2e-6f);
    set(s.g, "t.ignoreColorSpaceFileRules", std::vector<std::string>{"true"});
    EXPECT_NEAR(s.red(), 128.0f / 255.0f, 1e-6f);
    EXPECT_EQ(s.file->colourProvenance().at(0).rule, "colorSpace attribute");

    // An unknown space warns once, naming node, space and file, and reads raw.
    orvo_test::MessageCapture messages;
    set(s.g, "t.colorSpace", std::vector<std::string>{"Kodak 2383"});
    EXPECT_NEAR(s.red(), 128.0f / 255.0f, 1e-6f);
    set(s.g, "t.uvCoord", std::vector<double>{0.25, 0.25});
    EXPECT_NEAR(s.red(), 128.0f / 255.0f, 1e-6f);
    EXPECT_EQ(messages.count(TcommandEngine::Severity::Warning), 1u) << messages.text();
    EXPECT_TRUE(messages.contains("t: unknown colour space 'Kodak 2383' for " + png))
        << messages.text();

    // Colour management off on the node: raw whatever the rules say.
    set(s.g, "t.ignoreColorSpaceFileRules", std::vector<std::string>{"false"});
    set(s.g, "t.colorManagementEnabled", std::vector<std::string>{"false"});
    EXPECT_NEAR(s.red(), 128.0f / 255.0f, 1e-6f);
}
