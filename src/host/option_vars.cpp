#include "host/option_vars.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <fmt/format.h>

#include "host/file_replace.h"
#include "host/messages.h"

ToptionVars& ToptionVars::instance() {
    static ToptionVars options;
    return options;
}

std::string ToptionVars::file() {
    const std::lock_guard<std::mutex> guard(fLock);
    return path();
}

std::string ToptionVars::path() const {
    if (!fFile.empty())
        return fFile;
    if (const char* xdg = std::getenv("XDG_CONFIG_HOME"); xdg && *xdg)
        return (std::filesystem::path(xdg) / "orvo" / "options").string();
    if (const char* home = std::getenv("HOME"); home && *home)
        return (std::filesystem::path(home) / ".config" / "orvo" / "options").string();
    return {};
}

void ToptionVars::setFile(const std::string& path) {
    const std::lock_guard<std::mutex> guard(fLock);
    fFile = path;
    fLoaded = false;
    fValues.clear();
}

void ToptionVars::load() {
    if (fLoaded)
        return;
    fLoaded = true;
    fValues.clear();
    std::ifstream in(path());
    std::string line;
    while (std::getline(in, line)) {
        const size_t space = line.find(' ');
        if (line.empty() || line[0] == '#' || space == std::string::npos || space == 0)
            continue;
        fValues[line.substr(0, space)] = line.substr(space + 1);
    }
}

void ToptionVars::save() {
    const std::string path = this->path();
    if (path.empty())
        return;
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), error);
    TfileReplacement replacement(path);
    {
        std::ofstream out(replacement.temporary());
        out << "# orvo options: one \"name value\" a line\n";
        for (const auto& [name, value] : fValues)
            out << name << ' ' << value << '\n';
        if (!out) {
            TcommandEngine::displayWarning(fmt::format("cannot write the options to {}", path));
            return;
        }
    }
    if (const std::string why = replacement.commit(true); !why.empty())
        TcommandEngine::displayWarning(
            fmt::format("cannot write the options to {}: {}", path, why));
}

std::optional<std::string> ToptionVars::get(const std::string& name) {
    const std::lock_guard<std::mutex> guard(fLock);
    load();
    const auto found = fValues.find(name);
    if (found == fValues.end())
        return std::nullopt;
    return found->second;
}

void ToptionVars::set(const std::string& name, const std::string& value) {
    const std::lock_guard<std::mutex> guard(fLock);
    load();
    fValues[name] = value;
    save();
}

void ToptionVars::remove(const std::string& name) {
    const std::lock_guard<std::mutex> guard(fLock);
    load();
    if (fValues.erase(name))
        save();
}
