#include "host/callbacks.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <sstream>

#include <fmt/format.h>

#include "host/messages.h"
#include "host/qsl/interpreter.h"

namespace {

struct Store {
    std::mutex lock;
    std::map<std::string, std::vector<std::string>> hooks;
};

Store& store() {
    static Store s;
    return s;
}

// A word the scene language reads back as it stands.
std::string quoted(const std::string& word) {
    std::string out = "\"";
    for (const char ch : word) {
        if (ch == '"' || ch == '\\')
            out.push_back('\\');
        out.push_back(ch);
    }
    out.push_back('"');
    return out;
}

} // namespace

void TcallbackHooks::add(const std::string& hook, const std::string& command) {
    Store& s = store();
    const std::lock_guard<std::mutex> guard(s.lock);
    std::vector<std::string>& list = s.hooks[hook];
    if (std::find(list.begin(), list.end(), command) == list.end())
        list.push_back(command);
}

bool TcallbackHooks::remove(const std::string& hook, const std::string& command) {
    Store& s = store();
    const std::lock_guard<std::mutex> guard(s.lock);
    auto found = s.hooks.find(hook);
    if (found == s.hooks.end())
        return false;
    auto& list = found->second;
    const auto at = std::find(list.begin(), list.end(), command);
    if (at == list.end())
        return false;
    list.erase(at);
    return true;
}

void TcallbackHooks::clear(const std::string& hook) {
    Store& s = store();
    const std::lock_guard<std::mutex> guard(s.lock);
    s.hooks.erase(hook);
}

std::vector<std::string> TcallbackHooks::callbacks(const std::string& hook) {
    Store& s = store();
    const std::lock_guard<std::mutex> guard(s.lock);
    const auto found = s.hooks.find(hook);
    return found == s.hooks.end() ? std::vector<std::string>() : found->second;
}

namespace {
thread_local int tDepth = 0;
}

TcallbackHooks::Nesting::Nesting() : fOk(tDepth < kMostNested) {
    ++tDepth;
}

TcallbackHooks::Nesting::~Nesting() {
    --tDepth;
}

std::vector<std::string> TcallbackHooks::commandLines(const std::string& hook,
                                                      const std::vector<std::string>& args) {
    std::vector<std::string> lines = callbacks(hook);
    for (std::string& line : lines)
        for (const std::string& a : args)
            line += " " + quoted(a);
    return lines;
}

void TcallbackHooks::execute(TdependGraph* graph, const std::string& hook,
                             const std::vector<std::string>& args) {
    if (!graph)
        return;
    const Nesting nesting;
    if (!nesting.ok()) {
        TcommandEngine::displayError(fmt::format(
            "hook '{}' not run: callbacks run hooks {} deep (does a callback run its own hook?)",
            hook, Nesting::kMostNested));
        return;
    }
    for (const std::string& line : commandLines(hook, args)) {
        try {
            qsl::Interpreter(*graph).runText(line, fmt::format("callback of hook '{}'", hook));
        } catch (const std::exception& e) {
            TcommandEngine::displayError(
                fmt::format("callback of hook '{}' failed: {}", hook, e.what()));
        }
    }
}
