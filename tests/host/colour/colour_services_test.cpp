// The host's colour services over the built-in configuration: conversions
// worked out from the sRGB and Rec.709 formulas, the file rules' order and
// defaults, and policy files.

#include <gtest/gtest.h>

#include <algorithm>

#include "host/colour/catalog.h"
#include "host/colour/file_rules.h"
#include "host/colour/policy.h"
#include "support/temp_folder.h"
#include "support/tiny_ocio.h"

namespace {

bool has(const std::vector<std::string>& names, const std::string& name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

std::array<float, 3> convert(const std::string& from, const std::string& to,
                             std::array<float, 3> rgb) {
    TcolourProcessor p;
    std::string why;
    EXPECT_TRUE(TcolorMgtCatalog::instance().processor(from, to, p, why)) << why;
    p.apply(rgb.data());
    return rgb;
}

// The file rules are process-wide: every test starts from the defaults.
class FileRules : public ::testing::Test {
protected:
    void SetUp() override { rules.restoreDefaults(); }
    void TearDown() override { rules.restoreDefaults(); }
    TcolorMgtFileRules& rules = TcolorMgtFileRules::instance();
};

} // namespace

TEST(ColourCatalog, BuiltInConversionsRoundTrip) {
    std::string why;
    ASSERT_TRUE(TcolorMgtCatalog::instance().load("", why)) << why;
    EXPECT_TRUE(TcolorMgtCatalog::instance().usesBuiltin());
    // sRGB 0.5: ((0.5 + 0.055) / 1.055)^2.4 = 0.214041; 0.02 lies on the
    // straight part, 0.02 / 12.92 = 0.001548.
    auto lin = convert("sRGB", "scene-linear Rec.709-sRGB", {0.5f, 0.02f, 1.0f});
    EXPECT_NEAR(lin[0], 0.214041f, 2e-6f);
    EXPECT_NEAR(lin[1], 0.001548f, 2e-6f);
    EXPECT_NEAR(lin[2], 1.0f, 1e-6f);
    auto back = convert("scene-linear Rec.709-sRGB", "sRGB", lin);
    EXPECT_NEAR(back[0], 0.5f, 2e-6f);
    EXPECT_NEAR(back[1], 0.02f, 2e-6f);
    // Rec.709 primaries into ACEScg: white stays white, pure red takes the
    // first column of the Bradford-adapted matrix.
    auto red = convert("scene-linear Rec.709-sRGB", "ACEScg", {1.0f, 0.0f, 0.0f});
    EXPECT_NEAR(red[0], 0.613097f, 1e-5f);
    EXPECT_NEAR(red[1], 0.070194f, 1e-5f);
    EXPECT_NEAR(red[2], 0.020616f, 1e-5f);
    auto white = convert("scene-linear Rec.709-sRGB", "ACEScg", {1.0f, 1.0f, 1.0f});
    EXPECT_NEAR(white[0], 1.0f, 1e-5f);
    EXPECT_NEAR(white[2], 1.0f, 1e-5f);
    // Raw is data: nothing changes it.
    TcolourProcessor raw;
    EXPECT_TRUE(TcolorMgtCatalog::instance().processor("Raw", "Raw", raw, why));
    EXPECT_TRUE(raw.isNoOp());

    // The Rec.709 display's standard view is a pure 2.4 power:
    // 0.5^(1/2.4) = 0.749154.
    TcolourProcessor view;
    ASSERT_TRUE(TcolorMgtCatalog::instance().viewProcessor("scene-linear Rec.709-sRGB",
                                                           "Standard (Rec.709)", view, why))
        << why;
    float grey[3] = {0.5f, 0.5f, 0.5f};
    view.apply(grey);
    EXPECT_NEAR(grey[0], 0.749154f, 1e-5f);

    // Unknown names are refused with the name.
    EXPECT_FALSE(TcolorMgtCatalog::instance().processor("sRGB", "Log", view, why));
    EXPECT_NE(why.find("'Log'"), std::string::npos) << why;
    EXPECT_FALSE(TcolorMgtCatalog::instance().viewProcessor("sRGB", "Standard", view, why));
}

TEST(ColourCatalog, ListsAndABadFileFallBackToTheBuiltInOne) {
    TcolorMgtCatalog& c = TcolorMgtCatalog::instance();
    std::string why;
    ASSERT_TRUE(c.load("", why));
    const auto working = c.workingSpaceNames();
    EXPECT_EQ(working,
              (std::vector<std::string>{"scene-linear Rec.709-sRGB", "ACEScg", "ACES2065-1"}));
    const auto views = c.viewTransformNames();
    EXPECT_TRUE(has(views, "Standard (sRGB)"));
    EXPECT_TRUE(has(views, "Raw (sRGB)"));
    EXPECT_TRUE(has(views, "Standard (Rec.709)"));
    EXPECT_TRUE(has(c.colorSpaceNames(), "sRGB"));
    EXPECT_FALSE(has(working, "sRGB")) << "a display encoding is no rendering space";

    TempFolder dir;
    const std::string bad = dir.write("broken.ocio", "ocio_profile_version: 2\ncolorspaces: [\n");
    EXPECT_FALSE(c.load(bad, why));
    EXPECT_NE(why.find(bad), std::string::npos) << why;
    EXPECT_TRUE(c.usesBuiltin());
    EXPECT_TRUE(c.hasColorSpace("ACEScg")) << "the built-in configuration is in force";
    EXPECT_FALSE(c.load(dir.file("missing.ocio"), why));
    EXPECT_NE(why.find("missing.ocio"), std::string::npos) << why;

    // A configuration of the user's own replaces the built-in one.
    const std::string own = dir.write("own.ocio", kTinyOcioConfig);
    ASSERT_TRUE(c.load(own, why)) << why;
    EXPECT_FALSE(c.usesBuiltin());
    EXPECT_EQ(c.configPath(), own);
    EXPECT_EQ(c.viewTransformNames(), std::vector<std::string>{"Plain (Screen)"});
    EXPECT_FALSE(c.hasColorSpace("sRGB"));
    ASSERT_TRUE(c.load("", why));
}

TEST_F(FileRules, FirstMatchWinsAndDefaultGoesByWhatTheFileHolds) {
    auto match = [&](const std::string& path, bool isFloat, const std::string& def = {}) {
        const auto m = rules.evaluate(path, isFloat, def);
        return m.rule + ":" + m.colorSpace;
    };
    EXPECT_EQ(match("/t/wood.exr", true), "EXR:scene-linear Rec.709-sRGB");
    EXPECT_EQ(match("/t/WOOD.EXR", true), "EXR:scene-linear Rec.709-sRGB") << "any case";
    EXPECT_EQ(match("/t/sky.hdr", true), "HDR:scene-linear Rec.709-sRGB");
    // The policy's defaults: 8-bit files are sRGB, float ones scene-linear.
    EXPECT_EQ(match("/t/wood.png", false), "Default:sRGB");
    EXPECT_EQ(match("/t/wood.tif", true), "Default:scene-linear Rec.709-sRGB");
    // The scene's default input space wins over the policy's.
    EXPECT_EQ(match("/t/wood.png", false, "ACEScg"), "Default:ACEScg");
    // A rule of a name pattern matches the file's name; one with a '/' the
    // whole path.
    std::string why;
    ASSERT_TRUE(rules.addRule({"Linear by name", "*_lin.*", "*", "ACEScg"}, 0, why));
    ASSERT_TRUE(rules.addRule({"Data", "*/data/*", "png", "Raw"}, 1, why));
    EXPECT_EQ(match("/t/wood_lin.exr", true), "Linear by name:ACEScg") << "before EXR";
    EXPECT_EQ(match("/t/data/normal.png", false), "Data:Raw");
    EXPECT_EQ(match("/t/data/normal.jpg", false), "Default:sRGB") << "the extension too";
    EXPECT_EQ(match("/t/normal.png", false), "Default:sRGB");
    // Default stays last whatever the position asked; it cannot be added or
    // removed; a rule of a known name replaces it.
    ASSERT_TRUE(rules.addRule({"Late", "*", "png", "ACEScg"}, 99, why));
    const auto list = rules.rules();
    ASSERT_EQ(list.size(), 6u);
    EXPECT_EQ(list[4].name, "Late");
    EXPECT_EQ(list.back().name, "Default");
    EXPECT_EQ(match("/t/normal.png", false), "Late:ACEScg");
    EXPECT_FALSE(rules.addRule({"Default", "*", "*", "Raw"}, 0, why));
    EXPECT_FALSE(rules.addRule({"", "*", "*", "Raw"}, 0, why));
    EXPECT_FALSE(rules.removeRule("Default"));
    EXPECT_TRUE(rules.removeRule("Late"));
    EXPECT_FALSE(rules.removeRule("Late"));
    rules.setDefaultSpaces("Raw", "ACEScg");
    EXPECT_EQ(match("/t/normal.png", false), "Default:Raw");
    EXPECT_EQ(match("/t/normal.tif", true), "Default:ACEScg");
}

TEST(ColourPolicy, ReadsSettingsAndRulesAndNamesTheBadLine) {
    TempFolder dir;
    const std::string file = dir.write("studio.policy", R"(# studio defaults
colorManagementEnabled = true
configFileEnabled = off
workingSpace = ACEScg
outputTransformEnabled = 1
outputTransformName = Raw (sRGB)
defaultInput8Bit = Raw
rule = Normals | *_nrm.* | * | Raw
rule = Plates | */plates/* | dpx | ACES2065-1
)");
    const TcolorMgtPolicyData p = TcolorMgtPolicy::ReadPolicy(file);
    EXPECT_TRUE(p.cmEnabled);
    EXPECT_FALSE(p.configFileEnabled);
    EXPECT_EQ(p.workingSpace, "ACEScg");
    EXPECT_TRUE(p.outputTransformEnabled);
    EXPECT_EQ(p.outputTransformName, "Raw (sRGB)");
    EXPECT_TRUE(p.outputUseViewTransform) << "unset keys keep their defaults";
    EXPECT_EQ(p.defaultInput8Bit, "Raw");
    ASSERT_EQ(p.rules.size(), 2u);
    EXPECT_EQ(p.rules[1].pattern, "*/plates/*");
    EXPECT_EQ(p.rules[1].extension, "dpx");
    EXPECT_EQ(p.rules[1].colorSpace, "ACES2065-1");

    const auto error = [&](const std::string& text) {
        try {
            TcolorMgtPolicy::ReadPolicy(dir.write("bad.policy", text));
        } catch (const std::string& why) {
            return why;
        }
        return std::string("no error");
    };
    EXPECT_NE(error("\n\nworkingSpac = ACEScg\n").find("bad.policy:3: unknown key 'workingSpac'"),
              std::string::npos);
    EXPECT_NE(error("cmEnabled\n").find(":1: expected 'key = value'"), std::string::npos);
    EXPECT_NE(error("configFileEnabled = maybe\n").find("takes true or false"), std::string::npos);
    EXPECT_NE(error("rule = A | *\n").find("a rule is"), std::string::npos);
    EXPECT_NE(error("").find("no error"), std::string::npos);
    try {
        TcolorMgtPolicy::ReadPolicy(dir.file("none.policy"));
        FAIL();
    } catch (const std::string& why) {
        EXPECT_NE(why.find("none.policy"), std::string::npos);
    }
}
