// orvo info on depth map files that orvo render wrote, and on damaged ones.

#include "test_paths.h"
#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "support/run_tool.h"

namespace {

namespace fs = std::filesystem;

// A sun straight above a plane 4 wide, seen from above; its depth map is
// written beside the images.
const char* kSunOverAPlane = R"(node transform camera1
set camera1.translate 0 5 0
set camera1.rotate -90 0 0
node camera cameraShape1 -parent camera1
node transform sun
set sun.rotate -90 0 0
node directionalLight sunShape -parent sun
set sunShape.useDepthMapShadows true
set sunShape.writeDmap true
set sunShape.dmapResolution 64
node transform floor
node mesh floorShape -parent floor
set floorShape.primitive plane
set floorShape.width 4
set floorShape.depth 4
)";

TEST(OrvoInfo, DescribesADepthMapAndRefusesADamagedOne) {
    const fs::path dir =
        fs::temp_directory_path() / ("orvo-info-dmap-" + std::to_string(::getpid()));
    fs::remove_all(dir);
    fs::create_directories(dir);
    std::ofstream(dir / "sun.qsl") << kSunOverAPlane;
    const ToolResult render = runTool(
        {"render", (dir / "sun.qsl").string(), "-o", (dir / "out").string(), "--res", "8", "8"});
    ASSERT_EQ(render.exitCode, 0) << render.err;
    const fs::path map = dir / "out" / "depth" / "_sunShape.iff";
    ASSERT_TRUE(fs::exists(map));

    const ToolResult info = runTool({"info", map.string()});
    ASSERT_EQ(info.exitCode, 0) << info.err;
    EXPECT_NE(info.out.find("64 x 64, orthographic, a single map"), std::string::npos) << info.out;
    EXPECT_NE(info.out.find("channels: depth"), std::string::npos) << info.out;
    // The plane fills the map but for the margin of two and a half texels
    // that auto focus leaves each side: its edges fall halfway between
    // texels 2 and 3 and between 61 and 62.
    EXPECT_NE(info.out.find("they lie in x 3 to 61, y 3 to 61"), std::string::npos) << info.out;

    // Cut short: an error that names the file, nothing on stdout.
    const std::string bytes = readWholeFile(map.string());
    std::ofstream(dir / "cut.iff", std::ios::binary) << bytes.substr(0, bytes.size() / 2);
    const ToolResult cut = runTool({"info", (dir / "cut.iff").string()});
    EXPECT_EQ(cut.exitCode, 1);
    EXPECT_EQ(cut.out, "");
    EXPECT_NE(cut.err.find((dir / "cut.iff").string()), std::string::npos) << cut.err;
    fs::remove_all(dir);
}

} // namespace
