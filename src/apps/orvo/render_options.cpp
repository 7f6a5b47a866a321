#include "apps/orvo/render_options.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "apps/orvo/cli.h"
#include "render/image_io.h"
#include "render/render_error.h"
#include "render/renderer.h"

namespace orvo::cli {

void addFramesAndFormatOptions(CLI::App& command, std::vector<double>& frames,
                               std::string& format) {
    command
        .add_option("--frames", frames,
                    "First and last frame, and the step (1 when left out); overrides the "
                    "scene's startFrame, endFrame, byFrameStep and turns animation on")
        ->expected(2, 3)
        ->type_name("FIRST LAST [STEP]");
    command.add_option("--format", format,
                       "Image format: " + OrvoWritableFormatKeywords() +
                           "; overrides the scene's imageFormat");
}

void parseFramesAndFormat(const std::vector<double>& frames, const std::string& format,
                          TrenderOverrides& overrides, const char* command) {
    if (!frames.empty()) {
        const double first = frames[0];
        const double last = frames.size() > 1 ? frames[1] : first;
        const double step = frames.size() > 2 ? frames[2] : 1.0;
        if (!std::isfinite(first) || !std::isfinite(last) || !(step > 0.0) || last < first)
            throw UserError(fmt::format(
                "orvo {}: --frames FIRST LAST STEP needs FIRST <= LAST and a STEP above 0",
                command));
        if ((last - first) / step > 1e6)
            throw UserError(fmt::format("orvo {}: --frames {} {} {} asks for more than a "
                                        "million frames",
                                        command, first, last, step));
        overrides.firstFrame = first;
        overrides.lastFrame = last;
        overrides.frameStep = step;
    }
    if (!format.empty()) {
        const int value = OrvoImageFormatFromKeyword(format);
        if (value < 0)
            throw UserError(fmt::format("orvo {}: --format '{}': choose one of {}", command, format,
                                        OrvoWritableFormatKeywords()));
        overrides.imageFormat = value;
    }
}

TrenderOverrides renderOverrides(const RenderChoices& choices, const char* command) {
    TrenderOverrides overrides;
    parseFramesAndFormat(choices.frames, choices.format, overrides, command);
    if (choices.spp == 0 || choices.spp > 1024)
        throw UserError(fmt::format("orvo {}: --spp takes a count from 1 to 1024", command));
    if (!choices.resolution.empty()) {
        if (choices.resolution.size() != 2 || choices.resolution[0] == 0 ||
            choices.resolution[1] == 0 || choices.resolution[0] > 16384 ||
            choices.resolution[1] > 16384)
            throw UserError(
                fmt::format("orvo {}: --res takes a width and a height from 1 to 16384", command));
        overrides.width = choices.resolution[0];
        overrides.height = choices.resolution[1];
    }
    overrides.floatExr = choices.floatExr;
    if (choices.floatExr && overrides.imageFormat && *overrides.imageFormat != 40)
        throw UserError(
            fmt::format("orvo {}: --float applies to EXR images (--format exr)", command));
    return overrides;
}

std::unique_ptr<TrenderJob> planRender(TdependGraph& graph, const std::string& sceneName,
                                       const std::string& output, const RenderChoices& choices,
                                       const TrenderOverrides& overrides, const char* command) {
    std::unique_ptr<TrenderJob> job;
    try {
        Trenderer::checkSceneRenderer(graph, sceneName);
        job = std::make_unique<TrenderJob>(graph, sceneName, output, overrides);
    } catch (const TrenderError& e) {
        throw UserError(e.what());
    }
    if (choices.floatExr &&
        std::none_of(job->layers().begin(), job->layers().end(),
                     [](const TrenderJob::Layer& l) { return l.format.linear(); }))
        throw UserError(fmt::format("orvo {}: --float applies to EXR images, and {} renders "
                                    "none (--format exr)",
                                    command, sceneName));
    return job;
}

TrenderOptions renderSettings(const TrenderJob& job, const std::string& output,
                              const RenderChoices& choices, const char* command) {
    std::error_code ec;
    std::filesystem::create_directories(output, ec);
    if (!std::filesystem::is_directory(output))
        throw UserError(fmt::format("orvo {}: {}: cannot make the output folder{}", command, output,
                                    ec ? ": " + ec.message() : ""));
    TrenderOptions settings;
    settings.samplesPerPixel = choices.spp;
    settings.postEffects = choices.postEffects;
    settings.threads = choices.threads ? choices.threads : job.threads();
    settings.depthMapDirectory = (std::filesystem::path(output) / "depth").string();
    return settings;
}

} // namespace orvo::cli
