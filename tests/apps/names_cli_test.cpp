#include "test_paths.h"
#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "support/run_tool.h"

// `orvo names` and `orvo render` as users run them: the names of a render
// in render order, the render writing exactly those, and the scene's
// settings (hooks, skipExistingFrames, formats) at work.

namespace {

namespace fs = std::filesystem;

class NamesTool : public ::testing::Test {
protected:
    void SetUp() override {
        dir = fs::temp_directory_path() /
              ("orvo-names-" + std::to_string(::getpid()) + "-" +
               std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
        fs::remove_all(dir);
        fs::create_directories(dir);
        out = (dir / "out").string();
    }
    void TearDown() override { fs::remove_all(dir); }
    std::string write(const std::string& name, const std::string& text) {
        const auto path = dir / name;
        std::ofstream(path) << text;
        return path.string();
    }
    static std::vector<std::string> lines(const std::string& text) {
        std::vector<std::string> all;
        std::istringstream in(text);
        for (std::string line; std::getline(in, line);)
            all.push_back(line);
        return all;
    }
    // The paths `orvo render` reports, in the order it wrote them.
    static std::vector<std::string> written(const std::string& stdoutText) {
        std::vector<std::string> paths;
        for (const std::string& line : lines(stdoutText))
            if (line.rfind("frame ", 0) == 0) {
                const size_t from = line.find(": ") + 2;
                paths.push_back(line.substr(from, line.find("  ", from) - from));
            }
        return paths;
    }
    fs::path dir;
    std::string out;
};

// Two cameras and a square; frames 1 and 2 as PNG "name.#.ext".
const std::string kTwoCameras = R"(node transform camA
set camA.translate 0 0 3
node camera camAShape -parent camA
node transform camB
set camB.translate 0 0 4
node camera camBShape -parent camB
node transform square
set square.rotate 90 0 0
node mesh squareShape -parent square
set squareShape.primitive plane
node lambert grey
node shadingEngine greySG
connect grey.outColor greySG.surfaceShader
member greySG squareShape
set defaultRenderGlobals.imageFormat 32
set defaultRenderGlobals.animation true
set defaultRenderGlobals.putFrameBeforeExt true
set defaultRenderGlobals.endFrame 2
)";

const std::vector<std::string> kRenderFast = {"--res", "8", "8", "--spp", "1", "--threads", "1"};

std::vector<std::string> with(std::vector<std::string> args, const std::vector<std::string>& more) {
    args.insert(args.end(), more.begin(), more.end());
    return args;
}

TEST_F(NamesTool, NamesAndRenderAgreeOnCamerasAndFrames) {
    const std::string scene = write("shot.qsl", kTwoCameras);
    const ToolResult names = runTool({"names", scene, "-o", out});
    ASSERT_EQ(names.exitCode, 0) << names.err;
    // Frame by frame, each camera in creation order, a folder per camera.
    const std::vector<std::string> expected = {
        out + "/camA/shot.0001.png", out + "/camB/shot.0001.png", out + "/camA/shot.0002.png",
        out + "/camB/shot.0002.png"};
    EXPECT_EQ(lines(names.out), expected);
    const ToolResult render = runTool(with({"render", scene, "-o", out}, kRenderFast));
    ASSERT_EQ(render.exitCode, 0) << render.err;
    EXPECT_EQ(written(render.out), expected);
    for (const std::string& path : expected)
        EXPECT_TRUE(fs::is_regular_file(path)) << path;
    EXPECT_NE(render.out.find("rendered 4 images (2 frames)"), std::string::npos) << render.out;

    // --frames overrides the range: 3 to 4 by 0.5 renumbers 1 to 3 as 3, 4, 5.
    const ToolResult halves = runTool({"names", scene, "--frames", "3", "4", "0.5"});
    ASSERT_EQ(halves.exitCode, 0) << halves.err;
    EXPECT_EQ(lines(halves.out),
              (std::vector<std::string>{"./camA/shot.0003.png", "./camB/shot.0003.png",
                                        "./camA/shot.0004.png", "./camB/shot.0004.png",
                                        "./camA/shot.0005.png", "./camB/shot.0005.png"}));
}

TEST_F(NamesTool, LayersInCreationOrderWithinEachFrame) {
    const std::string scene =
        write("shot.qsl", kTwoCameras + "set camBShape.renderable false\n"
                                        "node renderLayerManager manager\n"
                                        "node renderLayer defaultRenderLayer\n"
                                        "node renderLayer closeUp\n"
                                        "connect defaultRenderLayer.message "
                                        "manager.defaultRenderLayer\n"
                                        "member closeUp square\n"
                                        "set closeUp.diffuse true\n");
    // closeUp has two passes: its folder is "layer_pass".
    const std::vector<std::string> expected = {
        "./defaultRenderLayer/shot.0001.png", "./closeUp_beauty/shot.0001.png",
        "./closeUp_diffuse/shot.0001.png",    "./defaultRenderLayer/shot.0002.png",
        "./closeUp_beauty/shot.0002.png",     "./closeUp_diffuse/shot.0002.png"};
    const ToolResult names = runTool({"names", scene});
    ASSERT_EQ(names.exitCode, 0) << names.err;
    EXPECT_EQ(lines(names.out), expected);

    const ToolResult json = runTool({"names", scene, "--json", "--frames", "2", "2"});
    ASSERT_EQ(json.exitCode, 0) << json.err;
    EXPECT_EQ(
        lines(json.out),
        (std::vector<std::string>{
            R"({"path": "./defaultRenderLayer/shot.0002.png", "camera": "camA", "frame": 2, "layer": "defaultRenderLayer", "pass": "beauty"})",
            R"({"path": "./closeUp_beauty/shot.0002.png", "camera": "camA", "frame": 2, "layer": "closeUp", "pass": "beauty"})",
            R"({"path": "./closeUp_diffuse/shot.0002.png", "camera": "camA", "frame": 2, "layer": "closeUp", "pass": "diffuse"})"}));

    // Only the default layer renders: no layer in the names.
    const std::string single =
        write("single.qsl", kTwoCameras + "set camBShape.renderable false\n"
                                          "set defaultRenderGlobals.animation false\n"
                                          "node renderLayerManager m\n"
                                          "node renderLayer base\n"
                                          "connect base.message m.defaultRenderLayer\n");
    EXPECT_EQ(runTool({"names", single}).out, "./single.png\n");
}

TEST_F(NamesTool, AbsoluteNamesStandAsTheyAre) {
    const std::string prefix = (dir / "abs" / "%s").string();
    const std::string scene = write("shot.qsl", kTwoCameras +
                                                    "set camBShape.renderable false\n"
                                                    "set defaultRenderGlobals.endFrame 1\n"
                                                    "set defaultRenderGlobals.imageFilePrefix \"" +
                                                    prefix + "\"\n");
    const ToolResult names = runTool({"names", scene, "-o", out});
    ASSERT_EQ(names.exitCode, 0) << names.err;
    EXPECT_EQ(names.out, (dir / "abs" / "shot.0001.png").string() + "\n");
}

TEST_F(NamesTool, MistakesAreOneLineAndNothingElse) {
    const std::string scene = write("shot.qsl", kTwoCameras);
    const std::string typo =
        write("typo.qsl", kTwoCameras + "set defaultRenderGlobals.animaton true\n");
    const std::string unwritable =
        write("soft.qsl", kTwoCameras + "set defaultRenderGlobals.imageFormat 1\n");
    // Two camera shapes under one transform: their images would share a name.
    const std::string twins =
        write("twins.qsl", kTwoCameras + "node camera camAShape2 -parent camA\n");
    const std::string badHook =
        write("hook.qsl", kTwoCameras + "set defaultRenderGlobals.preRenderQsl \"print(\\\"x\"\n");
    struct Case {
        std::vector<std::string> args;
        std::string says;
    };
    const Case cases[] = {
        {{"names", typo}, "animaton"},
        {{"names", scene, "--frames", "2", "1"}, "--frames"},
        {{"names", scene, "--frames", "1", "x"}, "--frames"},
        {{"names", scene, "--frames", "1"}, "--frames"},
        {{"names", (dir / "nope.qsl").string()}, "nope.qsl"},
        {{"names", unwritable}, "imageFormat is \"SoftImage\""},
        {{"names", twins}, "two images"},
        {{"names", badHook}, "preRenderQsl"},
        {{"names", scene, "--format", "tifff"}, "tifff"},
        {with({"render", unwritable, "-o", out}, kRenderFast), "imageFormat"},
        {with({"render", twins, "-o", out}, kRenderFast), "two images"},
        {with({"render", badHook, "-o", out}, kRenderFast), "preRenderQsl"},
        {with({"render", scene, "-o", out, "--float"}, kRenderFast), "--float"},
    };
    for (const Case& c : cases) {
        const ToolResult r = runTool(c.args);
        SCOPED_TRACE(c.args[0] + " " + c.args[1] + " " + c.says);
        EXPECT_EQ(r.exitCode, 1);
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(countLines(r.err), 1) << r.err;
        EXPECT_NE(r.err.find(c.says), std::string::npos) << r.err;
    }
    EXPECT_FALSE(fs::exists(out) && !fs::is_empty(out));
}

TEST_F(NamesTool, ExistingFramesAreSkippedWhenTheSceneSaysSo) {
    const std::string scene =
        write("shot.qsl", kTwoCameras + "set camBShape.renderable false\n"
                                        "set defaultRenderGlobals.skipExistingFrames true\n");
    fs::create_directories(out);
    std::ofstream(out + "/shot.0001.png") << "mine";
    const ToolResult names = runTool({"names", scene, "-o", out});
    EXPECT_EQ(names.out, out + "/shot.0002.png\n");
    const ToolResult render = runTool(with({"render", scene, "-o", out}, kRenderFast));
    ASSERT_EQ(render.exitCode, 0) << render.err;
    EXPECT_EQ(readWholeFile(out + "/shot.0001.png"), "mine");
    EXPECT_TRUE(fs::is_regular_file(out + "/shot.0002.png"));
    EXPECT_NE(render.out.find("shot.0001.png  skipped"), std::string::npos) << render.out;
}

TEST_F(NamesTool, HooksRunAtTheirMoments) {
    const std::string scene = write(
        "shot.qsl", kTwoCameras + "set camBShape.renderable false\n"
                                  "set defaultRenderGlobals.preQsl \"print pre\"\n"
                                  "set defaultRenderGlobals.postQsl \"print post\"\n"
                                  "set defaultRenderGlobals.preRenderQsl \"print frame\"\n"
                                  "set defaultRenderGlobals.postRenderQsl \"print /frame\"\n"
                                  "set defaultRenderGlobals.preRenderLayerQsl \"print layer\"\n"
                                  "set defaultRenderGlobals.postRenderLayerQsl \"print /layer\"\n");
    // Names run no hook.
    EXPECT_EQ(countLines(runTool({"names", scene}).out), 2);
    const ToolResult render = runTool(with({"render", scene, "-o", out}, kRenderFast));
    ASSERT_EQ(render.exitCode, 0) << render.err;
    std::vector<std::string> seen;
    for (const std::string& line : lines(render.out))
        seen.push_back(line.rfind("frame 000", 0) == 0 ? line.substr(0, 10) : line);
    seen.pop_back(); // the summary
    EXPECT_EQ(seen, (std::vector<std::string>{"pre", "frame", "layer", "frame 0001", "/layer",
                                              "/frame", "frame", "layer", "frame 0002", "/layer",
                                              "/frame", "post"}));
}

TEST_F(NamesTool, TheScenesSizeAndFormat) {
    const std::string scene =
        write("shot.qsl", kTwoCameras + "set camBShape.renderable false\n"
                                        "set defaultRenderGlobals.animation false\n"
                                        "set defaultResolution.width 12\n"
                                        "set defaultResolution.height 6\n"
                                        "set defaultRenderGlobals.numCpusToUse 1\n");
    ToolResult r = runTool({"render", scene, "-o", out, "--spp", "1"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.out.find("shot.png  12x6,"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("with 1 thread:"), std::string::npos) << r.out;
    EXPECT_EQ(readWholeFile(out + "/shot.png").substr(0, 4), "\x89PNG");
    // The command line wins: 4 by 2, Targa.
    r = runTool({"render", scene, "-o", out, "--spp", "1", "--res", "4", "2", "--format", "tga",
                 "--threads", "3"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.out.find("shot.tga  4x2,"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("with 3 threads:"), std::string::npos) << r.out;
    EXPECT_TRUE(fs::is_regular_file(out + "/shot.tga"));
}

TEST_F(NamesTool, HelpSaysOptionsOverrideTheScene) {
    const ToolResult r = runTool({"render", "--help"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_NE(r.out.find("overrides the scene's defaultResolution"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("overrides the scene's imageFormat"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("overrides the scene's numCpusToUse"), std::string::npos) << r.out;
}

} // namespace
