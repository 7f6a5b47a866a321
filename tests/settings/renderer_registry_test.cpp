#include <gtest/gtest.h>

#include <sstream>

#include "host/callbacks.h"
#include "host/graph.h"
#include "host/option_vars.h"
#include "host/qsl/interpreter.h"
#include "settings/render_globals.h"
#include "settings/renderer_registry.h"
#include "support/temp_folder.h"

// The renderer registry on a scene of its own, with the user's options in a
// folder of the test's own and hooks that leave a trace in the scene: a
// callback "node transform" gets the renderer's name appended, so each
// registration that runs the hook makes a transform of that name.

namespace {

struct RendererRegistry : ::testing::Test {
    TempFolder folder{"orvo-registry"};
    TdependGraph g;
    RendererRegistry() {
        ToptionVars::instance().setFile(folder.file("options"));
        TdependGraph::fsCurrentGraph = &g;
        std::ostringstream out;
        qsl::Interpreter(g, out).runText("", "test.qsl");
        TcallbackHooks::add("rendererRegistered", "node transform");
    }
    ~RendererRegistry() override {
        TcallbackHooks::clear("rendererRegistered");
        for (const char* name : {"rendererA", "rendererB", "later"})
            TrendererRegistry::unregisterRenderer(TrendererRegistry::renderer(name));
        TdependGraph::fsCurrentGraph = nullptr;
        ToptionVars::instance().setFile("");
    }
    std::string current() { return TrendererRegistry::currentRendererName(); }
};

TEST_F(RendererRegistry, RegisteringTwiceGivesTheFirstAndRunsTheHookOnce) {
    TrendererInterface* a = TrendererRegistry::registerRenderer("rendererA");
    ASSERT_NE(a, nullptr);
    EXPECT_NE(g.findNode("rendererA"), nullptr) << "the hook ran with the name";
    g.deleteNode(g.findNode("rendererA"));
    EXPECT_EQ(TrendererRegistry::registerRenderer("rendererA"), a);
    EXPECT_EQ(g.findNode("rendererA"), nullptr) << "no hook the second time";
    TrendererRegistry::registerRenderer("rendererB");
    std::vector<std::string> names{"stale"};
    TrendererRegistry::getNamesOfAvailableRenderers(names);
    ASSERT_GE(names.size(), 2u);
    EXPECT_EQ(names[names.size() - 2], "rendererA");
    EXPECT_EQ(names.back(), "rendererB");
    // Procedure slots: 31 of them, others ignored.
    a->setProcedure(30, "lastProc");
    a->setProcedure(31, "ignored");
    EXPECT_EQ(a->procedure(30), "lastProc");
    EXPECT_EQ(a->procedure(31), "");
}

TEST_F(RendererRegistry, UnregisteringTheCurrentRendererMovesToThePreferredOrTheFallback) {
    TrendererRegistry::registerRenderer("rendererA");
    TrendererRegistry::registerRenderer("rendererB");
    auto* globals = static_cast<TdnRenderGlobals*>(g.findNode("defaultRenderGlobals"));
    globals->setCurrentRenderer("rendererA");
    EXPECT_EQ(current(), "rendererA");
    TpreferredRenderer::instance().set("rendererB");
    TrendererRegistry::unregisterRenderer(TrendererRegistry::renderer("rendererA"));
    EXPECT_EQ(current(), "rendererB");
    // Unregistering one that is not current leaves the current alone; the
    // current one going with no known preference falls to the built-in
    // name.
    TrendererRegistry::registerRenderer("later");
    TrendererRegistry::unregisterRenderer(TrendererRegistry::renderer("later"));
    EXPECT_EQ(current(), "rendererB");
    TrendererRegistry::unregisterRenderer(TrendererRegistry::renderer("rendererB"));
    EXPECT_EQ(current(), "orvoHardware2");
}

TEST_F(RendererRegistry, PreferenceOutlivesTheRunAndAnUnknownOneIsPassedOverButStillMadeCurrent) {
    TrendererRegistry::registerRenderer("rendererA");
    TpreferredRenderer& preferred = TpreferredRenderer::instance();
    uint64_t fired = preferred.changed().fireCount();
    preferred.set("notLoadedYet");
    EXPECT_EQ(preferred.changed().fireCount(), fired + 1);
    preferred.setFallback("rendererA");
    EXPECT_EQ(preferred.changed().fireCount(), fired + 1) << "the fallback fires nothing";
    EXPECT_EQ(preferred.getName(), "rendererA");
    preferred.makeCurrent();
    EXPECT_EQ(current(), "notLoadedYet");
    // A new run reads the same file.
    ToptionVars::instance().setFile(folder.file("options"));
    EXPECT_EQ(ToptionVars::instance().get("preferredRenderer").value_or(""), "notLoadedYet");
    // With no options at all: the built-in fallback.
    ToptionVars::instance().setFile(folder.file("none"));
    EXPECT_EQ(preferred.getName(), "orvoHardware2");
}

TEST_F(RendererRegistry, EverySetOfTheCurrentRendererIsNewsAndOnlyTheRegistryRunsTheHook) {
    TcallbackHooks::add("currentRendererChanged", "node transform switched");
    Ttrigger& modified = TrendererRegistry::modified();
    const uint64_t before = modified.fireCount();
    std::ostringstream out;
    qsl::Interpreter(g, out).runText("set defaultRenderGlobals.currentRenderer \"rendererA\"\n"
                                     "set defaultRenderGlobals.startFrame 3\n",
                                     "set.qsl");
    EXPECT_EQ(modified.fireCount(), before + 1) << "a plain set tells; another attribute not";
    EXPECT_EQ(g.findNode("switched"), nullptr) << "a plain set runs no hook";

    // makeCurrent writes the setting alone.
    TpreferredRenderer::instance().set("rendererB");
    TpreferredRenderer::instance().makeCurrent();
    EXPECT_EQ(current(), "rendererB");
    EXPECT_EQ(modified.fireCount(), before + 2);
    EXPECT_EQ(g.findNode("switched"), nullptr);

    // The registry moving off an unregistered renderer runs the hook.
    TrendererRegistry::registerRenderer("rendererB");
    TrendererRegistry::unregisterRenderer(TrendererRegistry::renderer("rendererB"));
    EXPECT_EQ(current(), "orvoHardware2");
    EXPECT_EQ(modified.fireCount(), before + 3);
    EXPECT_NE(g.findNode("switched"), nullptr);
    TcallbackHooks::clear("currentRendererChanged");
}

} // namespace
