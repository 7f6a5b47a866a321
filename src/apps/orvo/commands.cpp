#include <CLI/CLI.hpp>

#include "apps/orvo/cli.h"

namespace orvo::cli {

void addRenderCommand(CLI::App& app, CommandRun& run);
void addEvalCommand(CLI::App& app, CommandRun& run);
void addNodesCommand(CLI::App& app, CommandRun& run);
void addCompileCommand(CLI::App& app, CommandRun& run);
void addShadeCommand(CLI::App& app, CommandRun& run);
void addInfoCommand(CLI::App& app, CommandRun& run);
void addNamesCommand(CLI::App& app, CommandRun& run);
void addMaketxCommand(CLI::App& app, CommandRun& run);
void addRenderersCommand(CLI::App& app, CommandRun& run);
void addViewCommand(CLI::App& app, CommandRun& run);
void addBakeCommand(CLI::App& app, CommandRun& run);

void addCommands(CLI::App& app, CommandRun& run) {
    addRenderCommand(app, run);
    addEvalCommand(app, run);
    addNodesCommand(app, run);
    addCompileCommand(app, run);
    addShadeCommand(app, run);
    addNamesCommand(app, run);
    addInfoCommand(app, run);
    addMaketxCommand(app, run);
    addRenderersCommand(app, run);
    addViewCommand(app, run);
    addBakeCommand(app, run);
}

} // namespace orvo::cli
