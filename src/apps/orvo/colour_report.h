#pragma once

#include <string>

class TdependGraph;

namespace orvo::cli {

// The scene's colour settings and, for every file texture, the colour space
// each of its files is read in and the rule that chose it. Loads the
// textures' files.
std::string colourReport(TdependGraph& graph);

} // namespace orvo::cli
