// The example scene loads, says what its comments say, and survives being
// written and read back.

#include "host/scene/object_set.h"
#include "host/scene/render_layer.h"
#include "scene_test_support.h"
#include "test_paths.h"

namespace {

TEST(ExampleScene, LoadsAndRoundTrips) {
    TdependGraph graph;
    std::ostringstream out;
    qsl::Interpreter(graph, out).runFile(std::string(ORVO_EXAMPLES_DIR) + "/scene_model.qsl");
    EXPECT_EQ(TdagPath::pathsNamed(graph, "pillarShape").size(), 2u);
    TselectionList matte;
    static_cast<TobjectSet*>(graph.findNode("matte"))->completeGroupedMembers(matte);
    EXPECT_EQ(matte.length(), 4u);
    EXPECT_TRUE(matte.has(pathNamed(graph, "|pillars|rightPillar|pillarShape")));
    EXPECT_EQ(TdnRenderLayerManager::currentLayer(graph)->name(), "closeUp");
    EXPECT_FALSE(TdagPathUtils::isObjectVisibleToRenderer(pathNamed(graph, "floorShape")));

    // The written scene reads back to the same text. (Meshes that read files
    // are written with the file's name as given, so the copy reads it from
    // the examples folder too.)
    const std::string saved = qsl::writeScene(graph);
    TdependGraph copy;
    qsl::Interpreter(copy, out).runText(saved, std::string(ORVO_EXAMPLES_DIR) + "/saved.qsl");
    EXPECT_EQ(qsl::writeScene(copy), saved);
    TselectionList copied;
    static_cast<TobjectSet*>(copy.findNode("matte"))->completeGroupedMembers(copied);
    EXPECT_EQ(copied.length(), 4u);
    EXPECT_EQ(TdnRenderLayerManager::currentLayer(copy)->name(), "closeUp");
}

} // namespace
