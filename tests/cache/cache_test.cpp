#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <latch>
#include <thread>
#include <vector>

#include "cache/cache.h"
#include "host/env.h"

namespace {

// An entry that counts its moves and answers what the test tells it to.
class CountingEntry : public TcacheProxy {
public:
    int enterCache(void* context) override {
        ++enters;
        lastContext = context;
        return enterResult;
    }
    int leaveCache(void* context) override {
        ++leaves;
        lastContext = context;
        return leaveResult;
    }
    int enterResult = 0;
    int leaveResult = 0;
    std::atomic<int> enters{0};
    std::atomic<int> leaves{0};
    void* lastContext = nullptr;
};

// The list from the most recently used end.
std::vector<TcacheProxy*> listOf(const Tcache& cache) {
    std::vector<TcacheProxy*> order;
    for (TcacheProxy* p = cache.mru(); p; p = p->lruNext())
        order.push_back(p);
    // The backward links must tell the same story.
    std::vector<TcacheProxy*> backwards;
    for (TcacheProxy* p = cache.lru(); p; p = p->lruPrevious())
        backwards.insert(backwards.begin(), p);
    EXPECT_EQ(order, backwards);
    return order;
}

TEST(Cache, LockTwiceUnlockOnceKeepsTheEntryHeldAndOffTheList) {
    Tcache cache;
    CountingEntry entry;
    EXPECT_EQ(cache.lock(entry, nullptr), 0);
    EXPECT_EQ(cache.lock(entry, nullptr), 0);
    EXPECT_EQ(entry.enters, 1);
    EXPECT_EQ(entry.lockCount(), 2);

    EXPECT_EQ(cache.unlock(entry, nullptr), 0);
    EXPECT_EQ(entry.state(), TcacheEntry::kLocked);
    EXPECT_EQ(entry.lockCount(), 1);
    EXPECT_FALSE(entry.inLRU());
    EXPECT_TRUE(entry.inCache());
    EXPECT_EQ(cache.count(), 0u);
    EXPECT_EQ(cache.reclaim(nullptr), Tcache::kNothingToReclaim);
    EXPECT_EQ(entry.leaves, 0);

    EXPECT_EQ(cache.unlock(entry, nullptr), 0);
    EXPECT_EQ(entry.state(), TcacheEntry::kUnlocked);
    EXPECT_EQ(cache.count(), 1u);
    EXPECT_EQ(cache.reclaim(nullptr), 0);
    EXPECT_EQ(entry.leaves, 1);
    EXPECT_EQ(entry.state(), TcacheEntry::kOut);
    EXPECT_EQ(cache.count(), 0u);
    EXPECT_EQ(cache.reclaim(nullptr), Tcache::kNothingToReclaim);
}

TEST(Cache, ReclaimTakesTheLeastRecentlyUsedAndALockRefreshes) {
    Tcache cache;
    CountingEntry a, b, c;
    for (CountingEntry* e : {&a, &b, &c}) {
        cache.lock(*e, nullptr);
        cache.unlock(*e, nullptr);
    }
    EXPECT_EQ(listOf(cache), (std::vector<TcacheProxy*>{&c, &b, &a}));

    // A lock of an unlocked entry takes it off the list without moving data.
    cache.lock(a, nullptr);
    EXPECT_EQ(a.enters, 1);
    EXPECT_EQ(cache.count(), 2u);
    EXPECT_EQ(listOf(cache), (std::vector<TcacheProxy*>{&c, &b}));
    cache.unlock(a, nullptr);
    EXPECT_EQ(listOf(cache), (std::vector<TcacheProxy*>{&a, &c, &b}));

    int context = 0;
    EXPECT_EQ(cache.reclaim(&context), 0);
    EXPECT_EQ(b.leaves, 1);
    EXPECT_EQ(b.lastContext, &context);
    EXPECT_EQ(listOf(cache), (std::vector<TcacheProxy*>{&a, &c}));

    // An evicted entry comes back through enterCache.
    cache.lock(b, &context);
    EXPECT_EQ(b.enters, 2);
    EXPECT_EQ(b.lastContext, &context);
    cache.unlock(b, nullptr);
    EXPECT_EQ(listOf(cache), (std::vector<TcacheProxy*>{&b, &a, &c}));
}

TEST(Cache, ARefusingEntryGoesBackToTheMostRecentEnd) {
    Tcache cache;
    CountingEntry stubborn, other;
    stubborn.leaveResult = TcacheEntry::kRefuse;
    for (CountingEntry* e : {&stubborn, &other}) {
        cache.lock(*e, nullptr);
        cache.unlock(*e, nullptr);
    }
    EXPECT_EQ(cache.lru(), &stubborn);
    EXPECT_EQ(cache.reclaim(nullptr), TcacheEntry::kRefuse);
    EXPECT_EQ(stubborn.leaves, 1);
    EXPECT_EQ(stubborn.state(), TcacheEntry::kUnlocked);
    EXPECT_EQ(cache.mru(), &stubborn);
    EXPECT_EQ(cache.count(), 2u);
    EXPECT_EQ(other.leaves, 0);

    // The next reclaim goes on to the other entry.
    EXPECT_EQ(cache.reclaim(nullptr), 0);
    EXPECT_EQ(other.state(), TcacheEntry::kOut);
    EXPECT_EQ(listOf(cache), (std::vector<TcacheProxy*>{&stubborn}));
}

TEST(Cache, AnErrorFromLeaveCacheStillTakesTheEntryOut) {
    Tcache cache;
    CountingEntry entry;
    entry.leaveResult = 7;
    cache.lock(entry, nullptr);
    cache.unlock(entry, nullptr);
    EXPECT_EQ(cache.reclaim(nullptr), 7);
    EXPECT_EQ(entry.state(), TcacheEntry::kOut);
    EXPECT_EQ(cache.count(), 0u);
}

TEST(Cache, AFailedLockHoldsNothing) {
    Tcache cache;
    CountingEntry entry;
    entry.enterResult = 5;
    EXPECT_EQ(cache.lock(entry, nullptr), 5);
    EXPECT_EQ(entry.state(), TcacheEntry::kOut);
    EXPECT_EQ(entry.lockCount(), 0);

    entry.enterResult = 0;
    EXPECT_EQ(cache.lock(entry, nullptr), 0);
    EXPECT_EQ(entry.enters, 2);
    cache.unlock(entry, nullptr);
    // One lock, one unlock: the entry is evictable again.
    EXPECT_TRUE(entry.inLRU());
    EXPECT_EQ(cache.reclaim(nullptr), 0);
}

TEST(Cache, AnUnlockWithoutALockChangesNothing) {
    Tcache cache;
    CountingEntry entry;
    EXPECT_EQ(cache.unlock(entry, nullptr), 0);
    EXPECT_EQ(entry.state(), TcacheEntry::kOut);
    EXPECT_EQ(cache.count(), 0u);
    EXPECT_EQ(cache.mru(), nullptr);
}

TEST(Cache, MaxEntriesZeroReclaimsAtEveryUnlock) {
    Tcache cache;
    cache.setMaxEntries(0);
    CountingEntry entry;
    for (int round = 1; round <= 3; ++round) {
        cache.lock(entry, nullptr);
        EXPECT_EQ(entry.leaves, round - 1);
        cache.unlock(entry, nullptr);
        EXPECT_EQ(entry.leaves, round);
        EXPECT_EQ(entry.state(), TcacheEntry::kOut);
        EXPECT_EQ(cache.count(), 0u);
    }
}

TEST(Cache, MaxEntriesTwoKeepsOneEntryOnTheList) {
    Tcache cache;
    cache.setMaxEntries(2);
    CountingEntry a, b, c;
    cache.lock(a, nullptr);
    cache.unlock(a, nullptr); // 1 on the list
    EXPECT_EQ(a.leaves, 0);
    cache.lock(b, nullptr);
    cache.unlock(b, nullptr); // 2 reached: a goes
    EXPECT_EQ(a.leaves, 1);
    cache.lock(c, nullptr);
    cache.unlock(c, nullptr); // 2 again: b goes
    EXPECT_EQ(b.leaves, 1);
    EXPECT_EQ(listOf(cache), (std::vector<TcacheProxy*>{&c}));
}

TEST(Cache, RemoveProxyEvictsOnlyAnUnheldListedEntry) {
    Tcache cache;
    CountingEntry entry;
    EXPECT_EQ(cache.removeProxy(entry, nullptr), 0); // out: nothing to do
    cache.lock(entry, nullptr);
    EXPECT_EQ(cache.removeProxy(entry, nullptr), 0);
    EXPECT_EQ(entry.leaves, 0);
    EXPECT_TRUE(entry.inCache());
    cache.unlock(entry, nullptr);
    entry.leaveResult = 9;
    EXPECT_EQ(cache.removeProxy(entry, nullptr), 9);
    EXPECT_EQ(entry.leaves, 1);
    EXPECT_EQ(entry.state(), TcacheEntry::kOut);
}

TEST(Cache, MaxEntriesComesFromLimitCacheSize) {
    ::setenv("LIMIT_CACHE_SIZE", "2", 1);
    OrvoEnvRefresh();
    Tcache::readSettings();
    Tcache limited;
    ::unsetenv("LIMIT_CACHE_SIZE");
    OrvoEnvRefresh();
    Tcache::readSettings();
    Tcache unlimited;
    EXPECT_EQ(limited.maxEntries(), 2u);
    EXPECT_EQ(unlimited.maxEntries(), UINT64_MAX);
}

// An entry whose moves wait for the test to let them finish.
class GatedEntry : public TcacheProxy {
public:
    int enterCache(void*) override {
        ++enters;
        if (gateEnter) {
            moving.count_down();
            release.wait();
        }
        return 0;
    }
    int leaveCache(void*) override {
        ++leaves;
        if (gateLeave) {
            moving.count_down();
            release.wait();
        }
        return 0;
    }
    bool gateEnter = false;
    bool gateLeave = false;
    std::latch moving{1};
    std::latch release{1};
    std::atomic<int> enters{0};
    std::atomic<int> leaves{0};
};

TEST(CacheThreads, ALockDuringEnterWaitsAndSharesTheOneEnter) {
    Tcache cache;
    GatedEntry entry;
    entry.gateEnter = true;
    std::thread first([&] { EXPECT_EQ(cache.lock(entry, nullptr), 0); });
    entry.moving.wait(); // the first lock is inside enterCache now
    EXPECT_EQ(entry.state(), TcacheEntry::kEntering);
    std::atomic<bool> secondDone{false};
    std::thread second([&] {
        EXPECT_EQ(cache.lock(entry, nullptr), 0);
        secondDone = true;
    });
    std::this_thread::yield();
    EXPECT_FALSE(secondDone) << "a lock must not return while the entry is entering";
    entry.release.count_down();
    first.join();
    second.join();
    EXPECT_EQ(entry.enters, 1);
    EXPECT_EQ(entry.lockCount(), 2);
    EXPECT_EQ(entry.state(), TcacheEntry::kLocked);
}

TEST(CacheThreads, ALockDuringLeaveWaitsThenBringsTheEntryBack) {
    Tcache cache;
    GatedEntry entry;
    cache.lock(entry, nullptr);
    cache.unlock(entry, nullptr);
    entry.gateLeave = true;
    std::thread evictor([&] { EXPECT_EQ(cache.reclaim(nullptr), 0); });
    entry.moving.wait();
    EXPECT_TRUE(entry.beingDeleted());
    std::thread locker([&] { EXPECT_EQ(cache.lock(entry, nullptr), 0); });
    entry.release.count_down();
    evictor.join();
    locker.join();
    EXPECT_EQ(entry.leaves, 1);
    EXPECT_EQ(entry.enters, 2);
    EXPECT_EQ(entry.state(), TcacheEntry::kLocked);
    EXPECT_EQ(cache.count(), 0u);
}

} // namespace
