#pragma once

#include <functional>
#include <stdexcept>
#include <string>

namespace CLI {
class App;
}

namespace orvo::cli {

// Exit codes of the tool: users and scripts rely on them.
enum ExitCode : int {
    kExitSuccess = 0,
    kExitUserError = 1,     // bad arguments, unreadable scene, failed write
    kExitInternalError = 2, // a fault of ours
};

// Thrown by a command for a problem the user can fix. main() prints the
// message on one line to stderr and exits with kExitUserError.
class UserError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A command adds its subcommand to the app and sets `run` to what it does.
// The command's options live in the closure, so parsing fills them in before
// `run` is called.
using CommandRun = std::function<int()>;

// Every subcommand of the tool, in the order `orvo --help` lists them.
void addCommands(CLI::App& app, CommandRun& run);

} // namespace orvo::cli
