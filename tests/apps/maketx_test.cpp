// orvo maketx and orvo info on textures and images, run as a user runs them.

#include "test_paths.h"
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>

#include "support/run_tool.h"
#include "support/temp_folder.h"

namespace {

namespace fs = std::filesystem;

// A folder of the test's own, and the names in it.
struct Folder : TempFolder {
    Folder() : TempFolder("orvo-maketx") {}
    std::vector<std::string> names() const {
        std::vector<std::string> all;
        for (const auto& e : fs::directory_iterator(path))
            all.push_back(e.path().filename().string());
        std::sort(all.begin(), all.end());
        return all;
    }
};

// A 40 x 20 binary PPM of a gradient.
std::string gradientPpm() {
    std::string ppm = "P6\n40 20\n255\n";
    for (int y = 0; y < 20; ++y)
        for (int x = 0; x < 40; ++x)
            ppm += {char(x * 6), char(y * 12), char(100)};
    return ppm;
}

TEST(OrvoMaketx, WritesABlockOrderedTextureThatInfoDescribes) {
    Folder dir;
    const std::string image = dir.write("grad.ppm", gradientPpm());
    const ToolResult made = runTool({"maketx", image});
    ASSERT_EQ(made.exitCode, 0) << made.err;
    EXPECT_EQ(made.err, "");
    // 40 x 20: short side 20, maxLevel 5 (32 >= 20): six levels.
    EXPECT_EQ(made.out, dir.file("grad.bot") + ": 40 x 20, 3 channels, 6 levels\n");
    EXPECT_EQ(dir.names(), (std::vector<std::string>{"grad.bot", "grad.ppm"}));

    const ToolResult info = runTool({"info", dir.file("grad.bot")});
    ASSERT_EQ(info.exitCode, 0) << info.err;
    for (const std::string& expected : std::vector<std::string>{
             "Block-ordered texture ", "40 x 20, 3 channels (RGB), 8-bit",
             "levels    0 .. 5 (mipmapped)",
             // levels 0..4 one block each, the top ceil(40/32) * ceil(20/32) = 2
             "blocks    7,", "      5  40 x 20" + std::string(13, ' ') + "2"})
        EXPECT_NE(info.out.find(expected), std::string::npos) << expected << "\nin:\n" << info.out;

    const ToolResult image_info = runTool({"info", image});
    ASSERT_EQ(image_info.exitCode, 0) << image_info.err;
    EXPECT_NE(image_info.out.find("size      40 x 20"), std::string::npos) << image_info.out;
    EXPECT_NE(image_info.out.find("channels  3 (R, G, B)"), std::string::npos) << image_info.out;

    // -o names the output; a float image is rounded with a warning.
    const float rgb[3] = {2.0f, 0.5f, -1.0f};
    const std::string pfm =
        dir.write("hdr.pfm", std::string("PF\n1 1\n-1.0\n") +
                                 std::string(reinterpret_cast<const char*>(rgb), 12));
    const ToolResult hdr = runTool({"maketx", pfm, "-o", dir.file("out.tex")});
    EXPECT_EQ(hdr.exitCode, 0) << hdr.err;
    EXPECT_NE(hdr.err.find("warning: " + pfm + " holds floating-point values"), std::string::npos)
        << hdr.err;
    EXPECT_TRUE(fs::exists(dir.file("out.tex")));
}

TEST(OrvoMaketx, FailuresNameTheFileAndLeaveNothing) {
    Folder dir;
    const ToolResult missing = runTool({"maketx", dir.file("nope.png")});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_NE(missing.err.find("orvo maketx: " + dir.file("nope.png") + ": cannot read the image"),
              std::string::npos)
        << missing.err;

    const std::string image = dir.write("grad.ppm", gradientPpm());
    const ToolResult noFolder = runTool({"maketx", image, "-o", dir.file("no/such/t.bot")});
    EXPECT_EQ(noFolder.exitCode, 1);
    EXPECT_NE(noFolder.err.find(dir.file("no/such/t.bot") + ": cannot write the texture"),
              std::string::npos)
        << noFolder.err;
    EXPECT_EQ(std::count(noFolder.err.begin(), noFolder.err.end(), '\n'), 1) << noFolder.err;
    // A folder the texture cannot be written into.
    fs::create_directory(dir.file("locked"));
    fs::permissions(dir.file("locked"), fs::perms::owner_read | fs::perms::owner_exec);
    const ToolResult locked = runTool({"maketx", image, "-o", dir.file("locked/t.bot")});
    if (::geteuid() != 0) {
        EXPECT_EQ(locked.exitCode, 1);
        EXPECT_TRUE(fs::is_empty(dir.file("locked")));
    }
    fs::permissions(dir.file("locked"), fs::perms::owner_all);
    EXPECT_EQ(dir.names(), (std::vector<std::string>{"grad.ppm", "locked"}));
    EXPECT_EQ(missing.out + noFolder.out, "");
}

TEST(OrvoInfo, DamagedAndForeignFilesAreUserErrors) {
    Folder dir;
    const std::string image = dir.write("grad.ppm", gradientPpm());
    ASSERT_EQ(runTool({"maketx", image}).exitCode, 0);
    std::ifstream in(dir.file("grad.bot"), std::ios::binary);
    const std::string bot((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const std::string cut = dir.write("cut.bot", bot.substr(0, bot.size() - 5));
    const ToolResult damaged = runTool({"info", cut});
    EXPECT_EQ(damaged.exitCode, 1);
    EXPECT_EQ(damaged.out, "");
    EXPECT_NE(damaged.err.find("orvo info: " + cut + ": damaged block-ordered texture"),
              std::string::npos)
        << damaged.err;

    const std::string text = dir.write("notes.txt", "just some words\n");
    const ToolResult foreign = runTool({"info", text});
    EXPECT_EQ(foreign.exitCode, 1);
    EXPECT_NE(foreign.err.find("orvo info: " + text +
                               ": not a scene, block-ordered texture or "
                               "readable image"),
              std::string::npos)
        << foreign.err;
}

} // namespace
