#include "test_paths.h"
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "host/image_file.h"
#include "support/run_tool.h"
#include "support/temp_folder.h"

// `orvo view` and `orvo bake` from outside: the default scene drawn against
// its reference picture, a bake against `orvo shade` of the same network,
// and what a user's mistakes get back.

namespace {

std::string examples(const std::string& name) {
    return std::string(ORVO_EXAMPLES_DIR) + "/" + name;
}
std::string testScene(const std::string& name) {
    return std::string(ORVO_TEST_DATA_DIR) + "/scenes/" + name;
}

TpixelMap readMap(const std::string& path) {
    TpixelMap map;
    auto file = TimageFile::identifyAndOpen(path);
    EXPECT_TRUE(file && file->readPixelMap(map)) << path;
    return map;
}

// A channel may differ by this many 8-bit steps without counting, and this
// share of the pixels (in percent) may differ by more: software GL gives
// the same picture run after run, but another Mesa may round an edge or a
// highlight differently. docs/golden.md tells how to make a new reference.
constexpr int kChannelTolerance = 3;
constexpr double kPercentAllowed = 0.5;

} // namespace

TEST(ViewCli, DrawsTheDefaultSceneAsItsReference) {
    TempFolder folder;
    const std::string drawn = folder.file("view.png");
    const ToolResult r =
        runTool({"view", examples("default_scene.qsl"), "--res", "160", "90", "-o", drawn});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const std::string reference = testScene("golden/default_scene_view.png");
    if (const char* update = std::getenv("ORVO_UPDATE_GOLDEN"); update && *update) {
        std::filesystem::copy_file(drawn, reference,
                                   std::filesystem::copy_options::overwrite_existing);
        GTEST_SKIP() << "wrote " << reference;
    }
    const TpixelMap got = readMap(drawn), want = readMap(reference);
    ASSERT_EQ(got.width(), want.width());
    ASSERT_EQ(got.height(), want.height());
    size_t over = 0;
    for (unsigned y = 0; y < got.height(); ++y)
        for (unsigned x = 0; x < got.width(); ++x)
            for (unsigned c = 0; c < 4; ++c)
                if (std::abs(int(got.pixel(x, y)[c]) - int(want.pixel(x, y)[c])) >
                    kChannelTolerance) {
                    ++over;
                    break;
                }
    EXPECT_LE(100.0 * double(over) / double(got.width() * got.height()), kPercentAllowed)
        << over << " pixels differ from " << reference;
}

TEST(ViewCli, ABakeEqualsShadingTheNetworkAtTheSameUvs) {
    TempFolder folder;
    const std::string baked = folder.file("bake.png"), shaded = folder.file("shade.png");
    const std::string scene = testScene("viewport/bake.qsl");
    ToolResult r = runTool({"bake", scene, "-g", "paintSG", "--res", "12", "8", "-o", baked});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    r = runTool({"shade", scene, "-g", "checkerSG", "--res", "12", "8", "-o", shaded});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const TpixelMap bake = readMap(baked), shade = readMap(shaded);
    ASSERT_EQ(bake.width(), 12u);
    ASSERT_EQ(bake.height(), 8u);
    ASSERT_EQ(shade.width(), 12u);
    // A bake is a texture, v = 0 at its bottom row; `orvo shade -o` writes
    // sample row j = 0 (v = 1/16) at the top. Pixel maps keep row 0 at the
    // bottom, so sample row j is the bake's row j and the shade image's
    // row 7 - j.
    for (unsigned j = 0; j < 8; ++j)
        for (unsigned i = 0; i < 12; ++i)
            for (unsigned c = 0; c < 3; ++c)
                EXPECT_EQ(bake.pixel(i, j)[c], shade.pixel(i, 7 - j)[c])
                    << "sample " << i << " " << j << " channel " << c;
}

TEST(ViewCli, DepthMapShadowsDarkenWhatTheLightCannotSee) {
    TempFolder folder;
    const std::string drawn = folder.file("shadow.png");
    const ToolResult r =
        runTool({"view", testScene("viewport/shadow.qsl"), "--res", "100", "100", "-o", drawn});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const TpixelMap map = readMap(drawn);
    ASSERT_EQ(map.width(), 100u);
    // 10 pixels a unit, image up along -Z, rows counted from the bottom.
    // The floor where the box's shadow falls (z = -2, row 70): no ambient
    // light, black.
    EXPECT_LE(map.pixel(50, 70)[TpixelMap::kRed], 1);
    // The floor in the sun (z = +2, row 30): 0.5 * cos 45 = 0.354, through
    // the sRGB view 0.629, 160 of 255.
    EXPECT_NEAR(map.pixel(50, 30)[TpixelMap::kRed], 160, 1);
    // Beside the shadow, in the sun again.
    EXPECT_NEAR(map.pixel(80, 70)[TpixelMap::kRed], 160, 1);
}

TEST(ViewCli, UvTilesAreDrawnEachInItsOwnPlace) {
    TempFolder folder;
    std::filesystem::copy_file(testScene("viewport/tiles.qsl"), folder.file("tiles.qsl"));
    // Tile 1001 red, tile 1002 blue, 2 by 2 texels each (binary PPMs).
    const auto tile = [](char r, char b) {
        std::string ppm = "P6\n2 2\n255\n";
        for (int i = 0; i < 4; ++i)
            ppm += {r, '\0', b};
        return ppm;
    };
    folder.write("tile.1001.ppm", tile('\xff', '\0'));
    folder.write("tile.1002.ppm", tile('\0', '\xff'));
    const std::string drawn = folder.file("tiles.png");
    const ToolResult r =
        runTool({"view", folder.file("tiles.qsl"), "--res", "100", "100", "-o", drawn});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const TpixelMap map = readMap(drawn);
    ASSERT_EQ(map.width(), 100u);
    // The sun straight down on a diffuse 1 lambert: each texel's colour as
    // it is. 10 pixels a unit: x = -2.5 is column 25, x = 2.5 column 75.
    for (unsigned row : {10u, 50u, 90u}) {
        EXPECT_EQ(map.pixel(25, row)[TpixelMap::kRed], 255) << row;
        EXPECT_EQ(map.pixel(25, row)[TpixelMap::kBlue], 0) << row;
        EXPECT_EQ(map.pixel(75, row)[TpixelMap::kRed], 0) << row;
        EXPECT_EQ(map.pixel(75, row)[TpixelMap::kBlue], 255) << row;
        // Right beside the seam, each side keeps its own tile's colour.
        EXPECT_EQ(map.pixel(48, row)[TpixelMap::kBlue], 0) << row;
        EXPECT_EQ(map.pixel(52, row)[TpixelMap::kRed], 0) << row;
    }
}

TEST(ViewCli, MistakesAreUserErrorsAndLeaveNoImage) {
    TempFolder folder;
    const std::string image = folder.file("out.png");
    ToolResult r = runTool({"view", folder.file("missing.qsl"), "-o", image});
    EXPECT_EQ(r.exitCode, 1);
    r = runTool({"view", examples("default_scene.qsl"), "--camera", "nosuch", "-o", image});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("no node named 'nosuch'"), std::string::npos) << r.err;
    r = runTool({"view", examples("default_scene.qsl"), "--camera", "floor", "-o", image});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("not a camera"), std::string::npos) << r.err;
    r = runTool({"view", examples("default_scene.qsl"), "-o", folder.file("out.txt")});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find(".png or an .exr"), std::string::npos) << r.err;
    const std::string scene = testScene("viewport/bake.qsl");
    r = runTool({"bake", scene, "-g", "nosuch", "-o", image});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("no node named 'nosuch'"), std::string::npos) << r.err;
    // A material of plain colours shows no texture.
    r = runTool({"bake", scene, "-g", "plainSG", "-o", image});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("shows no texture"), std::string::npos) << r.err;
    EXPECT_FALSE(std::filesystem::exists(image));
    // The camera named by its transform or its shape alike.
    r = runTool({"view", examples("default_scene.qsl"), "--res", "16", "9", "--camera", "camera1",
                 "-o", image});
    EXPECT_EQ(r.exitCode, 0) << r.err;
}
