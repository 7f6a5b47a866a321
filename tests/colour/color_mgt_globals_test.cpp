// The scene's colour settings node: the names it starts with, the setters
// that refuse bad names and put the former value back, the rules that tie
// the output to the view, configuration files, policies, and what a scene
// load does to old names.

#include "colour/color_mgt_globals.h"
#include "colour/render_utilities.h"

#include <gtest/gtest.h>

#include <sstream>

#include "host/app_mode.h"
#include "host/colour/file_rules.h"
#include "host/env.h"
#include "host/graph.h"
#include "host/option_vars.h"
#include "host/qsl/interpreter.h"
#include "settings/vpr_render_globals.h"
#include "support/message_capture.h"
#include "support/temp_folder.h"
#include "support/tiny_ocio.h"

namespace {

constexpr const char* kLinear = "scene-linear Rec.709-sRGB";
constexpr const char* kStandard = "Standard (sRGB)";

class ColourGlobals : public ::testing::Test {
protected:
    void SetUp() override {
        if (OrvoEnvIsSet("OCIO"))
            GTEST_SKIP() << "the OCIO variable is set in this environment";
        run("");
        cm = TdnColorMgtGlobals::find(graph);
        ASSERT_NE(cm, nullptr);
    }
    void TearDown() override { TcolorMgtFileRules::instance().restoreDefaults(); }
    void run(const std::string& text) { qsl::Interpreter(graph, out).runText(text, "s.qsl"); }
    // The message a setter throws, or "no error".
    template <class F>
    std::string thrown(F&& f) {
        try {
            f();
        } catch (const std::string& why) {
            return why;
        }
        return "no error";
    }

    TdependGraph graph;
    std::ostringstream out;
    orvo_test::MessageCapture messages;
    TdnColorMgtGlobals* cm = nullptr;
};

} // namespace

TEST_F(ColourGlobals, ANewSceneStartsManagedWithTheNativeDefaults) {
    EXPECT_EQ(cm->name(), "defaultColorMgtGlobals");
    EXPECT_EQ(TcolorMgtPrefs::GetInstance(), cm);
    EXPECT_TRUE(cm->CMIsEnabled());
    EXPECT_FALSE(cm->CMConfigFileIsEnabled());
    EXPECT_EQ(cm->GetMode(), 0);
    EXPECT_EQ(cm->GetWorkingSpaceName(), kLinear);
    EXPECT_EQ(cm->GetViewTransformName(), kStandard);
    EXPECT_EQ(cm->GetOutputTransformName(), kStandard);
    EXPECT_EQ(cm->GetPlayblastOutputTransformName(), kStandard);
    EXPECT_FALSE(cm->IsOutputTransformEnabled());
    EXPECT_TRUE(cm->IsPlayblastOutputTransformEnabled());
    EXPECT_TRUE(cm->OutputUseViewTransform());
    EXPECT_FALSE(cm->HasIncompleteSettings());
    EXPECT_TRUE(cm->CheckInvariants());
    // The view transform of mid grey: 0.214041 linear shows as 0.5.
    EXPECT_NEAR(cm->GetViewTransformedColor({0.214041f, 0.0f, 1.0f}).x, 0.5f, 1e-5f);
    EXPECT_NEAR(cm->GetReverseViewTransformedColor({0.5f, 0.0f, 1.0f}).x, 0.214041f, 1e-5f);
    // One node a scene: a second ensure finds it.
    EXPECT_EQ(TdnColorMgtGlobals::ensure(graph), cm);
}

TEST_F(ColourGlobals, NameSettersRefuseUnknownNamesAndKeepTheFormerOne) {
    const auto before = cm->trigger(TdnColorMgtGlobals::kViewTransformChanged).fireCount();
    EXPECT_NE(thrown([&] { cm->SetViewTransformName("Filmic (sRGB)"); }).find("'Filmic (sRGB)'"),
              std::string::npos);
    EXPECT_NE(thrown([&] { cm->SetViewTransformName(""); }), "no error");
    EXPECT_EQ(cm->GetViewTransformName(), kStandard);
    EXPECT_NE(thrown([&] { cm->SetWorkingSpaceName("sRGB"); }).find("'sRGB'"), std::string::npos)
        << "a display encoding is no rendering space";
    EXPECT_EQ(cm->GetWorkingSpaceName(), kLinear);
    EXPECT_EQ(cm->trigger(TdnColorMgtGlobals::kViewTransformChanged).fireCount(), before);

    // A good name: written, the trigger fires once, the output follows.
    std::vector<TcolorMgtMsg> sent;
    cm->addListener([&](TcolorMgtMsg m) { sent.push_back(m); });
    cm->SetViewTransformName("Raw (sRGB)");
    EXPECT_EQ(cm->GetViewTransformName(), "Raw (sRGB)");
    EXPECT_EQ(cm->GetOutputTransformName(), "Raw (sRGB)");
    EXPECT_EQ(cm->GetPlayblastOutputTransformName(), "Raw (sRGB)");
    EXPECT_EQ(cm->trigger(TdnColorMgtGlobals::kViewTransformChanged).fireCount(), before + 1);
    ASSERT_FALSE(sent.empty());
    EXPECT_EQ(sent.front(), TcolorMgtMsg::kPrefsViewTransformChanged);
    // The same name again changes nothing.
    cm->SetViewTransformName("Raw (sRGB)");
    EXPECT_EQ(cm->trigger(TdnColorMgtGlobals::kViewTransformChanged).fireCount(), before + 1);

    cm->SetWorkingSpaceName("ACEScg");
    EXPECT_EQ(cm->GetWorkingSpaceName(), "ACEScg");
}

TEST_F(ColourGlobals, TheOutputFollowsTheViewUntilItIsGivenOneOfItsOwn) {
    const auto outputFired = [&] {
        return cm->trigger(TdnColorMgtGlobals::kOutputChanged).fireCount();
    };
    // Naming the view's own transform still stops the following, and says so.
    const auto n = outputFired();
    cm->SetOutputTransformName(kStandard);
    EXPECT_FALSE(cm->OutputUseViewTransform());
    EXPECT_EQ(outputFired(), n + 1);
    cm->SetOutputTransformName("Standard (Rec.709)");
    cm->SetViewTransformName("Raw (sRGB)");
    EXPECT_EQ(cm->GetOutputTransformName(), "Standard (Rec.709)");
    EXPECT_EQ(cm->GetPlayblastOutputTransformName(), "Raw (sRGB)") << "the playblast follows";

    // Following again copies the view's name.
    cm->SetOutputUseViewTransform();
    EXPECT_TRUE(cm->OutputUseViewTransform());
    EXPECT_EQ(cm->GetOutputTransformName(), "Raw (sRGB)");

    // A colour conversion is never a view transform; its output default is
    // the native input space.
    cm->SetOutputTransformUseColorConversion(true);
    EXPECT_FALSE(cm->OutputUseViewTransform());
    EXPECT_EQ(cm->GetOutputTransformName(), "sRGB");
    // Back off: it follows the view again.
    cm->SetOutputTransformUseColorConversion(false);
    EXPECT_TRUE(cm->OutputUseViewTransform());
    EXPECT_EQ(cm->GetOutputTransformName(), "Raw (sRGB)");
}

TEST_F(ColourGlobals, ConfigFileSettersThrowAndRestore) {
    TempFolder dir;
    const std::string own =
        dir.write("own.ocio", std::string(kTinyOcioConfig) +
                                  "  - !<ColorSpace> {name: film, encoding: scene-linear}\n");
    // On with no path: refused, nothing changes.
    EXPECT_NE(thrown([&] { cm->SetCMConfigFileEnable(true); }).find("configFilePath is empty"),
              std::string::npos);
    EXPECT_FALSE(cm->CMConfigFileIsEnabled());

    // A path with the file off is only remembered.
    cm->SetConfigFilePath(own);
    EXPECT_EQ(cm->GetMode(), 0);
    cm->SetCMConfigFileEnable(true);
    EXPECT_EQ(cm->GetMode(), 1);
    // In a configuration's mode the defaults are the first names of the lists.
    EXPECT_EQ(cm->GetViewTransformName(), "Plain (Screen)");
    EXPECT_EQ(cm->GetWorkingSpaceName(), "lin");
    EXPECT_EQ(cm->GetOutputTransformName(), "Plain (Screen)");

    // Emptying the path while it is in use is refused.
    EXPECT_NE(thrown([&] { cm->SetConfigFilePath(""); }), "no error");
    EXPECT_EQ(cm->GetConfigFilePath(), own);
    // A path that cannot be loaded: the error names it, the old path and its
    // configuration come back, the trigger fired all the same.
    const auto fired = cm->trigger(TdnColorMgtGlobals::kConfigFilePathChanged).fireCount();
    const std::string missing = dir.file("gone.ocio");
    EXPECT_NE(thrown([&] { cm->SetConfigFilePath(missing); }).find(missing), std::string::npos);
    EXPECT_EQ(cm->GetConfigFilePath(), own);
    EXPECT_EQ(cm->GetMode(), 1);
    EXPECT_EQ(cm->GetWorkingSpaceName(), "lin");
    EXPECT_EQ(cm->trigger(TdnColorMgtGlobals::kConfigFilePathChanged).fireCount(), fired + 1);

    // Off again: the built-in configuration and the native defaults.
    cm->SetCMConfigFileEnable(false);
    EXPECT_EQ(cm->GetMode(), 0);
    EXPECT_EQ(cm->GetWorkingSpaceName(), kLinear);
    EXPECT_EQ(cm->GetViewTransformName(), kStandard);
}

TEST_F(ColourGlobals, ManagementOnTurnsTheViewportsFloatTargetsOnAndOnlyItsOwnOff) {
    auto* vpr = TdnVPRRenderGlobals::createCurrentGlobals(graph);
    cm->SetCMEnable(false);
    cm->SetCMEnable(true);
    EXPECT_TRUE(vpr->getBoolean(TdnVPRRenderGlobals::aFloatingPointRTEnable));
    cm->SetCMEnable(false);
    EXPECT_FALSE(vpr->getBoolean(TdnVPRRenderGlobals::aFloatingPointRTEnable));
    // Turned on by someone else: left on.
    vpr->setBoolean(TdnVPRRenderGlobals::aFloatingPointRTEnable, true);
    cm->SetCMEnable(true);
    cm->SetCMEnable(false);
    EXPECT_TRUE(vpr->getBoolean(TdnVPRRenderGlobals::aFloatingPointRTEnable));
    const auto fired = cm->trigger(TdnColorMgtGlobals::kEnabledChanged).fireCount();
    cm->SetCMEnable(false);
    EXPECT_EQ(cm->trigger(TdnColorMgtGlobals::kEnabledChanged).fireCount(), fired)
        << "no change, no trigger";
}

TEST_F(ColourGlobals, ASceneLoadMigratesOldNamesAndReplacesMissingOnes) {
    // The same settings as before the load: nothing to announce.
    const auto reloaded = [&] {
        return cm->trigger(TdnColorMgtGlobals::kPrefsReloaded).fireCount();
    };
    const auto n = reloaded();
    cm->sceneLoadStarted(true);
    cm->sceneLoadEnded();
    EXPECT_EQ(reloaded(), n);

    // A file with an old working space name and a view this configuration
    // lacks.
    cm->sceneLoadStarted(true);
    run("set defaultColorMgtGlobals.workingSpaceName \"ACES\"\n"
        "set defaultColorMgtGlobals.viewTransformName \"Old look (sRGB)\"\n");
    cm->sceneLoadEnded();
    EXPECT_EQ(cm->GetLoadedWorkingSpaceName(), "ACES");
    EXPECT_EQ(cm->GetLoadedViewTransformName(), "Old look (sRGB)");
    EXPECT_EQ(cm->GetWorkingSpaceName(), "ACES2065-1");
    EXPECT_EQ(cm->GetViewTransformName(), kStandard);
    EXPECT_TRUE(messages.contains("'Old look (sRGB)' is not in the colour configuration; "
                                  "'Standard (sRGB)' is used instead"))
        << messages.text();
    EXPECT_EQ(reloaded(), n + 1);
    EXPECT_TRUE(cm->DeprecatedColorSpacesHidden());
}

TEST_F(ColourGlobals, APolicySetsEverythingAndABadOneLeavesManagementOff) {
    TempFolder dir;
    const std::string policy = dir.write("p.policy", "workingSpace = ACEScg\n"
                                                     "viewTransform = Raw (sRGB)\n"
                                                     "outputTransformEnabled = true\n"
                                                     "outputUseViewTransform = false\n"
                                                     "outputTransformName = Standard (Rec.709)\n"
                                                     "rule = Normals | *_nrm.* | * | Raw\n");
    cm->LoadPolicy(policy);
    EXPECT_EQ(cm->GetWorkingSpaceName(), "ACEScg");
    EXPECT_EQ(cm->GetViewTransformName(), "Raw (sRGB)");
    EXPECT_TRUE(cm->IsOutputTransformEnabled());
    EXPECT_EQ(cm->GetOutputTransformName(), "Standard (Rec.709)");
    EXPECT_EQ(TcolorMgtFileRules::instance().evaluate("/t/a_nrm.png", false, "").rule, "Normals");

    const std::string bad = dir.write("bad.policy", "workingSpace ACEScg\n");
    const std::string why = thrown([&] { cm->LoadPolicy(bad); });
    EXPECT_NE(why.find("bad.policy"), std::string::npos) << why;
    EXPECT_FALSE(cm->CMIsEnabled());
    EXPECT_FALSE(cm->CMConfigFileIsEnabled());

    // Restoring the defaults brings back a new scene's state.
    cm->RestoreDefaults();
    EXPECT_TRUE(cm->CMIsEnabled());
    EXPECT_EQ(cm->GetWorkingSpaceName(), kLinear);
    EXPECT_EQ(TcolorMgtFileRules::instance().evaluate("/t/a_nrm.png", false, "").rule, "Default");
}

TEST_F(ColourGlobals, RenderUtilitiesNameTheConnectedTextures) {
    run("node file a\nnode file b\nnode file c\nnode hwRenderGlobals h\n"
        "connect h.grid a.colorManagementEnabled\nconnect h.grid c.colorManagementEnabled\n"
        "set a.colorSpace \"Bogus\"\nset b.colorSpace \"Bogus\"\nset c.colorSpace \"sRGB\"\n");
    std::vector<Tstring> names{"earlier"};
    TcolorMgtRenderUtilities::GetColorManagedNodeNames(graph, names);
    EXPECT_EQ(names, (std::vector<Tstring>{"a", "c", "earlier"}));
    names.clear();
    TcolorMgtRenderUtilities::GetMissingColorSpaceNodeNames(graph, names);
    EXPECT_EQ(names, std::vector<Tstring>{"a"});
}

TEST_F(ColourGlobals, TheUsersPolicyWinsWhenASceneLoadEndsOutsideBatchRuns) {
    TempFolder dir;
    ToptionVars::instance().setFile(dir.file("options"));
    ToptionVars::instance().set("colorManagementPolicyFileName",
                                dir.write("p.policy", "workingSpace = ACEScg\n"));
    const bool batch = gBatchMode;
    gBatchMode = true;
    cm->sceneLoadStarted(true);
    cm->sceneLoadEnded();
    EXPECT_EQ(cm->GetWorkingSpaceName(), kLinear) << "a batch run keeps the file's settings";
    gBatchMode = false;
    cm->sceneLoadStarted(true);
    cm->sceneLoadEnded();
    gBatchMode = batch;
    ToptionVars::instance().setFile("");
    EXPECT_EQ(cm->GetWorkingSpaceName(), "ACEScg");
}
