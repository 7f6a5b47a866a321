#include <CLI/CLI.hpp>

#include "apps/orvo/cli.h"

namespace orvo::cli {

namespace {

struct PendingCommand {
    const char* name;
    const char* description;
};

// Commands that are announced but whose machinery is not in this build yet.
// They accept any arguments so that scripts written against the final
// interface get the honest answer rather than a parse error.
constexpr PendingCommand kPendingCommands[] = {
    {"names", "Preview the output file names of a render"},
};

} // namespace

void addRenderCommand(CLI::App& app, CommandRun& run);
void addEvalCommand(CLI::App& app, CommandRun& run);
void addNodesCommand(CLI::App& app, CommandRun& run);
void addCompileCommand(CLI::App& app, CommandRun& run);
void addShadeCommand(CLI::App& app, CommandRun& run);
void addInfoCommand(CLI::App& app, CommandRun& run);
void addMaketxCommand(CLI::App& app, CommandRun& run);

void addCommands(CLI::App& app, CommandRun& run) {
    addRenderCommand(app, run);
    addEvalCommand(app, run);
    addNodesCommand(app, run);
    addCompileCommand(app, run);
    addShadeCommand(app, run);
    addInfoCommand(app, run);
    addMaketxCommand(app, run);
    for (const PendingCommand& command : kPendingCommands) {
        CLI::App* sub = app.add_subcommand(command.name, command.description);
        sub->allow_extras();
        const std::string name = command.name;
        sub->callback([&run, name] {
            run = [name]() -> int {
                throw UserError("orvo " + name + ": not yet available");
            };
        });
    }
}

} // namespace orvo::cli
