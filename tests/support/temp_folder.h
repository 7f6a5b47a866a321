#pragma once

// A folder of the test's own under the system's temporary folder, removed
// with everything in it when the object goes.

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>

struct TempFolder {
    std::filesystem::path path;

    explicit TempFolder(const std::string& prefix = "orvo-test") {
        std::string pattern =
            (std::filesystem::temp_directory_path() / (prefix + "-XXXXXX")).string();
        if (::mkdtemp(pattern.data()))
            path = pattern;
    }
    ~TempFolder() {
        std::error_code ec;
        if (!path.empty())
            std::filesystem::remove_all(path, ec);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    std::string file(const std::string& name) const { return (path / name).string(); }
    // Writes `bytes` to the file `name` in the folder; its path.
    std::string write(const std::string& name, const std::string& bytes) const {
        std::ofstream(file(name), std::ios::binary) << bytes;
        return file(name);
    }
};
