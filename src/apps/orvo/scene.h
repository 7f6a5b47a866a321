#pragma once

#include <memory>
#include <string>

class TdependGraph;

namespace orvo::cli {

// Loads a scene file into a new graph. A scene that cannot be read or run is
// a UserError whose message names the file and line.
std::unique_ptr<TdependGraph> loadScene(const std::string& path);
// The same, throwing the script's own qsl::ParseError (file, line and
// message apart; line 0 for a file that is not there).
std::unique_ptr<TdependGraph> readScene(const std::string& path);

// JSON helpers for --json output.
std::string jsonString(const std::string& text);
// A value given as words: numbers stay numbers, true/false stay booleans,
// anything else becomes a string (quotes of a scene-language string removed).
std::string jsonValue(const std::string& word);

} // namespace orvo::cli
