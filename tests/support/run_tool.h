#pragma once

#include "test_paths.h"
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

// Runs the orvo tool the way a user's shell would and collects what it says.
// Output goes through files rather than pipes so that a chatty command can
// never block on a full pipe.
struct ToolResult {
    int exitCode = -1;
    std::string out;
    std::string err;
};

inline std::string readWholeFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

inline ToolResult runTool(const std::vector<std::string>& args, const char* tool = ORVO_TOOL) {
    char outPath[] = "/tmp/orvo-tool-out-XXXXXX";
    char errPath[] = "/tmp/orvo-tool-err-XXXXXX";
    const int outFd = ::mkstemp(outPath);
    const int errFd = ::mkstemp(errPath);
    if (outFd < 0 || errFd < 0)
        throw std::runtime_error("runTool: cannot make temporary files");

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, outFd, 1);
    posix_spawn_file_actions_adddup2(&actions, errFd, 2);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);

    std::vector<std::string> argvStore;
    argvStore.push_back(tool);
    argvStore.insert(argvStore.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& a : argvStore)
        argv.push_back(a.data());
    argv.push_back(nullptr);

    pid_t pid = 0;
    const int spawned = ::posix_spawn(&pid, tool, &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(outFd);
    ::close(errFd);

    ToolResult result;
    if (spawned == 0) {
        int status = 0;
        ::waitpid(pid, &status, 0);
        result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    result.out = readWholeFile(outPath);
    result.err = readWholeFile(errPath);
    ::unlink(outPath);
    ::unlink(errPath);
    if (spawned != 0)
        throw std::runtime_error(std::string("runTool: cannot start ") + tool);
    return result;
}

inline int countLines(const std::string& text) {
    int lines = 0;
    for (char c : text)
        lines += c == '\n';
    return lines;
}
