#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <latch>
#include <sstream>
#include <thread>

#include "shading/run_time.h"

namespace {

using namespace std::chrono_literals;

double now() {
    return TrunTime::currentTime().seconds();
}

// Spins until the calling thread's processor clock has moved.
void burnThreadTime() {
    const double start = TrunTime::threadTime().seconds();
    volatile unsigned sink = 0;
    while (TrunTime::threadTime().seconds() <= start)
        for (unsigned i = 0; i < 10000; ++i)
            sink = sink + i;
}

TEST(TrunTime, AddsSubtractsAndPrintsSeconds) {
    TrunTime time(1.25);
    time += TrunTime(0.5);
    EXPECT_DOUBLE_EQ(time.seconds(), 1.75);
    time -= TrunTime(2.0); // 1.75 - 2 = -0.25
    EXPECT_DOUBLE_EQ(time.seconds(), -0.25);
    time.reset();
    EXPECT_EQ(time.seconds(), 0.0);

    EXPECT_EQ(Tstring(TrunTime(12.3456)), "12.346");
    EXPECT_EQ(Tstring(TrunTime(0.0)), "0.000");
    std::ostringstream out;
    out << TrunTime(1.5) << "|" << TrunTime(-0.25);
    EXPECT_EQ(out.str(), "1.500|-0.250");
}

TEST(TrunTime, ClocksDoNotGoBack) {
    const double wall = now();
    const double application = TrunTime::applicationTime().seconds();
    EXPECT_GE(application, 0.0);
    burnThreadTime();
    EXPECT_GE(now(), wall);
    EXPECT_GE(TrunTime::applicationTime().seconds(), application);
    // The process has run at least as long as this thread has.
    const double thread = TrunTime::threadTime().seconds();
    EXPECT_GT(thread, 0.0);
    EXPECT_GE(TrunTime::processTime().seconds(), thread);
}

TEST(TscopeRunTime, EachClockAddsItsScopeToTheTotal) {
    TrunTime wall(100.0);
    const double before = now();
    {
        TscopeRunTime scope(wall);
        burnThreadTime();
    }
    const double outer = now() - before;
    // Added to, not replaced; no more than the span measured around it.
    EXPECT_GE(wall.seconds(), 100.0);
    EXPECT_LE(wall.seconds() - 100.0, outer + 1e-9);

    TrunTime thread;
    {
        TscopeThreadRunTime scope(thread);
        burnThreadTime();
    }
    EXPECT_GT(thread.seconds(), 0.0);

    TrunTime process;
    {
        TscopeProcessRunTime scope(process);
        burnThreadTime();
    }
    EXPECT_GT(process.seconds(), 0.0);
}

TEST(TmpRunTime, NestedScopesCountThreadsInside) {
    TmpRunTime time;
    const double before = now();
    {
        TmpScopeRunTime outer(time);
        {
            TmpScopeRunTime inner(time);
            EXPECT_EQ(time.threadsInside(), 2u);
        }
        EXPECT_EQ(time.threadsInside(), 1u);
    }
    const double span = now() - before;
    EXPECT_EQ(time.threadsInside(), 0u);
    EXPECT_GE(time.seconds(), 0.0);
    EXPECT_LE(time.seconds(), span + 1e-9);
    // Nobody inside: nothing more accrues.
    const double settled = time.seconds();
    std::this_thread::sleep_for(2ms);
    EXPECT_EQ(time.seconds(), settled);
    // An unmatched leave neither underflows the count nor adds time.
    time.leave();
    EXPECT_EQ(time.threadsInside(), 0u);
    EXPECT_EQ(time.seconds(), settled);
}

TEST(TmpRunTime, TimeWithNobodyInsideIsLeftOut) {
    TmpRunTime time;
    const double before = now();
    time.enter();
    time.leave();
    const double gapStart = now();
    std::this_thread::sleep_for(20ms);
    const double gapEnd = now();
    time.enter();
    time.leave();
    const double after = now();
    // The sleep between the two stretches is not in the total.
    EXPECT_LE(time.seconds(), (after - before) - (gapEnd - gapStart) + 1e-9);
    EXPECT_GE(time.seconds(), 0.0);
}

// Two threads inside together for a while: the overlap counts once. Summing
// each thread's own stretch would exceed the wall span around both, since
// the shared stretch dominates it; losing the overlap would fall short of
// the time both were known to be inside.
TEST(TmpRunTime, OverlapFromTwoThreadsCountsOnce) {
    TmpRunTime time;
    std::latch bothInside(3);
    std::latch firstMayLeave(2);
    std::atomic<double> bothInsideAt{0.0};
    std::atomic<double> firstLeavingAt{0.0};

    const double before = now();
    std::thread first([&] {
        TmpScopeRunTime scope(time);
        bothInside.arrive_and_wait();
        std::this_thread::sleep_for(30ms);
        firstMayLeave.arrive_and_wait();
        firstLeavingAt = now();
    });
    std::thread second([&] {
        bothInside.arrive_and_wait();
        TmpScopeRunTime scope(time);
        bothInsideAt = now();
        firstMayLeave.arrive_and_wait();
        // Stay until the first has left.
        first.join();
    });
    bothInside.arrive_and_wait();
    second.join();
    const double after = now();

    EXPECT_EQ(time.threadsInside(), 0u);
    EXPECT_LE(time.seconds(), after - before + 1e-9);
    EXPECT_GE(time.seconds(), firstLeavingAt.load() - bothInsideAt.load() - 1e-9);
    EXPECT_GE(firstLeavingAt.load(), bothInsideAt.load());
}

} // namespace
