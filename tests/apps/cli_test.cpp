#include <gtest/gtest.h>

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

TEST(OrvoTool, NoCommandShowsUsageAndFails) {
    const ToolResult result = runTool({});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.err.find("Subcommands:"), std::string::npos) << result.err;
}

} // namespace
