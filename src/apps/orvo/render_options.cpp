#include "apps/orvo/render_options.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <cmath>

#include "apps/orvo/cli.h"
#include "render/image_io.h"

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

} // namespace orvo::cli
