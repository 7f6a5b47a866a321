#include "test_paths.h"

#include <gtest/gtest.h>

#include <stdlib.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "support/run_tool.h"
#include "support/temp_folder.h"

// `orvo render --farm slurm` and `--farm-status` against stand-in scheduler
// commands (sbatch, sacct, scontrol as small scripts first on PATH): the job
// script, the chunks, what a resubmission leaves out, and how accounting
// lines become each task's state and the failed frames. The real scheduler
// runs in farm_slurm_test.sh.

namespace {

namespace fs = std::filesystem;

// Five frames, PNG, "shot.0001.png".
const char* const kScene = R"(node transform cam
node camera camShape -parent cam
set defaultRenderGlobals.animation true
set defaultRenderGlobals.endFrame 5
set defaultRenderGlobals.imageFormat 32
set defaultRenderGlobals.putFrameBeforeExt true
)";

class FarmTool : public ::testing::Test {
protected:
    void SetUp() override {
        scene = folder.write("shot.qsl", kScene);
        out = folder.file("out");
        bin = folder.file("bin");
        fs::create_directories(bin);
        oldPath = std::getenv("PATH") ? std::getenv("PATH") : "";
        ::setenv("PATH", (bin + ":" + oldPath).c_str(), 1);
        ::setenv("XDG_STATE_HOME", folder.file("state").c_str(), 1);
    }
    void TearDown() override {
        ::setenv("PATH", oldPath.c_str(), 1);
        ::unsetenv("XDG_STATE_HOME");
    }
    // A stand-in for a scheduler command: a shell script.
    void command(const std::string& name, const std::string& body) {
        const std::string path = folder.write("bin/" + name, "#!/bin/sh\n" + body);
        ::chmod(path.c_str(), 0755);
    }

    TempFolder folder{"orvo-farm"};
    std::string scene, out, bin, oldPath;
};

TEST_F(FarmTool, TheJobRendersChunksOfTheFramesStillMissing) {
    const ToolResult dry =
        runTool({"render", scene, "-o", out, "--farm", "slurm", "--chunk", "2", "--dry-run",
                 "--res", "8", "8", "--farm-cpus", "2", "--farm-arg=--partition=render"});
    ASSERT_EQ(dry.exitCode, 0) << dry.err;
    // Five frames in chunks of two: three tasks, the last with one frame.
    EXPECT_NE(dry.out.find("#SBATCH --array=0-2\n"), std::string::npos) << dry.out;
    EXPECT_NE(dry.out.find("#SBATCH --cpus-per-task=2\n"), std::string::npos);
    EXPECT_NE(dry.out.find("#SBATCH --partition=render\n"), std::string::npos);
    EXPECT_NE(dry.out.find("chunks=(\n  1,2\n  3,4\n  5\n)\n"), std::string::npos);
    EXPECT_NE(dry.out.find("--skip-existing"), std::string::npos);
    EXPECT_NE(dry.out.find("'--res' '8' '8'"), std::string::npos);
    EXPECT_FALSE(fs::exists(out)); // a dry run makes nothing

    // Frames 1, 2 and 4 are there: 3 and 5 make one chunk of two.
    fs::create_directories(out);
    for (const char* name : {"shot.0001.png", "shot.0002.png", "shot.0004.png"})
        std::ofstream(fs::path(out) / name) << "x";
    const ToolResult again =
        runTool({"render", scene, "-o", out, "--farm", "slurm", "--chunk", "2", "--dry-run"});
    ASSERT_EQ(again.exitCode, 0) << again.err;
    EXPECT_NE(again.out.find("#SBATCH --array=0-0\n"), std::string::npos) << again.out;
    EXPECT_NE(again.out.find("chunks=(\n  3,5\n)\n"), std::string::npos) << again.out;

    // The task's own command renders just its frames, keeping what exists.
    const ToolResult task = runTool(
        {"render", scene, "-o", out, "--only-frames", "3,5", "--skip-existing", "--res", "4", "4"});
    ASSERT_EQ(task.exitCode, 0) << task.err;
    EXPECT_NE(task.out.find("rendered 2 frames"), std::string::npos) << task.out;
    for (const char* name : {"shot.0003.png", "shot.0005.png"})
        EXPECT_TRUE(fs::is_regular_file(fs::path(out) / name)) << name;
}

TEST_F(FarmTool, StatusNamesTheFailedFrames) {
    command("sbatch", "cat > \"$(dirname \"$0\")/job.sh\"\necho '77;orvotest'\n");
    const ToolResult submitted =
        runTool({"render", scene, "-o", out, "--farm", "slurm", "--chunk", "2"});
    ASSERT_EQ(submitted.exitCode, 0) << submitted.err;
    EXPECT_EQ(submitted.out, "77\n");
    EXPECT_TRUE(fs::is_directory(fs::path(out) / "farm_logs"));
    EXPECT_NE(readWholeFile(bin + "/job.sh").find("--only-frames"), std::string::npos);

    // Accounting: task 0 done, task 1 failed, task 2 still pending (a range).
    std::ofstream(fs::path(out) / "shot.0001.png") << "x";
    std::ofstream(fs::path(out) / "shot.0002.png") << "x";
    command("sacct", "echo '77_0|COMPLETED|0:0'\necho '77_0.batch|COMPLETED|0:0'\n"
                     "echo '77_1|FAILED|1:0'\necho '77_[2%4]|PENDING|0:0'\n");
    const ToolResult status = runTool({"render", "--farm-status", "77"});
    ASSERT_EQ(status.exitCode, 0) << status.err;
    EXPECT_NE(status.out.find("task 0, frames 1 2: COMPLETED, every image there\n"),
              std::string::npos)
        << status.out;
    EXPECT_NE(status.out.find("task 1, frames 3 4: FAILED (exit 1:0), missing: frames 3 4\n"),
              std::string::npos);
    EXPECT_NE(status.out.find("task 2, frame 5: PENDING, missing: frame 5\n"), std::string::npos);
    EXPECT_NE(status.out.find("failed frames: 3 4\nframes to come: 5\n"), std::string::npos);

    // Without accounting the controller answers, one line per task.
    command("sacct", "echo 'Slurm accounting storage is disabled' >&2\nexit 1\n");
    command("scontrol",
            "echo 'JobId=78 ArrayJobId=77 ArrayTaskId=2 JobState=CANCELLED ExitCode=0:15'\n"
            "echo 'JobId=77 ArrayJobId=77 ArrayTaskId=0-1 JobState=RUNNING ExitCode=0:0'\n");
    const ToolResult controller = runTool({"render", "--farm-status", "77"});
    ASSERT_EQ(controller.exitCode, 0) << controller.err;
    EXPECT_NE(controller.out.find("task 2, frame 5: CANCELLED (exit 0:15), missing: frame 5\n"),
              std::string::npos)
        << controller.out;
    EXPECT_NE(controller.out.find("failed frames: 5\nframes to come: 3 4\n"), std::string::npos);
}

TEST_F(FarmTool, MistakesAreOneLine) {
    command("sbatch", "echo 'sbatch: error: invalid partition specified: gpu' >&2\nexit 1\n");
    struct Case {
        std::vector<std::string> args;
        std::string says;
    };
    const Case cases[] = {
        {{"render", "--farm-status", "12"}, "no farm job 12"},
        {{"render", "--farm-status", "x1"}, "job id"},
        {{"render", scene, "--farm", "pbs"}, "slurm only"},
        {{"render", scene, "--dry-run"}, "--farm slurm"},
        {{"render", "--farm", "slurm"}, "scene file"},
        {{"render", scene, "--farm", "slurm", "--chunk", "0"}, "--chunk"},
        {{"render", scene, "--only-frames", "1,x"}, "--only-frames"},
        {{"render", scene, "--only-frames", "9", "-o", out}, "frame 9"},
        {{"render", scene, "-o", out, "--farm", "slurm"}, "invalid partition"},
    };
    for (const Case& c : cases) {
        const ToolResult r = runTool(c.args);
        SCOPED_TRACE(c.says);
        EXPECT_EQ(r.exitCode, 1);
        EXPECT_EQ(r.out, "");
        EXPECT_NE(r.err.find(c.says), std::string::npos) << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    }
    EXPECT_FALSE(fs::exists(out)) << "a refused job leaves no folder behind";
}

} // namespace
