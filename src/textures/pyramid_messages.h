#pragma once

// The console reporter of the pyramids and their BOT files. The texts carry
// their own "Error: " or "Warning: " and their line end, and go out as they
// are: to standard error, unless a test has put a sink of its own in place.

#include <functional>
#include <string>

using TpyramidReportSink = std::function<void(const std::string&)>;

void pyramidReport(const std::string& text);

// Installs `sink` (an empty function restores standard error) and returns
// the one that was in place.
TpyramidReportSink setPyramidReportSink(TpyramidReportSink sink);
