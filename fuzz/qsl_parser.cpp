// Scene files come from anywhere. The parser must turn any bytes into
// statements or a ParseError and nothing else, and what it reads as a string
// or a bare word must be writable back into a script that reads the same.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "host/qsl/parser.h"

namespace {

// TEXT written as the one argument of a print statement must read back as one
// argument of kind KIND with the same text.
void checkReadsBack(const std::string& script, qsl::ArgKind kind, const std::string& text) {
    const auto again = qsl::parse(script, "roundtrip.qsl");
    if (again.size() != 1 || again[0].args.size() != 1 || again[0].args[0].kind != kind ||
        again[0].args[0].text != text)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    std::vector<qsl::Statement> statements;
    try {
        statements = qsl::parse(text, "fuzz.qsl");
    } catch (const qsl::ParseError& e) {
        if (e.where().line < 1 || e.where().column < 1)
            std::abort();
        return 0;
    }
    for (const auto& statement : statements) {
        for (const auto& arg : statement.args) {
            if (arg.kind == qsl::ArgKind::String) {
                checkReadsBack("print " + qsl::quote(arg.text), arg.kind, arg.text);
            } else if (arg.kind == qsl::ArgKind::Word) {
                if (qsl::needsQuoting(arg.text))
                    std::abort();
                checkReadsBack("print " + arg.text, arg.kind, arg.text);
            }
        }
    }
    return 0;
}
