#pragma once

// Runs another program (a scheduler's command) and collects what it says.

#include <string>
#include <vector>

namespace orvo::cli {

struct ProcessResult {
    bool started = false; // false: the program was not found or could not run
    int exitCode = -1;    // its status, or -1 when a signal ended it
    std::string out, err;
};

// Runs `args[0]` (looked up in PATH) with `input` on its standard input.
// Output goes through temporary files, so a chatty program never blocks.
ProcessResult runProcess(const std::vector<std::string>& args, const std::string& input = {});

} // namespace orvo::cli
