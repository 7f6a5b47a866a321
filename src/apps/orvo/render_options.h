#pragma once

// Command-line choices that `orvo render` and `orvo names` share, so that
// the names one prints are those the other writes.

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

} // namespace orvo::cli
