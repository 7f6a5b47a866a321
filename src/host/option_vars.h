#pragma once

// The user's options: named strings that outlive a run of the program, kept
// in one file of "name value" lines under the user's configuration folder
// ($XDG_CONFIG_HOME/orvo/options, or ~/.config/orvo/options). The file is
// read on first use and written whole, through a temporary file, on each
// change; a file that cannot be read counts as empty, one that cannot be
// written is reported and the value is kept for this run.

#include <map>
#include <mutex>
#include <optional>
#include <string>

class ToptionVars {
public:
    static ToptionVars& instance();

    std::optional<std::string> get(const std::string& name);
    void set(const std::string& name, const std::string& value);
    void remove(const std::string& name);

    // Where the options live; tests and tools point it elsewhere (empty:
    // the user's folder). Forgets what was read.
    void setFile(const std::string& path);
    std::string file();

private:
    // These three run under the lock.
    std::string path() const;
    void load();
    void save();

    std::mutex fLock;
    std::map<std::string, std::string> fValues;
    std::string fFile;
    bool fLoaded = false;
};
