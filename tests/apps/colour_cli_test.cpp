// The tool's colour report, and a colour configuration that cannot be
// used, as a user meets them.

#include "test_paths.h"
#include <gtest/gtest.h>

#include <cstdlib>

#include "support/run_tool.h"
#include "support/temp_folder.h"
#include "support/tiny_ocio.h"

namespace {

const std::string kScene = std::string(ORVO_EXAMPLES_DIR) + "/textured.qsl";

TEST(OrvoColour, InfoListsEachFileTexturesSpaceAndRule) {
    ::unsetenv("OCIO");
    const ToolResult r = runTool({"info", kScene});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.err, "");
    for (const char* expected :
         {"\nColour\n", " (built-in)\n", "  rendering space scene-linear Rec.709-sRGB\n",
          "  output view Standard (sRGB)\n", "crate.png: sRGB (rule Default)\n",
          // every tile of a tiled texture
          "floor.1001.png: sRGB (rule Default)\n", "floor.1012.png: sRGB (rule Default)\n"})
        EXPECT_NE(r.out.find(expected), std::string::npos) << expected << "\nin:\n" << r.out;
}

TEST(OrvoColour, ABadOcioVariableIsOneErrorAndTheBuiltInConfigurationServes) {
    TempFolder dir;
    const std::string bad = dir.write("studio.ocio", "ocio_profile_version: 2\nroles: [\n");
    ::setenv("OCIO", bad.c_str(), 1);
    const ToolResult r = runTool({"info", kScene});
    ::unsetenv("OCIO");
    ASSERT_EQ(r.exitCode, 0) << r.err;
    // One line, naming the variable and the file.
    EXPECT_NE(r.err.find("Error: the OCIO variable: " + bad), std::string::npos) << r.err;
    EXPECT_EQ(r.err.find('\n'), r.err.size() - 1) << r.err;
    EXPECT_NE(r.out.find(" (built-in)\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("crate.png: sRGB (rule Default)"), std::string::npos) << r.out;

    // A good one replaces the built-in configuration.
    const std::string good = dir.write("good.ocio", kTinyOcioConfig);
    ::setenv("OCIO", good.c_str(), 1);
    const ToolResult g = runTool({"info", kScene});
    ::unsetenv("OCIO");
    ASSERT_EQ(g.exitCode, 0) << g.err;
    EXPECT_NE(g.out.find("configuration " + good + "\n"), std::string::npos) << g.out;
    EXPECT_NE(g.out.find("rendering space lin\n"), std::string::npos) << g.out;
    EXPECT_NE(g.out.find("output view Plain (Screen)\n"), std::string::npos) << g.out;
    // The built-in default space is not in it: its own file rules choose.
    EXPECT_NE(g.out.find("crate.png: lin (rule the configuration's Default)"), std::string::npos)
        << g.out;
    EXPECT_EQ(g.err, "");
}

} // namespace
