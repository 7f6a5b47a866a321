#include "test_paths.h"
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "render/image_io.h"
#include "render/renderer.h"
#include "render/scene_text.h"

// Golden images: each scene of tests/scenes/golden is rendered small and
// compared with the PNG beside it. docs/golden.md tells the tolerance and
// how to make new references (ORVO_UPDATE_GOLDEN=1).

namespace {

struct GoldenCase {
    const char* name;
    unsigned width, height, spp;
    // The scene, when it is not tests/scenes/golden/NAME.qsl: a path under
    // examples/.
    const char* example = nullptr;
};

// A channel may differ by this many 8-bit steps without counting...
constexpr unsigned kChannelTolerance = 3;
// ...and this share of the pixels, in percent, may differ by more.
constexpr double kPercentAllowed = 0.5;

const GoldenCase kCases[] = {
    {"textures", 96, 54, 4},
    {"shadows", 128, 72, 4},
    {"glass", 128, 72, 4},
    // The built-in scene, as `orvo render` and scripts/demo show it.
    {"default_scene", 160, 90, 4, "default_scene.qsl"},
    // The five specular materials side by side.
    {"materials", 160, 50, 4, "materials.qsl"},
    // Spot, area, point and volume lights with their shadows.
    {"lights", 160, 90, 4, "lights.qsl"},
    // One ramp shader, three colours through a shading switch.
    {"ramp_switch", 168, 70, 4, "ramp_switch.qsl"},
    // File textures: a PNG with alpha on an OBJ crate, a floor in UDIM tiles.
    {"textured", 160, 90, 4, "textured.qsl"},
    // Shader glow, a lamp's optical effects and depth of field: the post
    // effects over a frame.
    {"glow", 160, 90, 4, "glow.qsl"},
};

std::string goldenPath(const std::string& name, const char* extension) {
    return std::string(ORVO_TEST_DATA_DIR) + "/scenes/golden/" + name + extension;
}

class Golden : public ::testing::TestWithParam<GoldenCase> {};

TEST_P(Golden, MatchesItsReference) {
    const GoldenCase& c = GetParam();
    const std::string scene =
        c.example ? std::string(ORVO_EXAMPLES_DIR) + "/" + c.example : goldenPath(c.name, ".qsl");
    const std::string reference = goldenPath(c.name, ".png");
    std::ifstream file(scene);
    ASSERT_TRUE(file) << scene;
    std::stringstream text;
    text << file.rdbuf();
    MessageCapture quiet;
    auto graph = sceneFromText(text.str(), scene);

    TrenderOptions options;
    options.width = c.width;
    options.height = c.height;
    options.samplesPerPixel = c.spp;
    options.threads = 2;
    TrenderedImage image;
    TframeStats stats;
    ASSERT_TRUE(Trenderer(options).renderFrame(*graph, scene, 16, image, stats));

    const char* update = std::getenv("ORVO_UPDATE_GOLDEN");
    if (update && std::string(update) == "1") {
        OrvoWriteImage(reference, image, TimageFormat::Png);
        GTEST_SKIP() << "wrote " << reference << ": look at it before committing it";
    }
    ASSERT_TRUE(std::filesystem::exists(reference))
        << reference << " is missing; see docs/golden.md to make it";
    unsigned width = 0, height = 0;
    const std::vector<uint8_t> expected = OrvoReadRgba8(reference, width, height);
    ASSERT_EQ(width, c.width);
    ASSERT_EQ(height, c.height);
    const TimageDifference d =
        OrvoCompareRgba8(OrvoEncodeRgba8(image), expected, kChannelTolerance);
    EXPECT_LE(d.percentOver, kPercentAllowed)
        << c.name << ": " << d.pixelsOver << " pixels differ by more than " << kChannelTolerance
        << " (at most " << d.maxDifference << ")";
}

INSTANTIATE_TEST_SUITE_P(Scenes, Golden, ::testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

// The comparison itself, on images made by hand.
TEST(GoldenComparison, CountsPixelsBeyondTheTolerance) {
    std::vector<uint8_t> a(4 * 10, 100), b = a;
    b[0] = 103;        // pixel 0: within 3
    b[4 * 3 + 3] = 96; // pixel 3: alpha off by 4
    b[4 * 7 + 1] = 0;  // pixel 7: off by 100
    const TimageDifference d = OrvoCompareRgba8(a, b, 3);
    EXPECT_EQ(d.pixelsOver, 2u);
    EXPECT_EQ(d.maxDifference, 100u);
    EXPECT_DOUBLE_EQ(d.percentOver, 20.0);
}

// PNG bytes go through the standard sRGB view: 0.5 linear is
// 1.055 * 0.5^(1/2.4) - 0.055 = 0.73536 encoded, 187.5 of 255, so 188;
// 0.002 is on the straight part, 12.92 * 0.002 = 0.0258, 7 of 255; values
// outside 0 to 1 clip. Alpha goes out as it is.
TEST(GoldenComparison, PngBytesGoThroughTheSrgbView) {
    TrenderedImage image;
    image.width = 5;
    image.height = 1;
    const float red[5] = {0.5f, 0.002f, 1.0f, -1.0f, 4.0f};
    for (float r : red)
        image.pixels.insert(image.pixels.end(), {r, 0.0f, 0.18f, 0.25f, 0.0f});
    const std::vector<uint8_t> bytes = OrvoEncodeRgba8(image);
    ASSERT_EQ(bytes.size(), 20u);
    const int expected[5] = {188, 7, 255, 0, 255};
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(bytes[size_t(i) * 4], expected[i]) << i;
        EXPECT_EQ(bytes[size_t(i) * 4 + 1], 0) << i;
        // 0.18 linear: 1.055 * 0.18^(1/2.4) - 0.055 = 0.46137, 117.65 of 255.
        EXPECT_EQ(bytes[size_t(i) * 4 + 2], 118) << i;
        EXPECT_EQ(bytes[size_t(i) * 4 + 3], 64) << i; // 0.25 * 255 = 63.75
    }
    // The raw view leaves values alone: 0.5 is 127.5, so 128.
    const std::vector<uint8_t> raw = OrvoEncodeRgba8(image, {"", "Raw (sRGB)", false});
    EXPECT_EQ(raw[0], 128);
    // An output transform the configuration lacks is an error that names it.
    try {
        OrvoEncodeRgba8(image, {"", "Filmic (sRGB)", false});
        FAIL() << "no error";
    } catch (const std::exception& e) {
        EXPECT_NE(std::string(e.what()).find("Filmic (sRGB)"), std::string::npos) << e.what();
    }
}

// An image goes out under a temporary name and comes back as written.
TEST(GoldenComparison, WrittenImagesReadBackAndLeaveNoTemporaryFile) {
    const auto dir = std::filesystem::temp_directory_path() /
                     ("orvo-render-image-io-" + std::to_string(::getpid()));
    std::filesystem::remove_all(dir);
    std::filesystem::create_directories(dir);
    TrenderedImage image;
    image.width = 3;
    image.height = 2;
    image.pixels.assign(3 * 2 * TrenderedImage::kChannels, 0.0f);
    image.pixels[0] = 1.0f; // red, pixel (0, 0)
    image.pixels[3] = 1.0f; // its alpha
    image.pixels[TrenderedImage::kChannels * 5 + 3] = 0.5f;
    const std::string path = (dir / "out.png").string();
    OrvoWriteImage(path, image, TimageFormat::Png);
    OrvoWriteImage((dir / "out.exr").string(), image, TimageFormat::ExrHalf);
    unsigned w = 0, h = 0;
    const std::vector<uint8_t> back = OrvoReadRgba8(path, w, h);
    ASSERT_EQ(w, 3u);
    ASSERT_EQ(h, 2u);
    EXPECT_EQ(back[0], 255);
    EXPECT_EQ(back[3], 255);
    EXPECT_EQ(back[1], 0);
    EXPECT_EQ(back[4 * 5 + 3], 128);
    size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(dir)) {
        ++files;
        EXPECT_NE(entry.path().filename().string().front(), '.') << entry.path();
    }
    EXPECT_EQ(files, 2u);
    // A folder that does not exist: an error naming the file, and nothing left.
    EXPECT_THROW(OrvoWriteImage((dir / "missing" / "x.png").string(), image, TimageFormat::Png),
                 std::runtime_error);
    std::filesystem::remove_all(dir);
}

} // namespace
