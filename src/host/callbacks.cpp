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

void TcallbackHooks::execute(TdependGraph* graph, const std::string& hook,
                             const std::vector<std::string>& args) {
    if (!graph)
        return;
    // A copy: a callback may add or remove callbacks.
    for (const std::string& command : callbacks(hook)) {
        std::string line = command;
        for (const std::string& a : args)
            line += " " + quoted(a);
        try {
            qsl::Interpreter(*graph).runText(line, fmt::format("callback of hook '{}'", hook));
        } catch (const std::exception& e) {
            TcommandEngine::displayError(
                fmt::format("callback of hook '{}' failed: {}", hook, e.what()));
        }
    }
}
