#include "cache/tmp_files.h"

#include <cstdlib>
#include <map>
#include <mutex>
#include <unistd.h>

namespace {

struct Registration {
    std::string path;
    pid_t process;
};

struct TmpFileRegistry {
    std::mutex mutex;
    std::map<const void*, Registration> files;
};

void removeAtExit() {
    removeRegisteredTmpFiles();
}

TmpFileRegistry& registry() {
    // Never destroyed, so that it is still there when the exit handler runs,
    // whatever order the static destructors take.
    static TmpFileRegistry* const instance = [] {
        auto* made = new TmpFileRegistry;
        std::atexit(removeAtExit);
        return made;
    }();
    return *instance;
}

} // namespace

void registerTmpFileCache(const void* owner, const std::string& path) {
    TmpFileRegistry& files = registry();
    std::lock_guard lock(files.mutex);
    if (path.empty())
        files.files.erase(owner);
    else
        files.files[owner] = Registration{path, ::getpid()};
}

void removeRegisteredTmpFiles() {
    TmpFileRegistry& files = registry();
    std::lock_guard lock(files.mutex);
    const pid_t self = ::getpid();
    for (auto it = files.files.begin(); it != files.files.end();) {
        if (it->second.process == self) {
            ::unlink(it->second.path.c_str());
            it = files.files.erase(it);
        } else {
            ++it;
        }
    }
}
