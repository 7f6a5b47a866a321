#include <gtest/gtest.h>

#include <mutex>
#include <thread>

#include "host/mt.h"

namespace {

TEST(MtLocks, CriticalSectionKeepsIncrementsWhole) {
    TmtCriticalSection section;
    long counter = 0;
    auto work = [&] {
        for (int i = 0; i < 20000; ++i) {
            section.enter();
            ++counter;
            section.leave();
        }
    };
    std::thread other(work);
    work();
    other.join();
    EXPECT_EQ(counter, 40000);
}

TEST(MtLocks, RecursiveSectionsAreHeldUntilTheLastLeave) {
    TmtRecursiveCS section;
    section.enter();
    section.enter(); // the same thread gets in again
    bool otherGotIn = true;
    std::thread([&] { otherGotIn = section.tryEnter(); }).join();
    EXPECT_FALSE(otherGotIn);
    section.leave();
    std::thread([&] { otherGotIn = section.tryEnter(); }).join();
    EXPECT_FALSE(otherGotIn) << "one leave of two must not free the section";
    section.leave();
    std::thread([&] {
        section.enter(); // free now: blocks forever if not
        section.leave();
    }).join();

    TmtRecursiveMutex mutex;
    std::lock_guard outer(mutex);
    std::lock_guard inner(mutex);
}

// Two threads hand a token back and forth: each waits under the section for
// its turn. If wait did not give the section back, or returned without
// holding it, this would hang or race (ThreadSanitizer sees the latter).
TEST(MtLocks, ConditionVariableWaitReleasesAndRetakesTheSection) {
    TmtCriticalSection section;
    TmtConditionVar condition;
    int turn = 0;
    int passes = 0;
    constexpr int kRounds = 500;
    auto player = [&](int me) {
        for (int round = 0; round < kRounds; ++round) {
            std::lock_guard held(section);
            while (turn != me)
                condition.wait(section);
            ++passes;
            turn = 1 - me;
            condition.broadcast();
        }
    };
    std::thread other(player, 1);
    player(0);
    other.join();
    EXPECT_EQ(passes, 2 * kRounds);
    EXPECT_EQ(turn, 0);
}

} // namespace
