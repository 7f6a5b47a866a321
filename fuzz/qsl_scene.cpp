// Running a scene must either apply all of it or none of it: after a script
// that fails, the graph is exactly as it was. A script that runs must save to
// a text that loads back to the same scene.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>
#include <string_view>

#include "framework/version.h"
#include "host/graph.h"
#include "host/messages.h"
#include "host/qsl/interpreter.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool quiet = [] {
        TcommandEngine::setSink([](TcommandEngine::Severity, const std::string&) {});
        return OrvoRenderModelVersion() != nullptr; // keeps the node types loaded
    }();
    (void)quiet;
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    TdependGraph graph;
    std::ostringstream out;
    qsl::Interpreter run(graph, out);
    run.runText("node reverse base\nset base.input 0.5 0.25 2\n", "base.qsl");
    const std::string before = qsl::writeScene(graph);
    bool ran = true;
    try {
        run.runText(text, "fuzz.qsl");
    } catch (const qsl::ParseError&) {
        ran = false;
    }
    const std::string after = qsl::writeScene(graph);
    if (!ran && after != before)
        std::abort();
    if (ran) {
        TdependGraph again;
        try {
            qsl::Interpreter(again, out).runText(after, "saved.qsl");
        } catch (const qsl::ParseError&) {
            std::abort();
        }
        if (qsl::writeScene(again) != after)
            std::abort();
    }
    return 0;
}
