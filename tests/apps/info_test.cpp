// orvo info on scenes, run as a user runs it.

#include "test_paths.h"
#include <gtest/gtest.h>

#include "support/run_tool.h"

namespace {

TEST(OrvoInfo, DescribesTheExampleScene) {
    const std::string scene = std::string(ORVO_EXAMPLES_DIR) + "/scene_model.qsl";
    const ToolResult r = runTool({"info", scene});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.err, "");
    for (const char* expected :
         {"Scene " /* then the file */, "\nDAG\n",
          // the pillar is shared by two transforms; the second instance
          // sits 4 to the right of the pillars group at z = -4
          "|pillars|rightPillar  ", "transform  at (4, 1.5, -4)",
          "|pillars|rightPillar|pillarShape  mesh       12 triangles", "instance 1 of 2",
          // 24 around, 12 from pole to pole: 24 * 10 quads and 2 * 24 pole triangles
          "|ball|ballShape", "528 triangles, bounds (-1, -1, -1) to (1, 1, 1)", "\nSets\n",
          "  matte (objectSet): 4 members\n", "    |pillars|rightPillar|pillarShape\n",
          "\nPartitions\n", "  looks: shiny, matte\n",
          // every scene has its render partition, which holds the shading groups
          "  renderPartition: initialShadingGroup, initialParticleSE\n",
          "Render layers (current: closeUp)", "    floor.visibility = false (plain value true)\n"})
        EXPECT_NE(r.out.find(expected), std::string::npos) << expected << "\nin:\n" << r.out;
    // The floor is hidden in closeUp; the ball is in it.
    EXPECT_NE(r.out.find("|floor|floorShape"), std::string::npos);
    const size_t floorLine = r.out.find("|floor|floorShape");
    EXPECT_NE(r.out.substr(floorLine, r.out.find('\n', floorLine) - floorLine).find("hidden"),
              std::string::npos);
}

TEST(OrvoInfo, OtherFilesAndBadScenesAreUserErrors) {
    const ToolResult image = runTool({"info", "picture.tif"});
    EXPECT_EQ(image.exitCode, 1);
    EXPECT_EQ(image.out, "");
    EXPECT_EQ(image.err, "orvo info: picture.tif: no such file\n");

    const std::string scene = std::string(ORVO_TEST_DATA_DIR) + "/host/scene/data/no_such.qsl";
    const ToolResult missing = runTool({"info", scene});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_EQ(missing.out, "");
    EXPECT_NE(missing.err.find("no such scene file"), std::string::npos) << missing.err;
}

} // namespace
