#pragma once

#include <string>

// A file is written under a temporary name beside its own and renamed into
// place only when complete, so that a failed or interrupted write leaves
// neither a half-written file under its name nor one under the temporary
// name. The temporary name holds the process id and a count, so that two
// processes (or two threads) writing one file never write into each
// other's temporary.

// ".NAME.PID.N.tmp" in the folder of `target`.
std::string OrvoTemporaryPathBeside(const std::string& target);

class TfileReplacement {
public:
    explicit TfileReplacement(std::string target);
    // Removes the temporary file unless it was moved into place.
    ~TfileReplacement();
    TfileReplacement(const TfileReplacement&) = delete;
    TfileReplacement& operator=(const TfileReplacement&) = delete;

    const std::string& target() const { return fTarget; }
    // Where the writer writes.
    const std::string& temporary() const { return fTemporary; }

    // Moves the finished temporary file onto the target, with the usual
    // permissions of a file the user makes (`readableByAll`: 0666 less the
    // umask) or the ones it was made with. Empty on success, else why not;
    // the temporary file is then gone.
    std::string commit(bool readableByAll = false);

private:
    std::string fTarget;
    std::string fTemporary;
    bool fDone = false;
};
