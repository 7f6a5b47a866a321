// Image sources and render tasks: the dependency walk from a root source
// (sharing, cycles, connections that do not count), the tasks and contexts
// it gives, the two merge strategies, and the names of a source's images.
// Every expected list is worked out by hand from the scene written here.

#include <gtest/gtest.h>

#include <sstream>

#include "host/graph.h"
#include "host/qsl/interpreter.h"
#include "host/scene/render_layer.h"
#include "settings/image_sources.h"

namespace {

using namespace imageSourceDependencies;

// Two cameras, a default layer and closeUp (with the diffuse pass on), a
// render target and two render passes.
constexpr const char* kScene = R"(
node transform camA
node camera camAShape -parent camA
node transform camB
node camera camBShape -parent camB
node renderLayerManager manager
node renderLayer defaultRenderLayer
node renderLayer closeUp
connect defaultRenderLayer.message manager.defaultRenderLayer
set closeUp.diffuse true
node renderTarget target
node renderPass beautyPass
set beautyPass.passID "beauty"
node renderPass diffusePass
set diffusePass.passID "diffuse"
)";

class ImageSources : public ::testing::Test {
protected:
    void run(const std::string& text) { qsl::Interpreter(graph, out).runText(text, "shot.qsl"); }
    const TdnImageSource* source(const std::string& name) {
        return dynamic_cast<const TdnImageSource*>(graph.findNode(name));
    }
    // A rendered image of `camera` in `layer` showing `pass`, into the target.
    std::string rendered(const std::string& name, const std::string& camera,
                         const std::string& layer, const std::string& pass, int element) {
        std::string text = "node renderedImageSource " + name + "\n";
        if (!camera.empty())
            text += "connect " + camera + ".message " + name + ".camera\n";
        if (!layer.empty())
            text += "connect " + layer + ".message " + name + ".renderLayer\n";
        if (!pass.empty())
            text += "connect " + pass + ".message " + name + ".imageSource\n";
        if (element >= 0)
            text += "connect " + name + ".message target.imageSources[" + std::to_string(element) +
                    "]\n";
        return text;
    }
    // Each task as "first dep+other deps@camera/layer".
    static std::vector<std::string> describe(const TrenderTaskList& tasks) {
        std::vector<std::string> out;
        for (const TrenderTask& task : tasks) {
            std::string text;
            for (const TrenderDependencyPtr& d : task.deps())
                text += (text.empty() ? "" : "+") + d->name();
            const TrenderContext& c = task.context();
            text += "@" + (c.camera ? c.camera->name() : std::string("-")) + "/" +
                    (c.layer ? c.layer->name() : std::string("-"));
            out.push_back(text);
        }
        return out;
    }

    TdependGraph graph;
    std::ostringstream out;
};

TEST_F(ImageSources, SharedSourcesAreOneDependencyAndTasksFollowEachContext) {
    run(std::string(kScene) + rendered("wide", "camA", "defaultRenderLayer", "beautyPass", 0) +
        rendered("close", "camB", "closeUp", "beautyPass", 1) +
        rendered("closeDiffuse", "camB", "closeUp", "diffusePass", 2));
    EXPECT_EQ(getDependencies(nullptr), nullptr);

    const auto deps = getDependencies(source("target"));
    ASSERT_NE(deps, nullptr);
    EXPECT_EQ(deps->size(), 6u); // target, three rendered sources, two passes
    const TrenderDependencyPtr beauty = deps->find(source("beautyPass"));
    ASSERT_NE(beauty, nullptr);
    // Reached from two sources: one dependency with both as parents.
    std::vector<std::string> parents;
    for (const TrenderDependencyPtr& p : beauty->parents())
        parents.push_back(p->name());
    EXPECT_EQ(parents, (std::vector<std::string>{"wide", "close"}));
    TrenderDependencySet held;
    deps->findDependencies(source("beautyPass"), held);
    EXPECT_EQ(held.size(), 1u);
    EXPECT_EQ(*held.begin(), beauty);

    // The shared pass renders once per context it is needed in.
    const TrenderTaskList tasks = getRenderTasks(*deps, TrenderContext());
    EXPECT_EQ(describe(tasks),
              (std::vector<std::string>{"target@-/-", "wide@camA/defaultRenderLayer",
                                        "beautyPass@camA/defaultRenderLayer", "close@camB/closeUp",
                                        "beautyPass@camB/closeUp", "closeDiffuse@camB/closeUp",
                                        "diffusePass@camB/closeUp"}));

    // The passes of camB in closeUp join; rendered sources pass through.
    EXPECT_EQ(describe(mergeRenderTasks(tasks, TpassRenderTaskMergeStrategy())),
              (std::vector<std::string>{"target@-/-", "wide@camA/defaultRenderLayer",
                                        "beautyPass@camA/defaultRenderLayer", "close@camB/closeUp",
                                        "beautyPass+diffusePass@camB/closeUp",
                                        "closeDiffuse@camB/closeUp"}));
    // The base order keeps passes with other dependencies apart.
    EXPECT_EQ(describe(mergeRenderTasks(tasks, TrenderTaskMergeStrategy())), describe(tasks));

    // A second walk starts from a clean slate: the same tasks.
    EXPECT_EQ(describe(getRenderTasks(*deps, TrenderContext())), describe(tasks));
}

TEST_F(ImageSources, EqualTasksJoinUnderTheBaseOrder) {
    run(std::string(kScene) + rendered("one", "camA", "", "beautyPass", 0));
    const auto deps = getDependencies(source("target"));
    const TrenderDependencyPtr pass = deps->find(source("beautyPass"));
    const TrenderContext camA = TrenderContext::create(graph.findNode("camA"), nullptr);
    const TrenderTaskList twice = {TrenderTask::create(pass, camA), TrenderTask::create(pass, camA),
                                   TrenderTask::create(pass, TrenderContext())};
    EXPECT_EQ(describe(mergeRenderTasks(twice, TrenderTaskMergeStrategy())),
              (std::vector<std::string>{"beautyPass@camA/-", "beautyPass@-/-"}));
    // Contexts order by camera name, then layer name; no node first.
    EXPECT_TRUE(TrenderContext() < camA);
    EXPECT_TRUE(camA < TrenderContext::create(graph.findNode("camB"), nullptr));
    EXPECT_TRUE(camA == TrenderContext::create(graph.findNode("camA"), nullptr));
}

TEST_F(ImageSources, CyclesEndAndUncountedConnectionsStopTheWalk) {
    // a shows b, b shows a: a cycle under the target.
    run(std::string(kScene) + rendered("a", "camA", "", "", 0) + rendered("b", "camB", "", "", -1) +
        "connect b.message a.imageSource\nconnect a.message b.imageSource\n"
        // A pass connected where no dependency is made (a camera plug):
        // neither it nor what feeds it is needed.
        "node renderedImageSource aside\n"
        "connect diffusePass.message aside.camera\n"
        "connect aside.message target.camera\n");
    const auto deps = getDependencies(source("target"));
    ASSERT_NE(deps, nullptr);
    EXPECT_EQ(deps->size(), 3u); // target, a, b
    EXPECT_EQ(deps->find(source("aside")), nullptr);
    EXPECT_EQ(deps->find(source("diffusePass")), nullptr);
    const TrenderDependencyPtr a = deps->find(source("a")), b = deps->find(source("b"));
    ASSERT_TRUE(a && b);
    EXPECT_EQ(a->children().count(b), 1u);
    EXPECT_EQ(b->children().count(a), 1u); // the link back
    // The tasks end: a in camA, b in camB, then a again under b's context
    // stays a's own (a names its camera), so it fits the task it has.
    EXPECT_EQ(describe(getRenderTasks(*deps, TrenderContext())),
              (std::vector<std::string>{"target@aside/-", "a@camA/-", "b@camB/-"}));
}

TEST_F(ImageSources, ImageNamesComeFromTheSourcesLayerCameraAndPass) {
    run(std::string(kScene) + "set closeUp.renderable true\n" +
        rendered("closeDiffuse", "camB", "closeUp", "diffusePass", 0) +
        rendered("bare", "", "", "", -1));
    // closeUp has two passes on: its images go to "layer_pass" folders.
    Tstring buffer = "unchanged";
    EXPECT_EQ(imageSourceUtil::getImageName(source("closeDiffuse"), 0, 1, "shot", nullptr, nullptr,
                                            &buffer),
              "closeUp_diffuse/camB/shot.iff");
    EXPECT_EQ(buffer, ""); // a rendered source is no pass: no buffer name
    // A source that names nothing takes the camera and layer it is given
    // (no layer: no layer text).
    EXPECT_EQ(imageSourceUtil::getImageName(source("bare"), 0, 1, "shot", graph.findNode("camA"),
                                            nullptr),
              "camA/shot.iff");
    EXPECT_EQ(
        imageSourceUtil::getImageName(source("bare"), 0, 1, "shot", graph.findNode("camA"),
                                      dynamic_cast<TdnRenderLayer*>(graph.findNode("closeUp"))),
        "closeUp/camA/shot.iff");
}

} // namespace
