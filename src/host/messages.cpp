#include "host/messages.h"

#include <cstdio>
#include <fstream>
#include <mutex>
#include <unordered_map>

#include "host/env.h"

namespace {

struct MessageState {
    std::mutex mutex;
    TcommandEngine::Sink sink;
};

MessageState& messageState() {
    // Never destroyed: a render thread may still report while the process
    // exits.
    static MessageState* const state = new MessageState;
    return *state;
}

void emit(TcommandEngine::Severity severity, const Tstring& text) {
    MessageState& s = messageState();
    TcommandEngine::Sink sink;
    {
        std::lock_guard lock(s.mutex);
        sink = s.sink;
    }
    if (sink) {
        sink(severity, text);
        return;
    }
    TcommandEngine::printDefault(severity, text);
}

struct Catalogue {
    std::mutex mutex;
    bool loaded = false;
    std::unordered_map<std::string, std::string> texts;
};

Catalogue& catalogue() {
    static Catalogue c;
    return c;
}

std::string trim(const std::string& s) {
    const size_t b = s.find_first_not_of(" \t\r");
    const size_t e = s.find_last_not_of(" \t\r");
    return b == std::string::npos ? std::string() : s.substr(b, e - b + 1);
}

bool loadInto(Catalogue& c, const std::string& path) {
    std::ifstream in(path);
    if (!in)
        return false;
    std::string line;
    while (std::getline(in, line)) {
        line = trim(line);
        if (line.empty() || line[0] == '#')
            continue;
        const size_t eq = line.find('=');
        if (eq == std::string::npos)
            continue;
        c.texts[trim(line.substr(0, eq))] = trim(line.substr(eq + 1));
    }
    return true;
}

void ensureLoaded(Catalogue& c) {
    if (c.loaded)
        return;
    c.loaded = true;
    const auto custom = OrvoGetEnv("ORVO_STRINGS");
    loadInto(c, custom ? *custom : std::string(ORVO_SHARE_DIR) + "/strings.txt");
}

} // namespace

void TcommandEngine::displayWarning(const Tstring& text) {
    emit(Severity::Warning, text);
}
void TcommandEngine::displayError(const Tstring& text) {
    emit(Severity::Error, text);
}
void TcommandEngine::displayInfo(const Tstring& text) {
    emit(Severity::Info, text);
}

void TcommandEngine::printDefault(Severity severity, const Tstring& text) {
    if (severity == Severity::Console) {
        std::fputs(text.c_str(), stderr);
        std::fflush(stderr);
        return;
    }
    const char* prefix = severity == Severity::Warning ? "Warning: "
                         : severity == Severity::Error ? "Error: "
                                                       : "";
    std::fprintf(stderr, "%s%s\n", prefix, text.c_str());
}

void TcommandEngine::displayConsole(const Tstring& text) {
    emit(Severity::Console, text);
}

TcommandEngine::Sink TcommandEngine::setSink(Sink sink) {
    MessageState& s = messageState();
    std::lock_guard lock(s.mutex);
    std::swap(s.sink, sink);
    return sink;
}

Tstring TstringId::text() const {
    Catalogue& c = catalogue();
    std::lock_guard lock(c.mutex);
    ensureLoaded(c);
    const auto it = c.texts.find(fId);
    return it == c.texts.end() ? fId : it->second;
}

bool OrvoLoadStringCatalogue(const std::string& path) {
    Catalogue& c = catalogue();
    std::lock_guard lock(c.mutex);
    ensureLoaded(c);
    return loadInto(c, path);
}
