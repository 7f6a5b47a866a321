// The settings nodes' operations with a rule in them, the settings defaults
// of a scene, and the lists a render walks.

#include <gtest/gtest.h>

#include <sched.h>

#include <sstream>

#include "framework/render_info.h"
#include "host/graph.h"
#include "host/messages.h"
#include "host/qsl/interpreter.h"
#include "host/scene/render_layer.h"
#include "settings/common_render_globals.h"
#include "settings/preference_items.h"
#include "settings/render_globals.h"
#include "settings/render_globals_list.h"
#include "settings/render_lists.h"
#include "settings/render_quality.h"
#include "settings/resolution.h"
#include "support/message_capture.h"

namespace {

class Settings : public ::testing::Test {
protected:
    void SetUp() override { run(""); }
    void run(const std::string& text) { qsl::Interpreter(graph, out).runText(text, "s.qsl"); }
    TrenderInfo& info() { return *TrenderInfo::getRenderInfo(graph); }
    TdnRenderGlobals& globals() { return *info().defaultGlobals(); }

    TdependGraph graph;
    std::ostringstream out;
    orvo_test::MessageCapture messages;
};

TEST_F(Settings, EveryScenesSettingsDefaultsAreLinked) {
    EXPECT_EQ(info().defaultGlobals(), graph.findNode("defaultRenderGlobals"));
    EXPECT_EQ(info().defaultQuality(), graph.findNode("defaultRenderQuality"));
    EXPECT_EQ(info().defaultResolution(), graph.findNode("defaultResolution"));
    EXPECT_EQ(globals().quality(), info().defaultQuality());
    EXPECT_EQ(globals().resolution(), info().defaultResolution());
    const TdnRenderGlobalsList& list = *info().renderGlobalsList();
    EXPECT_EQ(list.members(TdnRenderGlobalsList::aRenderGlobals),
              std::vector<TdependNode*>{info().defaultGlobals()});
    EXPECT_EQ(list.members(TdnRenderGlobalsList::aRenderResolutions),
              std::vector<TdependNode*>{info().defaultResolution()});

    // A user's resolution joins the list; it becomes current when linked,
    // and a link to something else is replaced by the default.
    run("node resolution hd\nset hd.width 1920\n");
    auto* hd = dynamic_cast<TdnResolution*>(graph.findNode("hd"));
    EXPECT_EQ(list.members(TdnRenderGlobalsList::aRenderResolutions),
              (std::vector<TdependNode*>{info().defaultResolution(), hd}));
    TDGcommand command(graph);
    EXPECT_FALSE(info().setCurrentResolution(nullptr, command));
    EXPECT_TRUE(info().setCurrentResolution(hd, command));
    EXPECT_EQ(info().currentResolution(), hd);
    TcommonRenderGlobalsData data;
    info().setCommonRenderGlobals(data, nullptr);
    EXPECT_EQ(data.width, 1920);
    run("disconnect hd.message defaultRenderGlobals.resolution\n"
        "connect defaultRenderQuality.message defaultRenderGlobals.resolution\n");
    EXPECT_EQ(info().currentResolution(), info().defaultResolution());
    EXPECT_EQ(globals().resolution(), info().defaultResolution());
}

TEST_F(Settings, ProcessorsAndInterrupts) {
    cpu_set_t set;
    CPU_ZERO(&set);
    ASSERT_EQ(sched_getaffinity(0, sizeof(set), &set), 0);
    const unsigned processors = unsigned(CPU_COUNT(&set));
    EXPECT_EQ(globals().numberOfCpusToUse(), processors); // 0: all
    globals().setNumCpusToUse(int(processors) + 5);
    EXPECT_EQ(globals().numberOfCpusToUse(), processors);
    globals().setNumCpusToUse(1);
    EXPECT_EQ(globals().numberOfCpusToUse(), 1u);

    globals().setInterruptFrequency(-1);
    EXPECT_EQ(globals().interruptFrequency(), -1);
    // 2 becomes 2000 (milliseconds).
    globals().setInterruptFrequency(2);
    EXPECT_EQ(globals().interruptFrequency(), 2000);
    // A set value stops at the limit, -1; a connection brings -5 past it,
    // and the rule makes that 0.
    globals().setInterruptFrequency(-5);
    EXPECT_EQ(globals().interruptFrequency(), -1);
    run("node multiplyDivide md\nset md.input1X -5\n"
        "connect md.outputX defaultRenderGlobals.interruptFrequency\n");
    EXPECT_EQ(globals().interruptFrequency(), 0);
}

TEST_F(Settings, FileFormatExtension) {
    EXPECT_EQ(globals().fileFormatExtension(), ".iff"); // imageFormat 7
    globals().setOrvoFormat(15);                        // no such format
    EXPECT_EQ(globals().fileFormatExtension(), ".img");
    globals().setOrvoFormat(36);
    EXPECT_EQ(globals().fileFormatExtension(), ".iff");
    EXPECT_EQ(globals().fileFormatString(), "psdLayered");
    globals().setOrvoFormat(40);
    EXPECT_EQ(globals().fileFormatExtension(), ".img");
    int raw = 0;
    EXPECT_EQ(globals().fileFormatString(&raw), "");
    EXPECT_EQ(raw, 40);
    globals().setOrvoFormat(50);
    globals().setImfPluginKey("png");
    EXPECT_EQ(globals().fileFormatExtension(), ".png");
    EXPECT_EQ(globals().fileFormatString(), "png");
    // The image library answers for the keys it knows: a format's name its
    // first extension, an extension itself.
    globals().setImfPluginKey("openexr");
    EXPECT_EQ(globals().fileFormatExtension(), ".exr");
    globals().setImfPluginKey("jpeg");
    EXPECT_EQ(globals().fileFormatExtension(), ".jpg");
    globals().setImfPluginKey("hdr");
    EXPECT_EQ(globals().fileFormatExtension(), ".hdr");
    globals().setImfPluginKey("jfif");
    EXPECT_EQ(globals().fileFormatExtension(), ".jfif");
    globals().setImfPluginKey("sony"); // no format of the library's
    EXPECT_EQ(globals().fileFormatExtension(), ".img");

    globals().setOutFormatControl(1);
    EXPECT_EQ(globals().fileFormatExtension(), "");
    globals().setOutFormatControl(2);
    for (const char* ext : {"tga", ".tga"}) {
        globals().setOutFormatExt(ext);
        EXPECT_EQ(globals().fileFormatExtension(), ".tga") << ext;
    }
    EXPECT_TRUE(messages.messages().empty()) << messages.text();
    globals().setOutFormatExt(".");
    EXPECT_EQ(globals().fileFormatExtension(), "");
    EXPECT_TRUE(messages.contains("is empty")) << messages.text();
    messages.clear();
    globals().setOutFormatExt(".1ab");
    EXPECT_EQ(globals().fileFormatExtension(), "");
    EXPECT_TRUE(messages.contains("must begin with a letter")) << messages.text();
}

TEST_F(Settings, RulesOfTheAccessors) {
    // IPR flags decide while an IPR file is made.
    EXPECT_TRUE(globals().enableDepthMaps());
    globals().setCreateIprFile(true);
    globals().setIprRenderShadowMaps(false);
    EXPECT_FALSE(globals().enableDepthMaps());
    globals().setMotionBlur(true);
    EXPECT_TRUE(globals().motionBlur()); // iprRenderMotionBlur is on
    globals().setIprRenderMotionBlur(false);
    EXPECT_FALSE(globals().motionBlur());

    EXPECT_FALSE(globals().motionBlur2D());
    globals().setMotionBlur2D(true);
    EXPECT_EQ(globals().motionBlurType(), 0);
    globals().setGlobalAnimation(true);
    EXPECT_EQ(globals().animationRange(), 0);

    EXPECT_FALSE(globals().modifyExtension());
    globals().setByExtension(2.0f);
    EXPECT_TRUE(globals().modifyExtension());
    EXPECT_FLOAT_EQ(globals().byExtension(), 2.0f);

    EXPECT_EQ(globals().shadowLinkMode(), kShadowsObeyLightLinking); // light linking on
    globals().setShadowLinkMode(1);
    EXPECT_EQ(globals().shadowLinkMode(), kShadowsObeyShadowLinking);
    EXPECT_FALSE(globals().shadowsObeyLightLinking());
    globals().setShadowLinkMode(7); // ignored
    EXPECT_EQ(globals().shadowLinkMode(), kShadowsObeyShadowLinking);
    globals().setShadowLinkMode(0);
    EXPECT_EQ(globals().shadowLinkMode(), kShadowsIgnoreLinks);

    EXPECT_EQ(globals().defaultTraversalSet(), "null");
    globals().setDefaultTraversalSet("");
    EXPECT_EQ(globals().defaultTraversalSet(), "");

    globals().setSubRegionRender(1, 2, 3, 4);
    EXPECT_TRUE(globals().useRenderRegion());
    EXPECT_EQ(globals().leftRegion() * 1000 + globals().rightRegion() * 100 +
                  globals().bottomRegion() * 10 + globals().topRegion(),
              1234);
}

TEST_F(Settings, ASetterBreaksTheConnectionFirst) {
    run("node multiplyDivide md\nset md.input1X 3\n"
        "connect md.outputX defaultRenderGlobals.gammaCorrection\n"
        "connect md.outputX defaultRenderQuality.redThreshold\n");
    EXPECT_FLOAT_EQ(globals().gammaCorrection(), 3.0f);
    globals().setGammaCorrection(2.2f);
    EXPECT_FLOAT_EQ(globals().gammaCorrection(), 2.2f);
    EXPECT_TRUE(graph.sourceOf(graph.findPlug("defaultRenderGlobals.gammaCorrection")).isNull());
    TdnRenderQuality& quality = *info().defaultQuality();
    quality.setThreshold(0.1f, 0.2f, 0.3f, 0.4f);
    EXPECT_TRUE(graph.sourceOf(graph.findPlug("defaultRenderQuality.redThreshold")).isNull());
    EXPECT_FLOAT_EQ(quality.redThreshold() + quality.coverageThreshold(), 0.5f);
    EXPECT_FALSE(quality.disconnectForOverride(TdnRenderQuality::aRedThreshold));
}

TEST_F(Settings, LayersAndPassesByName) {
    run("node renderLayerManager m\nnode renderLayer defaultRenderLayer\n"
        "node renderLayer b\nnode renderLayer a\nset a.displayOrder 1\nset b.displayOrder 2\n"
        "connect defaultRenderLayer.message m.defaultRenderLayer\n");
    EXPECT_TRUE(globals().setRenderLayerState("a", false));
    EXPECT_FALSE(globals().setRenderLayerState("nope", false));
    EXPECT_TRUE(globals().setRenderPassState("shadow", true));
    EXPECT_FALSE(globals().setRenderPassState("glow", true));
    auto* a = dynamic_cast<TdnRenderLayer*>(graph.findNode("a"));
    EXPECT_EQ(a->passesOn(), (std::vector<int>{0, 5})); // beauty, shadow
    globals().renderPassesReset();
    EXPECT_TRUE(a->passesOn().empty());

    // Renderable layers in creation order; by display order when sorted.
    TlayerList all(true, &graph);
    ASSERT_EQ(all.length(), 2u);
    EXPECT_EQ(all.renderableLayerName(0), "defaultRenderLayer");
    EXPECT_EQ(all.renderableLayerName(1), "b");
    globals().renderLayersReset();
    EXPECT_TRUE(TlayerList(true, &graph).empty());
    TlayerList named(std::vector<Tstring>{"a", "b"}, &graph);
    ASSERT_EQ(named.length(), 2u);
    EXPECT_EQ(named.renderableLayerName(0), "b");
    named.sortPerDisplayOrder();
    EXPECT_EQ(named.renderableLayerName(0), "a");
    EXPECT_EQ(TlayerList(Tstring("nope"), &graph).renderableLayerName(0), "defaultRenderLayer");
    EXPECT_EQ(TlayerList(false, &graph).renderableLayerName(0), "defaultRenderLayer");
}

TEST(RenderLists, WithoutLayersOneNullLayerAndCamerasByName) {
    TdependGraph graph;
    std::ostringstream out;
    qsl::Interpreter(graph, out)
        .runText("node transform c1\nnode camera s1 -parent c1\n"
                 "node transform c2\nnode camera s2 -parent c2\nset s2.renderable false\n",
                 "s.qsl");
    const TlayerList layers(true, &graph);
    ASSERT_EQ(layers.length(), 1u);
    EXPECT_EQ(layers.renderLayer(0), nullptr);
    EXPECT_EQ(layers.renderableLayerName(0), "");

    const TcameraList renderable(false, "", &graph);
    ASSERT_EQ(renderable.renderableCameraCount(), 1u);
    EXPECT_EQ(renderable.renderableCamera(0).fullPathName(), "|c1|s1");
    // A name picks one camera, renderable or not; a transform leads to its shape.
    const TcameraList byName(false, "c2", &graph);
    ASSERT_EQ(byName.renderableCameraCount(), 1u);
    EXPECT_EQ(byName.renderableCamera(0).fullPathName(), "|c2|s2");
    EXPECT_EQ(TcameraList(true, "", &graph).renderableCameraCount(), 0u); // no views
}

TEST(PreferenceItems, MakeTheirNodeOnceAndSayHow) {
    TdependGraph graph;
    TprefDNresolution resolution;
    EXPECT_EQ(resolution.commandString(), "resolutionNode -name defaultResolution;");
    TdependNode* node = resolution.node(graph);
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(node->name(), "defaultResolution");
    EXPECT_TRUE(node->isImplicitlyCreated());
    EXPECT_EQ(node->flagWord() & 0x200, 0u);
    EXPECT_EQ(resolution.node(graph), node);
    TprefDNrenderGlobals globals;
    EXPECT_EQ(globals.node(graph)->name(), "renderGlobals1");
    EXPECT_EQ(TprefDNrenderQuality().commandString(),
              "renderQualityNode -name defaultRenderQuality;");
}

} // namespace
