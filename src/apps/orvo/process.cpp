#include "apps/orvo/process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

extern char** environ;

namespace orvo::cli {

namespace {

// A temporary file, gone with this object.
class TempFile {
public:
    TempFile() {
        const char* dir = std::getenv("TMPDIR");
        fPath = std::string(dir && *dir ? dir : "/tmp") + "/orvo-process-XXXXXX";
        fFd = ::mkstemp(fPath.data());
    }
    ~TempFile() {
        if (fFd >= 0) {
            ::close(fFd);
            ::unlink(fPath.c_str());
        }
    }
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;

    bool ok() const { return fFd >= 0; }
    int fd() const { return fFd; }
    bool write(const std::string& text) {
        size_t done = 0;
        while (done < text.size()) {
            const ssize_t n = ::write(fFd, text.data() + done, text.size() - done);
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0)
                return false;
            done += size_t(n);
        }
        return ::lseek(fFd, 0, SEEK_SET) == 0;
    }
    std::string read() const {
        std::string text;
        if (::lseek(fFd, 0, SEEK_SET) != 0)
            return text;
        char buffer[4096];
        for (;;) {
            const ssize_t n = ::read(fFd, buffer, sizeof buffer);
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0)
                break;
            text.append(buffer, size_t(n));
        }
        return text;
    }

private:
    std::string fPath;
    int fFd = -1;
};

} // namespace

ProcessResult runProcess(const std::vector<std::string>& args, const std::string& input) {
    ProcessResult result;
    if (args.empty())
        return result;
    TempFile in, out, err;
    if (!in.ok() || !out.ok() || !err.ok() || !in.write(input))
        return result;

    std::vector<char*> argv;
    for (const std::string& a : args)
        argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in.fd(), 0);
    posix_spawn_file_actions_adddup2(&actions, out.fd(), 1);
    posix_spawn_file_actions_adddup2(&actions, err.fd(), 2);
    pid_t pid = 0;
    const int spawned = ::posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0)
        return result;
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0)
        if (errno != EINTR)
            return result;
    result.started = true;
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.out = out.read();
    result.err = err.read();
    return result;
}

} // namespace orvo::cli
