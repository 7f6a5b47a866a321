// Mesh arrays written in a scene file: the input's lines are the words of
// points, uvs, faceCounts, faceIndices and uvIndices. The scene either
// takes them and builds a well-formed mesh, or fails and is left as it was.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>

#include "host/graph.h"
#include "host/messages.h"
#include "host/qsl/interpreter.h"
#include "host/scene/mesh.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool quiet = [] {
        TcommandEngine::setSink([](TcommandEngine::Severity, const std::string&) {});
        return true;
    }();
    (void)quiet;
    static const char* kArrays[] = {"points", "uvs", "faceCounts", "faceIndices", "uvIndices"};
    std::istringstream lines(std::string(reinterpret_cast<const char*>(data), size));
    std::string script;
    std::string line;
    for (const char* array : kArrays) {
        if (!std::getline(lines, line))
            break;
        script += std::string("set m.") + array + " " + line + "\n";
    }
    TdependGraph graph;
    std::ostringstream out;
    qsl::Interpreter run(graph, out);
    run.runText("node transform t\nnode mesh m -parent t\n", "base.qsl");
    const std::string before = qsl::writeScene(graph);
    try {
        run.runText(script, "fuzz.qsl");
    } catch (const qsl::ParseError&) {
        if (qsl::writeScene(graph) != before)
            std::abort();
        return 0;
    }
    auto* mesh = static_cast<Tmesh*>(graph.findNode("m"));
    const auto built = mesh->mesh();
    if (!mesh->lastError().empty())
        std::abort(); // the scene was taken, so the mesh must build
    for (const uint32_t i : built->indices)
        if (i >= built->vertexCount())
            std::abort();
    return 0;
}
