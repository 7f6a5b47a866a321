#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>

#include "host/env.h"
#include "shading/flushable.h"

namespace {

constexpr const char* kSetting = "ORVO_VPR_GPU_FLUSHING_ENABLE";

// Answers as told and counts what the manager asks of it.
class Buffer : public IFlushable {
public:
    bool flushable = true;
    bool registers = true;
    bool updates = true;
    bool restores = false;
    bool finishAtOnce = false;

    int flushableQueries = 0;
    int updateQueries = 0;
    int begins = 0;
    int ends = 0;
    int restored = 0;

    bool isFlushable() override {
        ++flushableQueries;
        return flushable;
    }
    bool shouldRegisterItself() override { return registers; }
    bool shouldUpdate() override {
        ++updateQueries;
        return updates;
    }
    bool shouldRestore() override { return restores; }
    void beginFlushMemory() override {
        ++begins;
        if (finishAtOnce)
            notifyFlushingFinished();
    }
    void endFlushMemory() override { ++ends; }
    void restoreMemory() override { ++restored; }

    void finish() { notifyFlushingFinished(); }
};

class Flushable : public ::testing::Test {
protected:
    void SetUp() override { useSetting(nullptr); }
    void TearDown() override { useSetting(nullptr); }

    // Sets the variable (or clears it) and has the manager read it again.
    static void useSetting(const char* value) {
        if (value)
            ::setenv(kSetting, value, 1);
        else
            ::unsetenv(kSetting);
        OrvoEnvRefresh();
        IFlushable::reset();
    }

    static void requestFlush() { IFlushable::sendEvent(kFlushableEventFlushRequested, nullptr); }
};

TEST_F(Flushable, ItemGoesFromWaitingToFlushingToFinished) {
    Buffer buffer;
    // Frame 1: the buffer registers and waits; nothing asks for memory.
    IFlushable::updateManager(1);
    EXPECT_EQ(buffer.begins, 0);

    // A request: at the next update the waiting buffer begins to flush, and
    // the manager announces it with event 1.
    requestFlush();
    EXPECT_TRUE(IFlushable::checkEvent(kFlushableEventFlushRequested));
    EXPECT_FALSE(IFlushable::checkEvent(kFlushableEventFlushingStarted));
    IFlushable::updateManager(2);
    EXPECT_EQ(buffer.begins, 1);
    EXPECT_EQ(buffer.ends, 0);
    EXPECT_TRUE(IFlushable::checkEvent(kFlushableEventFlushingStarted));
    // The request lasted its one frame.
    EXPECT_FALSE(IFlushable::checkEvent(kFlushableEventFlushRequested));

    // Still flushing: further updates wait for the buffer to say it is done.
    IFlushable::updateManager(3);
    EXPECT_EQ(buffer.begins, 1);
    EXPECT_EQ(buffer.ends, 0);
    EXPECT_FALSE(IFlushable::checkEvent(kFlushableEventFlushingStarted));

    buffer.finish();
    IFlushable::updateManager(4);
    EXPECT_EQ(buffer.ends, 1);
    EXPECT_EQ(buffer.begins, 1);

    // Out of the active list, it registers again as waiting, and flushes
    // again at the next request.
    IFlushable::updateManager(5);
    EXPECT_EQ(buffer.begins, 1);
    requestFlush();
    IFlushable::updateManager(6);
    EXPECT_EQ(buffer.begins, 2);
    EXPECT_EQ(buffer.ends, 1);
}

TEST_F(Flushable, ARequestBeforeRegistrationIsSeenInTheSameUpdate) {
    // Stage 2 registers, stage 3 sees the request entered in stage 1.
    Buffer buffer;
    requestFlush();
    IFlushable::updateManager(1);
    EXPECT_EQ(buffer.begins, 1);
}

TEST_F(Flushable, FinishingInsideBeginEndsAtTheNextUpdate) {
    Buffer buffer;
    buffer.finishAtOnce = true;
    requestFlush();
    IFlushable::updateManager(1);
    EXPECT_EQ(buffer.begins, 1);
    EXPECT_EQ(buffer.ends, 0);
    IFlushable::updateManager(2);
    EXPECT_EQ(buffer.ends, 1);
}

TEST_F(Flushable, FinishingWhileNotFlushingChangesNothing) {
    Buffer buffer;
    IFlushable::updateManager(1);
    buffer.finish(); // waiting, not flushing
    IFlushable::updateManager(2);
    EXPECT_EQ(buffer.ends, 0);
    requestFlush();
    IFlushable::updateManager(3);
    EXPECT_EQ(buffer.begins, 1);
}

TEST_F(Flushable, UnflushableObjectsAreDroppedForGood) {
    Buffer buffer;
    buffer.flushable = false;
    requestFlush();
    IFlushable::updateManager(1);
    EXPECT_EQ(buffer.flushableQueries, 1);
    EXPECT_EQ(buffer.updateQueries, 0);
    buffer.flushable = true;
    IFlushable::updateManager(2);
    requestFlush();
    IFlushable::updateManager(3);
    EXPECT_EQ(buffer.flushableQueries, 1);
    EXPECT_EQ(buffer.begins, 0);
}

TEST_F(Flushable, WithdrawingLeavesTheListOrRestores) {
    Buffer buffer;
    IFlushable::updateManager(1); // waiting
    buffer.registers = false;
    buffer.restores = true;
    IFlushable::updateManager(2); // leaves the active list; no restore yet
    EXPECT_EQ(buffer.restored, 0);
    requestFlush();
    IFlushable::updateManager(3); // not active: restores instead of flushing
    EXPECT_EQ(buffer.begins, 0);
    EXPECT_EQ(buffer.restored, 1);
}

TEST_F(Flushable, AFlushUnderWayRunsToItsEndEvenIfTheObjectWithdraws) {
    Buffer buffer;
    requestFlush();
    IFlushable::updateManager(1);
    ASSERT_EQ(buffer.begins, 1);
    buffer.registers = false;
    IFlushable::updateManager(2);
    buffer.finish();
    IFlushable::updateManager(3);
    EXPECT_EQ(buffer.ends, 1);
}

TEST_F(Flushable, DestroyedObjectsLeaveTheManager) {
    auto flushing = std::make_unique<Buffer>();
    auto waiting = std::make_unique<Buffer>();
    waiting->updates = false;
    requestFlush();
    IFlushable::updateManager(1);
    ASSERT_EQ(flushing->begins, 1);
    waiting->updates = true;
    IFlushable::updateManager(2); // joins as waiting: the request has passed
    ASSERT_EQ(waiting->begins, 0);
    flushing.reset();
    waiting.reset();
    // The next update meets the new object alone; calling a dead one would
    // be a use after free, which the address sanitizer reports.
    Buffer fresh;
    requestFlush();
    IFlushable::updateManager(3);
    EXPECT_EQ(fresh.begins, 1);
}

TEST_F(Flushable, EventsLastTheirFramesAndAreEnteredOnce) {
    // Three frames from frame 10: pending through the updates of 10 and 11,
    // passed after that of 12 (= 10 + 3 - 1).
    FlushableEventParam threeFrames{3};
    IFlushable::sendEvent(FlushableEvent(7), &threeFrames);
    IFlushable::updateManager(10);
    EXPECT_TRUE(IFlushable::checkEvent(FlushableEvent(7)));
    // Sent again while pending: the entry keeps its own time.
    FlushableEventParam tenFrames{10};
    IFlushable::sendEvent(FlushableEvent(7), &tenFrames);
    IFlushable::updateManager(11);
    EXPECT_TRUE(IFlushable::checkEvent(FlushableEvent(7)));
    IFlushable::updateManager(12);
    EXPECT_FALSE(IFlushable::checkEvent(FlushableEvent(7)));

    // A frame before the entry's first starts a new run: the entry passes.
    IFlushable::sendEvent(FlushableEvent(7), &tenFrames);
    IFlushable::updateManager(20);
    EXPECT_TRUE(IFlushable::checkEvent(FlushableEvent(7)));
    IFlushable::updateManager(1);
    EXPECT_FALSE(IFlushable::checkEvent(FlushableEvent(7)));
}

TEST_F(Flushable, AZeroSettingTurnsTheManagerOff) {
    useSetting("0");
    Buffer buffer;
    requestFlush();
    EXPECT_FALSE(IFlushable::checkEvent(kFlushableEventFlushRequested));
    IFlushable::updateManager(1);
    EXPECT_EQ(buffer.flushableQueries, 0);
    EXPECT_EQ(buffer.updateQueries, 0);
    EXPECT_EQ(buffer.begins, 0);

    // Any number below 1 turns it off; 1, or a value that is no number,
    // leaves it on.
    useSetting("0.5");
    requestFlush();
    IFlushable::updateManager(2);
    EXPECT_EQ(buffer.begins, 0);
    useSetting("-3");
    requestFlush();
    IFlushable::updateManager(3);
    EXPECT_EQ(buffer.begins, 0);
    useSetting("yes");
    requestFlush();
    IFlushable::updateManager(4);
    EXPECT_EQ(buffer.begins, 1);
    useSetting("1"); // the reset forgets the flush under way
    requestFlush();
    IFlushable::updateManager(5);
    EXPECT_EQ(buffer.begins, 2);
    buffer.finish();
    IFlushable::updateManager(6);
    EXPECT_EQ(buffer.ends, 1);
}

TEST_F(Flushable, ResetForgetsActiveItemsAndEvents) {
    Buffer buffer;
    requestFlush();
    IFlushable::updateManager(1);
    ASSERT_EQ(buffer.begins, 1);
    IFlushable::reset();
    EXPECT_FALSE(IFlushable::checkEvent(kFlushableEventFlushingStarted));
    // Forgotten mid-flush: finishing reaches nothing, and the object, still
    // registered, waits anew.
    buffer.finish();
    IFlushable::updateManager(2);
    EXPECT_EQ(buffer.ends, 0);
    requestFlush();
    IFlushable::updateManager(3);
    EXPECT_EQ(buffer.begins, 2);
}

} // namespace
