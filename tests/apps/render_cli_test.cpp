#include "test_paths.h"
#include <gtest/gtest.h>

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "support/run_tool.h"

// `orvo render` run as a user runs it: files, messages and exit status.

namespace {

namespace fs = std::filesystem;

class RenderTool : public ::testing::Test {
protected:
    void SetUp() override {
        dir = fs::temp_directory_path() /
              ("orvo-render-" + std::to_string(::getpid()) + "-" +
               std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
        fs::remove_all(dir);
        fs::create_directories(dir);
        out = dir / "images";
    }
    void TearDown() override { fs::remove_all(dir); }
    std::string write(const std::string& name, const std::string& text) {
        const auto path = dir / name;
        std::ofstream(path) << text;
        return path.string();
    }
    // Every file in the output folder, hidden ones included.
    std::vector<std::string> outputs() const {
        std::vector<std::string> names;
        if (fs::exists(out))
            for (const auto& entry : fs::directory_iterator(out))
                names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }
    fs::path dir, out;
};

const char* kViewOfASquare = R"(node transform camera1
set camera1.translate 0 0 3
node camera cameraShape1 -parent camera1
node transform square
set square.rotate 90 0 0
node mesh squareShape -parent square
set squareShape.primitive plane
node checker board
node shadingEngine boardSG
connect board.outColor boardSG.surfaceShader
member boardSG squareShape
)";

TEST_F(RenderTool, WithoutASceneRendersTheBuiltInOneFromAnyFolder) {
    const ToolResult r = runTool({"render", "-o", out.string(), "--res", "32", "18", "--spp", "1"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(outputs(), std::vector<std::string>{"default_scene.0001.png"});
    EXPECT_NE(r.out.find("frame 0001: "), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("32x18, 1 spp"), std::string::npos) << r.out;
    // The summary: time, samples shaded, samples per second.
    EXPECT_NE(r.out.find("rendered 1 frame in "), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("samples shaded"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("samples per second"), std::string::npos) << r.out;
}

// The scene's naming: a frame after a period and before the extension
// ("name.#.ext") once putFrameBeforeExt is on; --frames turns animation on.
TEST_F(RenderTool, FramesAreNamedAsTheSceneSays) {
    const std::string scene =
        write("square.qsl",
              std::string(kViewOfASquare) + "set defaultRenderGlobals.putFrameBeforeExt true\n");
    const ToolResult r =
        runTool({"render", scene, "-o", out.string(), "--res", "8", "8", "--frames", "2", "6", "2",
                 "--spp", "1", "--threads", "1", "--format", "png"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(outputs(),
              (std::vector<std::string>{"square.0002.png", "square.0004.png", "square.0006.png"}));
    EXPECT_EQ(countLines(r.out), 4) << r.out;
    EXPECT_NE(r.out.find("rendered 3 frames"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("with 1 thread:"), std::string::npos) << r.out;
}

TEST_F(RenderTool, ExrImagesInHalfOrFloat) {
    const std::string scene = write("square.qsl", kViewOfASquare);
    ToolResult r = runTool(
        {"render", scene, "-o", out.string(), "--res", "4", "4", "--format", "exr", "--float"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    // Animation is off in the scene: "name.ext".
    EXPECT_EQ(outputs(), std::vector<std::string>{"square.exr"});
    r = runTool({"render", scene, "-o", out.string(), "--res", "4", "4", "--float"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("--float"), std::string::npos) << r.err;
    r = runTool({"render", scene, "-o", out.string(), "--format", "tifff"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("tifff"), std::string::npos) << r.err;
}

TEST_F(RenderTool, ASceneWithoutCameraIsAUserErrorNamingTheFile) {
    const std::string scene = write("blind.qsl", "node transform t\nnode mesh m -parent t\n"
                                                 "set m.primitive sphere\n");
    const ToolResult r = runTool({"render", scene, "-o", out.string(), "--res", "8", "8"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(countLines(r.err), 1) << r.err;
    EXPECT_NE(r.err.find(scene), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("camera"), std::string::npos) << r.err;
    EXPECT_TRUE(outputs().empty());
}

// The scene names the renderer; one nobody registered is an error that
// lists those that can render, and `orvo renderers` shows the same list.
TEST_F(RenderTool, AnUnknownRendererIsAUserErrorListingTheKnownOnes) {
    const std::string scene =
        write("other.qsl", "node transform c\nnode camera cs -parent c\n"
                           "set defaultRenderGlobals.currentRenderer \"someoneElse\"\n");
    const ToolResult r = runTool({"render", scene, "-o", out.string(), "--res", "8", "8"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(countLines(r.err), 1) << r.err;
    EXPECT_NE(r.err.find(scene), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("'someoneElse'"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("orvoSoftware"), std::string::npos) << r.err;
    EXPECT_TRUE(outputs().empty());
    const ToolResult list = runTool({"renderers"});
    EXPECT_EQ(list.exitCode, 0) << list.err;
    EXPECT_EQ(list.out.rfind("orvoSoftware\t", 0), 0u) << list.out;
    EXPECT_NE(list.out.find("\tbatch\n"), std::string::npos) << list.out;
}

TEST_F(RenderTool, AShadingGroupWithoutShaderWarnsAndRenders) {
    const std::string scene =
        write("bare.qsl",
              std::string(kViewOfASquare) + "disconnect board.outColor boardSG.surfaceShader\n");
    const ToolResult r = runTool({"render", scene, "-o", out.string(), "--res", "8", "8"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.err.find("Warning: "), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("'boardSG' has no surface shader"), std::string::npos) << r.err;
    EXPECT_EQ(outputs(), std::vector<std::string>{"bare.iff"});
}

TEST_F(RenderTool, BadArgumentsAreUserErrorsAndWriteNothing) {
    const std::string scene = write("square.qsl", kViewOfASquare);
    for (const std::vector<std::string>& args : {std::vector<std::string>{"--res", "0", "8"},
                                                 {"--spp", "0"},
                                                 {"--frames", "5", "1"},
                                                 {"--frames", "1", "5", "0"},
                                                 {"--res", "8"}}) {
        std::vector<std::string> all{"render", scene, "-o", out.string()};
        all.insert(all.end(), args.begin(), args.end());
        const ToolResult r = runTool(all);
        EXPECT_EQ(r.exitCode, 1) << args[0] << " " << args[1];
        EXPECT_EQ(countLines(r.err), 1) << r.err;
    }
    EXPECT_TRUE(outputs().empty());
    const ToolResult missing = runTool({"render", (dir / "nope.qsl").string()});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_NE(missing.err.find("nope.qsl"), std::string::npos) << missing.err;
    // An output "folder" that is a file.
    const std::string file = write("plain", "x");
    const ToolResult notFolder = runTool({"render", scene, "-o", file, "--res", "4", "4"});
    EXPECT_EQ(notFolder.exitCode, 1);
    EXPECT_NE(notFolder.err.find(file), std::string::npos) << notFolder.err;
}

// Whether process `pid` catches SIGINT: the SigCgt mask of /proc/PID/status,
// in hex, has bit SIGINT - 1 set.
bool catchesInterrupt(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("SigCgt:", 0) == 0)
            return (std::stoull(line.substr(7), nullptr, 16) >> (SIGINT - 1)) & 1u;
    return false;
}

// Ctrl-C stops the render: the frame in hand is dropped, no image is left
// under its name or a temporary one, and the exit status says it failed.
TEST_F(RenderTool, InterruptStopsCleanlyAndLeavesNoFile) {
    const std::string scene = write("square.qsl", kViewOfASquare);
    // Big enough to be still rendering for minutes when the signal comes.
    std::vector<std::string> args{ORVO_TOOL, "render", scene,  "-o",    out.string(),
                                  "--res",   "1500",   "1500", "--spp", "256"};
    std::vector<char*> argv;
    for (std::string& a : args)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    const std::string errPath = (dir / "err.txt").string();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, errPath.c_str(), O_WRONLY | O_CREAT, 0644);
    pid_t pid = 0;
    ASSERT_EQ(::posix_spawn(&pid, ORVO_TOOL, &actions, nullptr, argv.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    // The signal comes once the tool has set up its handler (a loaded
    // machine may take seconds to start it) and has begun to render.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!catchesInterrupt(pid) && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    ::kill(pid, SIGINT);
    int status = 0;
    ::waitpid(pid, &status, 0);
    ASSERT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), 1);
    const std::string err = readWholeFile(errPath);
    EXPECT_NE(err.find("interrupted"), std::string::npos) << err;
    EXPECT_TRUE(outputs().empty());
}

} // namespace
