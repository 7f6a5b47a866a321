#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <numeric>
#include <random>
#include <string>
#include <sys/resource.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "cache/render_swap.h"
#include "host/env.h"
#include "host/iff/iff_reader.h"
#include "host/trace.h"
#include "support/message_capture.h"

namespace fs = std::filesystem;

namespace {

class RenderSwap : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "orvo-swap-XXXXXX").string();
        ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
        fDir = pattern;
        fPreviousTrace =
            setTdbTraceSink([this](std::string_view line) { trace.emplace_back(line); });
    }

    void TearDown() override {
        ::unsetenv("ORVO_SWAP_LIMIT");
        ::unsetenv("ORVO_TRACE_SWAP");
        OrvoEnvRefresh();
        TrenderSwap::readSettings();
        setTdbTraceSink(std::move(fPreviousTrace));
        fs::remove_all(fDir);
    }

    static void setting(const char* name, const char* value) {
        ::setenv(name, value, 1);
        OrvoEnvRefresh();
        TrenderSwap::readSettings();
    }

    std::string path(const char* name) const { return (fDir / name).string(); }

    static std::vector<unsigned char> randomBytes(std::mt19937& random, size_t size) {
        std::vector<unsigned char> data(size);
        for (unsigned char& c : data)
            c = static_cast<unsigned char>(random());
        return data;
    }

    fs::path fDir;
    orvo_test::MessageCapture warnings;
    std::vector<std::string> trace;

private:
    TdbTraceSink fPreviousTrace;
};

TEST_F(RenderSwap, RandomDataComesBackByteForByte) {
    TrenderSwap swap(path("swap.iff").c_str());
    ASSERT_NE(swap.file(), nullptr);
    // The group header comes first: data starts at 12.
    EXPECT_EQ(swap.gotoEnd(), 12u);

    std::mt19937 random(42);
    std::vector<std::vector<unsigned char>> blocks;
    std::vector<unsigned> positions;
    for (int i = 0; i < 40; ++i) {
        blocks.push_back(randomBytes(random, 1 + random() % 20000));
        positions.push_back(swap.gotoEnd());
        ASSERT_EQ(swap.append(blocks.back().data(), static_cast<unsigned>(blocks.back().size())),
                  0);
    }
    EXPECT_EQ(swap.gotoEnd(), positions.back() + blocks.back().size());

    std::vector<size_t> order(blocks.size());
    std::iota(order.begin(), order.end(), 0);
    std::shuffle(order.begin(), order.end(), random);
    for (size_t i : order) {
        std::vector<unsigned char> back(blocks[i].size());
        ASSERT_EQ(swap.read(back.data(), static_cast<unsigned>(back.size()), positions[i]), 0);
        ASSERT_EQ(back, blocks[i]) << "block " << i;
    }
    // Past the end: a short read.
    unsigned char byte = 0;
    EXPECT_EQ(swap.read(&byte, 1, swap.gotoEnd()), -1);
    EXPECT_TRUE(warnings.messages().empty());
}

TEST_F(RenderSwap, TheFileIsAnIffGroupOfTypeSwap) {
    const std::string name = path("swap.iff");
    TrenderSwap swap(name.c_str());
    const unsigned char data[] = {1, 2, 3, 4, 5, 6, 7};
    ASSERT_EQ(swap.append(data, sizeof data), 0);
    ASSERT_EQ(swap.flushOutput(), 0);

    TiffFile file;
    ASSERT_EQ(file.open(name, "r"), 0);
    TiffReader reader(file);
    TiffItem item;
    ASSERT_TRUE(reader.next(item)) << reader.error();
    EXPECT_EQ(item.id, kIffFOR4);
    EXPECT_EQ(item.type, TiffMakeTag("Swap"));
    EXPECT_EQ(item.offset, 0u);
    EXPECT_EQ(item.size, 4u + sizeof data);
    EXPECT_EQ(item.dataOffset, 12u);
    EXPECT_EQ(fs::file_size(name), 12u + sizeof data);
    unsigned char stored[sizeof data];
    ASSERT_TRUE(reader.readData(item, stored, 0, sizeof data));
    EXPECT_TRUE(std::equal(data, data + sizeof data, stored));
}

TEST_F(RenderSwap, LimitZeroFailsEveryAppendWithOneWarning) {
    setting("ORVO_SWAP_LIMIT", "0");
    const std::string name = path("swap.iff");
    TrenderSwap swap(name.c_str());
    EXPECT_EQ(swap.writeLimit(), 0u);
    EXPECT_EQ(swap.setWritePosition(0), -1);
    const char data[] = "data";
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(swap.append(data, 4), -1);
    ASSERT_EQ(warnings.messages().size(), 1u);
    EXPECT_NE(warnings.messages()[0].second.find(name), std::string::npos)
        << warnings.messages()[0].second;
    EXPECT_NE(warnings.messages()[0].second.find("size limit"), std::string::npos)
        << warnings.messages()[0].second;
    EXPECT_TRUE(swap.limitWarned());
    EXPECT_FALSE(swap.writeWarned());
    EXPECT_EQ(fs::file_size(name), 12u); // nothing written
}

TEST_F(RenderSwap, AnAppendOfExactlyTheRoomLeftFails) {
    setting("ORVO_SWAP_LIMIT", "112"); // 100 bytes of room after the 12-byte header
    TrenderSwap swap(path("swap.iff").c_str());
    std::vector<unsigned char> data(100, 7);
    EXPECT_EQ(swap.append(data.data(), 100), -1); // 12 + 100 is not below 112
    EXPECT_EQ(swap.append(data.data(), 99), 0);   // 111 is
    EXPECT_EQ(swap.append(data.data(), 1), -1);   // 111 + 1 is not
    EXPECT_EQ(swap.gotoEnd(), 111u);
    EXPECT_EQ(warnings.messages().size(), 1u);

    // Only writing is held to the limit.
    EXPECT_EQ(swap.setWritePosition(112), -1);
    EXPECT_EQ(swap.setWritePosition(111), 0);
    EXPECT_EQ(swap.setReadPosition(112), 0);
    unsigned position = 0;
    EXPECT_EQ(swap.getReadPosition(position), 0);
    EXPECT_EQ(position, 112u);
    EXPECT_EQ(swap.getWritePosition(position), 0);
    EXPECT_EQ(position, 112u); // one position for both
}

TEST(RenderSwapLimit, FivePercentOfTheDiskStaysFreeAndMoreThan4GiBCountsAs4GiB) {
    EXPECT_EQ(TrenderSwap::limitFromFreeBytes(0), 0u);
    EXPECT_EQ(TrenderSwap::limitFromFreeBytes(19), 19u);
    EXPECT_EQ(TrenderSwap::limitFromFreeBytes(1000), 950u);
    EXPECT_EQ(TrenderSwap::limitFromFreeBytes(0xFFFFFFFFull), 4080218931u);
    EXPECT_EQ(TrenderSwap::limitFromFreeBytes(5ull << 30), 4080218931u);
}

TEST_F(RenderSwap, WithoutASettingTheLimitComesFromTheFreeSpace) {
    auto limitNow = [&] {
        struct statvfs disk {};
        EXPECT_EQ(::statvfs(fDir.c_str(), &disk), 0);
        return TrenderSwap::limitFromFreeBytes(static_cast<uint64_t>(disk.f_bavail) *
                                               disk.f_frsize);
    };
    for (const char* value : {"-1", "-2", "banana"}) {
        setting("ORVO_SWAP_LIMIT", value);
        const uint32_t before = limitNow();
        TrenderSwap swap(path("swap.iff").c_str());
        const uint32_t after = limitNow();
        EXPECT_GE(swap.writeLimit(), std::min(before, after)) << value;
        EXPECT_LE(swap.writeLimit(), std::max(before, after)) << value;
    }
}

TEST_F(RenderSwap, OtherNegativeLimitsAreTakenAsUnsigned) {
    // Only -1 and -2 (0xFFFFFFFF and 0xFFFFFFFE) ask the disk; -3 is
    // 2^32 - 3 = 4294967293 bytes, -100 is 2^32 - 100 = 4294967196.
    for (const auto& [value, limit] : {std::pair{"-3", 4294967293u}, std::pair{"-100", 4294967196u},
                                       std::pair{"-2147483648", 2147483648u}}) {
        setting("ORVO_SWAP_LIMIT", value);
        TrenderSwap swap(path("swap.iff").c_str());
        EXPECT_EQ(swap.writeLimit(), limit) << value;
    }
}

TEST_F(RenderSwap, AFileThatCannotBeOpenedLeavesASwapThatFailsEverything) {
    setting("ORVO_SWAP_LIMIT", "1000"); // the folder is missing: no free space to ask about
    const std::string name = path("no/such/folder/swap.iff");
    TrenderSwap swap(name.c_str());
    EXPECT_EQ(swap.file(), nullptr);
    ASSERT_EQ(warnings.messages().size(), 1u);
    EXPECT_NE(warnings.messages()[0].second.find(name), std::string::npos);
    EXPECT_NE(warnings.messages()[0].second.find("No such file or directory"), std::string::npos)
        << warnings.messages()[0].second;

    char buffer[4] = {};
    unsigned position = 0;
    EXPECT_EQ(swap.append("abcd", 4), -1);
    EXPECT_EQ(swap.read(buffer, 4, 0), -1);
    EXPECT_EQ(swap.gotoEnd(), 0u);
    EXPECT_EQ(swap.getReadPosition(position), -1);
    EXPECT_EQ(swap.getWritePosition(position), -1);
    EXPECT_EQ(swap.setReadPosition(0), -1);
    EXPECT_EQ(swap.setWritePosition(0), -1);
    EXPECT_EQ(swap.flushOutput(), -1);
    EXPECT_EQ(warnings.messages().size(), 1u);
}

TEST_F(RenderSwap, AStaleFileIsReplacedAndTheFileGoesWithTheObject) {
    const std::string name = path("swap.iff");
    {
        std::FILE* stale = std::fopen(name.c_str(), "w");
        ASSERT_NE(stale, nullptr);
        std::fputs("left over from an earlier render, much longer than a header", stale);
        std::fclose(stale);
    }
    {
        TrenderSwap swap(name.c_str());
        EXPECT_EQ(fs::file_size(name), 12u);
        char first[4];
        ASSERT_EQ(swap.read(first, 4, 0), 0);
        EXPECT_EQ(std::string(first, 4), "FOR4");
    }
    EXPECT_FALSE(fs::exists(name));
}

// A swap that is never destroyed, as when a render ends the process. Kept
// in a global the compiler may not drop, so that the leak checker sees it is
// still reachable when the child exits.
TrenderSwap* volatile gLeftOpen = nullptr;

// The children here end through exit(), so they must be new processes: a
// forked copy of this one would wait at exit for threads that libraries
// started in the parent and that do not exist in the copy. A threadsafe death
// test runs this test again from the top in a fresh process, which finds the
// folder in the environment.
TEST(RenderSwapExit, TheFileIsDeletedWhenTheProcessExits) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    constexpr const char* kFolder = "ORVO_TEST_SWAP_EXIT_FOLDER";
    fs::path dir;
    if (const char* given = std::getenv(kFolder)) {
        dir = given;
    } else {
        std::string pattern = (fs::temp_directory_path() / "orvo-swap-exit-XXXXXX").string();
        ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
        dir = pattern;
        ::setenv(kFolder, pattern.c_str(), 1);
    }
    const std::string exits = (dir / "exit.iff").string();
    const std::string abrupt = (dir / "abrupt.iff").string();

    EXPECT_EXIT(
        {
            gLeftOpen = new TrenderSwap(exits.c_str());
            if (gLeftOpen->append("data", 4) != 0 || !fs::exists(exits))
                ::_exit(3);
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "");
    EXPECT_FALSE(fs::exists(exits));

    // Ending without the exit handlers leaves the file: the deletion above is
    // the exit clean-up's doing.
    EXPECT_EXIT(
        {
            gLeftOpen = new TrenderSwap(abrupt.c_str());
            ::_exit(fs::exists(abrupt) ? 0 : 3);
        },
        ::testing::ExitedWithCode(0), "");
    EXPECT_TRUE(fs::exists(abrupt));

    ::unsetenv(kFolder);
    fs::remove_all(dir);
}

// Runs `child` in a forked process, which must end with _exit, and returns
// its exit status.
int inChild(const std::function<void()>& child) {
    std::fflush(nullptr);
    const pid_t pid = ::fork();
    if (pid == 0) {
        child();
        ::_exit(99);
    }
    int status = 0;
    ::waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

TEST_F(RenderSwap, AFailedWriteWarnsOnceAndStoresNothing) {
    const std::string name = path("small-disk.iff");
    // A file size limit makes the disk look full at 1000 bytes.
    const int status = inChild([&] {
        std::vector<std::string> seen;
        TcommandEngine::setSink(
            [&](TcommandEngine::Severity, const std::string& text) { seen.push_back(text); });
        std::signal(SIGXFSZ, SIG_IGN);
        struct rlimit limit {
            1000, 1000
        };
        if (::setrlimit(RLIMIT_FSIZE, &limit) != 0)
            ::_exit(10);
        TrenderSwap swap(name.c_str());
        std::vector<char> data(2000, 'x');
        if (swap.append(data.data(), 2000) != -1 || swap.append(data.data(), 2000) != -1)
            ::_exit(11);
        if (seen.size() != 1 || !swap.writeWarned() || swap.limitWarned())
            ::_exit(12);
        if (seen[0].find(name) == std::string::npos ||
            seen[0].find("File too large") == std::string::npos)
            ::_exit(13);
        // The partial write was cut off; a small append still fits.
        if (swap.gotoEnd() != 12 || swap.append(data.data(), 100) != 0 || swap.gotoEnd() != 112)
            ::_exit(14);
        ::_exit(0);
    });
    EXPECT_EQ(status, 0);
}

TEST_F(RenderSwap, TracesTellWhatTheSwapDoes) {
    setting("ORVO_TRACE_SWAP", "1");
    setting("ORVO_SWAP_LIMIT", "0");
    const std::string name = path("swap.iff");
    {
        TrenderSwap swap(name.c_str());
        swap.append("x", 1);
        swap.setReadPosition(5);
        char c;
        swap.read(&c, 1, 20);
    }
    const std::vector<std::string> expected = {
        "TrenderSwap:: opening swap " + name,     "TrenderSwap: using IFF file",
        "TrenderSwap: setting write limit to 0",  "TrenderSwap:setWritePosition 0",
        "TrenderSwap: failed setWritePosition 0", "TrenderSwap:setReadPosition 5",
        "TrenderSwap:setReadPosition 20",         "TrenderSwap: failed read 1 bytes",
        "TrenderSwap: closing swap file",
    };
    EXPECT_EQ(trace, expected);

    trace.clear();
    setting("ORVO_SWAP_LIMIT", "1000");
    TrenderSwap broken(path("missing/swap.iff").c_str());
    unsigned position;
    broken.append("x", 1);
    broken.read(&position, 1, 0);
    broken.getReadPosition(position);
    broken.getWritePosition(position);
    broken.setReadPosition(0);
    broken.flushOutput();
    const std::vector<std::string> noStream = {
        "TrenderSwap:: opening swap " + path("missing/swap.iff"),
        "TrenderSwap: using IFF file",
        "TrenderSwap: setting write limit to 1000",
        "TrenderSwap::setWritePosition: no stream",
        "TrenderSwap::append: no stream",
        "TrenderSwap::read: no stream",
        "TrenderSwap::getReadPosition: no stream",
        "TrenderSwap::getWritePosition: no stream",
        "TrenderSwap::setReadPosition: no stream",
        "TrenderSwap: no stream to flush",
    };
    EXPECT_EQ(trace, noStream);
}

// Two threads share one swap, each holding the swap's lock across its append
// and its reads, as callers must since the stream has one position.
TEST_F(RenderSwap, CallersHoldingTheLockShareTheStream) {
    TrenderSwap swap(path("swap.iff").c_str());
    auto work = [&](unsigned char fill) {
        std::vector<std::pair<unsigned, unsigned>> mine;
        for (unsigned i = 1; i <= 200; ++i) {
            std::vector<unsigned char> data(i, fill);
            const bool locked = swap.beginMutex();
            swap.beginMutex(); // recursive
            const unsigned at = swap.gotoEnd();
            EXPECT_EQ(swap.append(data.data(), i), 0);
            swap.endMutex(locked);
            swap.endMutex(locked);
            mine.emplace_back(at, i);
        }
        for (auto [at, size] : mine) {
            std::vector<unsigned char> back(size);
            const bool locked = swap.beginMutex();
            EXPECT_EQ(swap.read(back.data(), size, at), 0);
            swap.endMutex(locked);
            ASSERT_TRUE(
                std::all_of(back.begin(), back.end(), [&](unsigned char c) { return c == fill; }));
        }
    };
    std::thread other(work, 0xAA);
    work(0x55);
    other.join();
    EXPECT_EQ(swap.gotoEnd(), 12u + 2u * (200u * 201u / 2u));
}

} // namespace
