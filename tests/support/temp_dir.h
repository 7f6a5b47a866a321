#pragma once

// A folder of a test's own under the system's temporary folder, removed with
// everything in it when the test is over.

#include <stdlib.h>

#include <filesystem>
#include <stdexcept>
#include <string>

class TtestTempDir {
public:
    explicit TtestTempDir(const std::string& prefix) {
        std::string pattern =
            (std::filesystem::temp_directory_path() / (prefix + "-XXXXXX")).string();
        if (!::mkdtemp(pattern.data()))
            throw std::runtime_error("cannot make a temporary folder " + pattern);
        fPath = pattern;
    }
    ~TtestTempDir() {
        std::error_code ec;
        std::filesystem::remove_all(fPath, ec);
    }
    TtestTempDir(const TtestTempDir&) = delete;
    TtestTempDir& operator=(const TtestTempDir&) = delete;

    const std::filesystem::path& path() const { return fPath; }
    std::string operator/(const std::string& name) const { return (fPath / name).string(); }

private:
    std::filesystem::path fPath;
};
