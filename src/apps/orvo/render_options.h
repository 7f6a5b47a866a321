#pragma once

// Command-line choices that `orvo render` and `orvo names` share, so that
// the names one prints are those the other writes.

#include <memory>
#include <string>
#include <vector>

#include "render/render_job.h"

namespace CLI {
class App;
}

namespace orvo::cli {

// Adds --frames and --format, which both commands take, to `command`.
void addFramesAndFormatOptions(CLI::App& command, std::vector<double>& frames, std::string& format);

// --frames FIRST LAST [STEP] and --format KEYWORD into overrides. Throws
// UserError, naming `command`, for a range or a format that is no good.
void parseFramesAndFormat(const std::vector<double>& frames, const std::string& format,
                          TrenderOverrides& overrides, const char* command);

// What a render is asked to do besides the scene's own settings: the
// command line's options, or a script's arguments.
struct RenderChoices {
    std::vector<double> frames;       // FIRST LAST [STEP]; empty: the scene's
    std::string format;               // an image format keyword; empty: the scene's
    std::vector<unsigned> resolution; // W H; empty: the scene's
    unsigned spp = 4;                 // samples per pixel
    unsigned threads = 0;             // 0: the scene's numCpusToUse
    bool floatExr = false;
    bool postEffects = true;
};

// The overrides of the scene's settings the choices make. Throws UserError,
// naming `command`, for choices out of range.
TrenderOverrides renderOverrides(const RenderChoices& choices, const char* command);

// Plans the render of `graph` (read from `sceneName`) into `output`:
// checks that the scene's renderer is one that renders in batch and that
// --float has an EXR image to apply to. Throws UserError.
std::unique_ptr<TrenderJob> planRender(TdependGraph& graph, const std::string& sceneName,
                                       const std::string& output, const RenderChoices& choices,
                                       const TrenderOverrides& overrides, const char* command);

// Makes the output folder and returns the renderer's settings for the job.
TrenderOptions renderSettings(const TrenderJob& job, const std::string& output,
                              const RenderChoices& choices, const char* command);

} // namespace orvo::cli
