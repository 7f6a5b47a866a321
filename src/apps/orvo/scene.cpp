#include "apps/orvo/scene.h"

#include <filesystem>

#include <fmt/format.h>

#include "apps/orvo/cli.h"
#include "colour/color_mgt_globals.h"
#include "host/env.h"
#include "host/graph.h"
#include "host/qsl/interpreter.h"

namespace orvo::cli {

std::unique_ptr<TdependGraph> readScene(const std::string& path) {
    std::error_code ec;
    if (!std::filesystem::is_regular_file(path, ec))
        throw qsl::ParseError({path, 0, 0}, "no such scene file", path);
    auto graph = std::make_unique<TdependGraph>();
    TdependGraph::fsCurrentGraph = graph.get();
    // The scene's colour settings hear of the load, so that the names the
    // file sets are checked against the configuration when it ends.
    graph->initializeScene();
    TdnColorMgtGlobals* colour = TdnColorMgtGlobals::find(*graph);
    if (colour)
        colour->sceneLoadStarted(true);
    qsl::Interpreter(*graph).runFile(path);
    if (colour)
        colour->sceneLoadEnded();
    return graph;
}

std::unique_ptr<TdependGraph> loadScene(const std::string& path) {
    try {
        return readScene(path);
    } catch (const qsl::ParseError& e) {
        throw UserError(e.what());
    }
}

std::string jsonString(const std::string& text) {
    std::string out = "\"";
    for (const char c : text) {
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\t':
            out += "\\t";
            break;
        case '\r':
            out += "\\r";
            break;
        default:
            if (static_cast<unsigned char>(c) < 0x20)
                out += fmt::format("\\u{:04x}", static_cast<unsigned char>(c));
            else
                out.push_back(c);
        }
    }
    out.push_back('"');
    return out;
}

std::string jsonValue(const std::string& word) {
    if (word == "true" || word == "false")
        return word;
    if (const auto number = OrvoParseDouble(word)) {
        if (std::isfinite(*number))
            return word;
        return jsonString(word); // inf and nan have no JSON number
    }
    if (word.size() >= 2 && word.front() == '"' && word.back() == '"') {
        // A scene-language string: undo its escapes.
        std::string text;
        for (size_t i = 1; i + 1 < word.size(); ++i) {
            if (word[i] == '\\' && i + 2 < word.size()) {
                ++i;
                text.push_back(word[i] == 'n' ? '\n' : word[i]);
            } else {
                text.push_back(word[i]);
            }
        }
        return jsonString(text);
    }
    return jsonString(word);
}

} // namespace orvo::cli
