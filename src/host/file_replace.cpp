#include "host/file_replace.h"

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include <fmt/format.h>

namespace {

// The process's umask, read without changing it (umask() would set it for
// every thread for a moment).
mode_t currentUmask() {
    if (std::FILE* status = std::fopen("/proc/self/status", "r")) {
        char line[256];
        unsigned mask = 0;
        bool found = false;
        while (!found && std::fgets(line, sizeof line, status))
            found = std::sscanf(line, "Umask: %o", &mask) == 1;
        std::fclose(status);
        if (found)
            return mode_t(mask);
    }
    return 022;
}

} // namespace

std::string OrvoTemporaryPathBeside(const std::string& target) {
    static std::atomic<unsigned> counter{0};
    const std::filesystem::path path(target);
    return (path.parent_path() / fmt::format(".{}.{}.{}.tmp", path.filename().string(),
                                             long(::getpid()), counter.fetch_add(1)))
        .string();
}

TfileReplacement::TfileReplacement(std::string target)
    : fTarget(std::move(target)), fTemporary(OrvoTemporaryPathBeside(fTarget)) {}

TfileReplacement::~TfileReplacement() {
    if (!fDone)
        ::unlink(fTemporary.c_str());
}

std::string TfileReplacement::commit(bool readableByAll) {
    fDone = true;
    if (readableByAll)
        ::chmod(fTemporary.c_str(), 0666 & ~currentUmask());
    if (std::rename(fTemporary.c_str(), fTarget.c_str()) == 0)
        return {};
    const std::string why = std::strerror(errno);
    ::unlink(fTemporary.c_str());
    return why;
}
