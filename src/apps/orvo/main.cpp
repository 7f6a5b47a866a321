#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <cstdio>
#include <exception>
#include <string>

#include "apps/orvo/cli.h"
#include "framework/version.h"
#include "host/app_mode.h"
#include "host/version.h"
#include "render/version.h"

namespace {

using namespace orvo::cli;

std::string versionText() {
    return fmt::format("orvo {} (host {}, render model {}, renderer {})", OrvoHostVersion(),
                       OrvoHostVersion(), OrvoRenderModelVersion(), OrvoRenderVersion());
}

// Parse errors become one line on stderr: the user sees what was wrong and
// where to look, not a page of usage.
int reportParseError(const CLI::App& app, const CLI::ParseError& error, int argc, char** argv) {
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success))
        return app.exit(error); // --help, --version
    const bool noCommand = app.get_subcommands().empty();
    if (noCommand && argc > 1 && argv[1][0] != '-' &&
        dynamic_cast<const CLI::ExtrasError*>(&error)) {
        fmt::print(stderr, "orvo: unknown command '{}' (see 'orvo --help')\n", argv[1]);
        return kExitUserError;
    }
    fmt::print(stderr, "orvo: {} (see 'orvo --help')\n", error.what());
    return kExitUserError;
}

} // namespace

int main(int argc, char** argv) {
    // Every command of the tool runs without a user at a prompt.
    gBatchMode = true;
    CLI::App app{"orvo: shading networks, textures, lights and a reference renderer", "orvo"};
    app.set_version_flag("--version", versionText, "Print the version and exit");
    app.require_subcommand(0, 1);

    CommandRun run;
    addCommands(app, run);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return reportParseError(app, error, argc, argv);
    }

    if (!run) {
        std::fputs(app.help().c_str(), stderr);
        return kExitUserError;
    }

    try {
        return run();
    } catch (const UserError& error) {
        fmt::print(stderr, "{}\n", error.what());
        return kExitUserError;
    } catch (const std::exception& error) {
        fmt::print(stderr, "orvo: internal error: {}\n", error.what());
        return kExitInternalError;
    } catch (...) {
        fmt::print(stderr, "orvo: internal error: unknown exception\n");
        return kExitInternalError;
    }
}
