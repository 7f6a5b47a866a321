#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "host/file_replace.h"
#include "support/temp_folder.h"

namespace fs = std::filesystem;

namespace {

size_t entries(const fs::path& folder) {
    return size_t(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

std::string contents(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// Two writers of one file (two runs of a command, two threads) each have a
// temporary of their own; the last to finish wins, whole.
TEST(FileReplacement, TwoWritersOfOneFileNeverShareATemporary) {
    TempFolder dir("orvo-replace");
    const std::string target = dir.file("image.png");
    TfileReplacement first(target), second(target);
    EXPECT_NE(first.temporary(), second.temporary());
    EXPECT_EQ(fs::path(first.temporary()).parent_path(), dir.path);
    std::ofstream(first.temporary()) << "first";
    std::ofstream(second.temporary()) << "second";
    EXPECT_EQ(second.commit(), "");
    EXPECT_EQ(first.commit(), "");
    EXPECT_EQ(contents(target), "first");
    EXPECT_EQ(entries(dir.path), 1u);
}

// A write that fails or is abandoned leaves no file under either name, and
// an old file under the target's name stays as it was.
TEST(FileReplacement, AFailedWriteLeavesNothingAndKeepsTheOldFile) {
    TempFolder dir("orvo-replace");
    const std::string target = dir.write("texture.bot", "old");
    {
        TfileReplacement abandoned(target);
        std::ofstream(abandoned.temporary()) << "half";
    }
    EXPECT_EQ(contents(target), "old");
    EXPECT_EQ(entries(dir.path), 1u);

    // A target that is a folder cannot be replaced by a file.
    fs::create_directory(dir.path / "folder");
    TfileReplacement onFolder(dir.file("folder"));
    std::ofstream(onFolder.temporary()) << "x";
    EXPECT_NE(onFolder.commit(), "");
    EXPECT_TRUE(fs::is_directory(dir.path / "folder"));
    EXPECT_EQ(entries(dir.path), 2u);
}

// A finished file gets the permissions of any file the user makes: 0666
// less the umask (022 here: 0644).
TEST(FileReplacement, AFinishedFileIsReadableAsTheUmaskSays) {
    TempFolder dir("orvo-replace");
    const mode_t old = ::umask(022);
    TfileReplacement file(dir.file("out.exr"));
    { std::ofstream(file.temporary()) << "x"; }
    ::chmod(file.temporary().c_str(), 0600);
    EXPECT_EQ(file.commit(true), "");
    ::umask(old);
    struct stat info {};
    ASSERT_EQ(::stat(dir.file("out.exr").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0644u);
}

} // namespace
