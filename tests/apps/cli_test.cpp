#include "test_paths.h"
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "support/run_tool.h"

namespace {

constexpr const char* kCommands[] = {"render", "shade",  "eval",  "compile",
                                     "names",  "maketx", "nodes", "info"};

TEST(OrvoTool, HelpListsEveryCommandAndSucceeds) {
    const ToolResult result = runTool({"--help"});
    EXPECT_EQ(result.exitCode, 0);
    for (const char* command : kCommands)
        EXPECT_NE(result.out.find(std::string("  ") + command), std::string::npos)
            << command << " missing from:\n"
            << result.out;
}

TEST(OrvoTool, VersionNamesTheToolAndItsLibraries) {
    const ToolResult result = runTool({"--version"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out.rfind("orvo ", 0), 0u) << result.out;
    EXPECT_NE(result.out.find("render model"), std::string::npos);
    EXPECT_EQ(countLines(result.out), 1);
}

TEST(OrvoTool, UnknownCommandIsAOneLineUserError) {
    const ToolResult result = runTool({"frobnicate"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(countLines(result.err), 1) << result.err;
    EXPECT_NE(result.err.find("frobnicate"), std::string::npos);
}

TEST(OrvoTool, UnknownOptionIsAOneLineUserError) {
    const ToolResult result = runTool({"--frobnicate"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(countLines(result.err), 1) << result.err;
    EXPECT_NE(result.err.find("--frobnicate"), std::string::npos);
}

class OrvoScene : public ::testing::Test {
protected:
    void SetUp() override {
        dir = std::filesystem::temp_directory_path() /
              ("orvo-cli-" + std::to_string(::getpid()) + "-" +
               std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
        std::filesystem::create_directories(dir);
    }
    void TearDown() override { std::filesystem::remove_all(dir); }
    std::string write(const std::string& name, const std::string& text) {
        const auto path = dir / name;
        std::ofstream(path) << text;
        return path.string();
    }
    std::filesystem::path dir;
};

TEST_F(OrvoScene, EvalPrintsOneLinePerPlug) {
    const std::string scene = write("s.qsl", "node reverse a\nnode reverse b\n"
                                             "set a.input 0.25 0.5 2\n"
                                             "connect a.output b.input\n");
    const ToolResult text = runTool({"eval", scene, "b.output", "a.ox"});
    EXPECT_EQ(text.exitCode, 0) << text.err;
    EXPECT_EQ(text.out, "b.output = 0.25 0.5 2\na.ox = 0.75\n");

    const ToolResult json = runTool({"eval", "--json", scene, "b.output", "a.ox"});
    EXPECT_EQ(json.exitCode, 0) << json.err;
    EXPECT_EQ(json.out, "{\"b.output\": [0.25, 0.5, 2], \"a.ox\": 0.75}\n");
}

TEST_F(OrvoScene, BadScenesAndPlugsAreUserErrorsWithNoOutput) {
    const std::string scene = write("bad.qsl", "node reverse a\nset a.input 1 2\n");
    const ToolResult bad = runTool({"eval", scene, "a.output"});
    EXPECT_EQ(bad.exitCode, 1);
    EXPECT_EQ(bad.out, "");
    EXPECT_EQ(bad.err,
              scene + ":2: error: 'a.input' (Tattribute3Float): expects 3 values, got 2\n");

    const std::string good = write("good.qsl", "node reverse a\n");
    const ToolResult typo = runTool({"eval", good, "a.output", "a.outptu"});
    EXPECT_EQ(typo.exitCode, 1);
    EXPECT_EQ(typo.out, ""); // nothing printed before the error
    EXPECT_NE(typo.err.find("no attribute 'outptu'"), std::string::npos) << typo.err;

    const ToolResult missing = runTool({"eval", (dir / "none.qsl").string(), "a.output"});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_NE(missing.err.find("none.qsl: error: no such scene file"), std::string::npos);
}

TEST(OrvoTool, EvalGivesTheUtilityEdgeCases) {
    const std::string scene = std::string(ORVO_TEST_DATA_DIR) + "/scenes/utility_edges.qsl";
    const ToolResult r = runTool({"eval", scene, "div0.output", "passThrough.outValue",
                                  "upperWins.output", "hue360.outRgb"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, "div0.output = 100000 2 100000\n"
                     "passThrough.outValue = 7 -3 0.5\n"
                     "upperWins.output = 0.200000003 0.200000003 0.200000003\n" // 0.2f at %.9g
                     "hue360.outRgb = 1 0 0\n");
    // One evaluation of div0, one warning naming it.
    EXPECT_EQ(countLines(r.err), 1) << r.err;
    EXPECT_EQ(r.err.rfind("Warning: div0", 0), 0u) << r.err;
}

TEST(OrvoTool, CompileReportsTheVaryingPartAndItsInstructions) {
    const std::string scene = std::string(ORVO_EXAMPLES_DIR) + "/shading_group.qsl";
    const ToolResult r = runTool({"compile", scene, "-g", "sg"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.out.find("provides: outColor\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("node lum (surfaceLuminance), block 2"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("node md1 (multiplyDivide), constant"), std::string::npos);
    EXPECT_NE(r.out.find("copy sample.normalCamera -> block 2 normalCamera"), std::string::npos);
    EXPECT_NE(r.out.find("copy block 0 outColor -> sample.outColor"), std::string::npos);

    const ToolResult notGroup = runTool({"compile", scene, "-g", "md1"});
    EXPECT_EQ(notGroup.exitCode, 1);
    EXPECT_EQ(countLines(notGroup.err), 1);
    EXPECT_NE(notGroup.err.find("not a shading group"), std::string::npos);
    EXPECT_EQ(runTool({"compile", scene, "-g", "sg", "--option", "12"}).exitCode, 1);
}

TEST_F(OrvoScene, ShadeRunsAGridThroughAShadingGroup) {
    const std::string scene = std::string(ORVO_TEST_DATA_DIR) + "/scenes/checker_shade.qsl";
    // uvCoord of sample (i, j) is ((i + 0.5) / 2, (j + 0.5) / 2). With no
    // filter the checker is color1 (white) where u and v are on the same
    // side of 0.5 and color2 (black) elsewhere; the reverse inverts it.
    const ToolResult r = runTool({"shade", scene, "-g", "sg", "--res", "2", "2", "--json"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, "{\"i\": 0, \"j\": 0, \"outColor\": [0, 0, 0]}\n"
                     "{\"i\": 1, \"j\": 0, \"outColor\": [1, 1, 1]}\n"
                     "{\"i\": 0, \"j\": 1, \"outColor\": [1, 1, 1]}\n"
                     "{\"i\": 1, \"j\": 1, \"outColor\": [0, 0, 0]}\n");

    // A field given for every sample, and an image written whole.
    const std::string image = (dir / "grid.exr").string();
    const ToolResult text = runTool({"shade", scene, "-g", "sg", "--res", "3", "3", "--print",
                                     "outColor", "uvCoord", "-o", image});
    EXPECT_EQ(text.exitCode, 0) << text.err;
    // (5/6, 1/6): opposite sides, black, inverted; (1/2, 1/2) lies on the
    // edges, where the two colours mix evenly.
    EXPECT_NE(text.out.find("2 0  outColor = 1 1 1  uvCoord = 0.833333313 0.166666672\n"),
              std::string::npos)
        << text.out;
    EXPECT_NE(text.out.find("1 1  outColor = 0.5 0.5 0.5  uvCoord = 0.5 0.5\n"), std::string::npos)
        << text.out;
    EXPECT_TRUE(std::filesystem::exists(image));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir),
                            std::filesystem::directory_iterator()),
              1); // no temporary left beside it

    const ToolResult bad = runTool({"shade", scene, "-g", "sg", "--field", "normalCamera=1,2"});
    EXPECT_EQ(bad.exitCode, 1);
    EXPECT_NE(bad.err.find("takes 3 values, got 2"), std::string::npos) << bad.err;
}

TEST(OrvoTool, ShadeRefusesAGridTooLargeToHold) {
    const std::string scene = std::string(ORVO_TEST_DATA_DIR) + "/scenes/checker_shade.qsl";
    // 65536 x 65536 = 2^32 samples: one more than a 32-bit count holds.
    // 65535 x 65535 = 4294836225 samples fit the count, but at even 100
    // bytes each they need some 400 GiB.
    for (const char* side : {"65536", "65535", "4294967295"}) {
        const ToolResult r = runTool({"shade", scene, "-g", "sg", "--res", side, side});
        EXPECT_EQ(r.exitCode, 1) << side << ": " << r.err;
        EXPECT_EQ(r.out, "") << side;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
        EXPECT_NE(r.err.find("--res"), std::string::npos) << r.err;
    }
}

TEST(OrvoTool, NodesListsTypesAndDescribesOne) {
    const ToolResult all = runTool({"nodes"});
    EXPECT_EQ(all.exitCode, 0);
    EXPECT_NE(all.out.find("reverse"), std::string::npos);
    EXPECT_NE(all.out.find("RRVS"), std::string::npos);

    const ToolResult one = runTool({"nodes", "reverse"});
    EXPECT_EQ(one.exitCode, 0);
    EXPECT_NE(one.out.find("kReverse"), std::string::npos);
    EXPECT_NE(one.out.find("inputX"), std::string::npos);

    const ToolResult json = runTool({"nodes", "--json", "reverse"});
    EXPECT_EQ(json.exitCode, 0);
    EXPECT_NE(json.out.find("{\"long\": \"input\", \"short\": \"i\", \"class\": "
                            "\"Tattribute3Float\", \"parent\": null, \"default\": [0, 0, 0]"),
              std::string::npos)
        << json.out;

    const ToolResult unknown = runTool({"nodes", "revers"});
    EXPECT_EQ(unknown.exitCode, 1);
    EXPECT_EQ(countLines(unknown.err), 1);
}

TEST(OrvoTool, NoCommandShowsUsageAndFails) {
    const ToolResult result = runTool({});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.err.find("Subcommands:"), std::string::npos) << result.err;
}

} // namespace
