#include "host/debug.h"

#include "host/env.h"

void TdebugOutput::write(const std::string& text) {
    // Indent each line by the section depth, so nested dumps read as a tree.
    std::string out;
    out.reserve(text.size() + 8);
    for (char c : text) {
        if (fAtLineStart && c != '\n')
            out.append(size_t(fDepth) * 2, ' ');
        fAtLineStart = false;
        out.push_back(c);
        if (c == '\n')
            fAtLineStart = true;
    }
    if (fStream)
        std::fwrite(out.data(), 1, out.size(), fStream);
    else
        fText += out;
}

bool& Footprint::sTrace() {
    static bool trace = OrvoEnvIsSet("ORVO_TRACE_FOOTPRINT");
    return trace;
}
