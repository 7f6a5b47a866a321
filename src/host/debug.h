#pragma once

// Debug dumps and memory accounting, as nodes and data blocks print them.

#include <cstddef>
#include <cstdio>
#include <string>

#include <fmt/format.h>

// Where a debug dump goes: text collected in memory (tests, `orvo compile`)
// or written to a stdio stream. Sections nest and indent.
class TdebugOutput {
public:
    TdebugOutput() = default;
    explicit TdebugOutput(std::FILE* stream) : fStream(stream) {}

    template <class... Args>
    void print(fmt::format_string<Args...> format, Args&&... args) {
        write(fmt::format(format, std::forward<Args>(args)...));
    }
    template <class... Args>
    void openSection(fmt::format_string<Args...> format, Args&&... args) {
        write(fmt::format(format, std::forward<Args>(args)...));
        write("\n");
        ++fDepth;
    }
    void closeSection() {
        if (fDepth > 0)
            --fDepth;
    }
    void write(const std::string& text);

    const std::string& text() const { return fText; }
    int depth() const { return fDepth; }

private:
    std::FILE* fStream = nullptr;
    std::string fText;
    int fDepth = 0;
    bool fAtLineStart = true;
};

// What a dump shows. Bit 0 selects the deep dump.
struct TdebugDetails {
    unsigned bits = 0;
    bool deep() const { return bits & 1u; }
};

// Memory used by an object, as `footprint` reports it.
struct Footprint {
    size_t size = 0;
    std::string trace; // what the trace section recorded, when tracing

    // The trace switch of footprint measurement; ORVO_TRACE_FOOTPRINT turns
    // it on for the process.
    static bool& sTrace();
};
