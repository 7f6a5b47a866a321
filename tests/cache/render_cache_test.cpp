#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "cache/render_cache.h"
#include "host/env.h"
#include "host/trace.h"

namespace {

// An entry whose data lives in the render cache: enterCache allocates and
// fills it, leaveCache checks and frees it.
class BlockEntry : public TcacheProxy {
public:
    BlockEntry(TrenderCache& cache, size_t size, unsigned char fill)
        : fCache(cache), fSize(size), fFill(fill) {}

    int enterCache(void*) override {
        ++enters;
        fData = static_cast<unsigned char*>(fCache.allocate(fSize));
        if (!fData)
            return -1;
        std::memset(fData, fFill, fSize);
        if (afterEnter)
            afterEnter();
        return 0;
    }
    int leaveCache(void*) override {
        ++leaves;
        if (refuse)
            return TcacheEntry::kRefuse;
        intact = intact && dataIntact();
        fCache.deallocate(fData);
        fData = nullptr;
        return 0;
    }
    bool dataIntact() const {
        return fData &&
               std::all_of(fData, fData + fSize, [&](unsigned char c) { return c == fFill; });
    }
    unsigned char* data() const { return fData; }
    size_t size() const { return fSize; }

    bool refuse = false;
    bool intact = true;
    std::atomic<int> enters{0};
    std::atomic<int> leaves{0};
    std::function<void()> afterEnter;

private:
    TrenderCache& fCache;
    size_t fSize;
    unsigned char fFill;
    unsigned char* fData = nullptr;
};

void touch(TrenderCache& cache, BlockEntry& entry) {
    ASSERT_EQ(cache.lock(entry, nullptr), 0);
    cache.unlock(entry, nullptr);
}

TEST(RenderCache, AllocationUnderTheTargetEvictsNothing) {
    TrenderCache cache(10000, theMallocAllocator());
    BlockEntry entry(cache, 4000, 1);
    touch(cache, entry);
    EXPECT_EQ(cache.usedSize(), 4016u);
    void* more = cache.allocate(4000); // 4016 + 4000 < 10000
    EXPECT_EQ(entry.leaves, 0);
    EXPECT_EQ(cache.usedSize(), 8032u);
    EXPECT_EQ(cache.maximumMemorySize(), 10000u);
    cache.deallocate(more);
}

TEST(RenderCache, NothingToEvictGrowsTheTargetBySizePlusMargin) {
    TrenderCache cache(16384, theMallocAllocator());
    EXPECT_EQ(cache.reclaim(nullptr), Tcache::kNothingToReclaim);
    void* block = cache.allocate(20000);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(cache.maximumMemorySize(), 16384u + 20000u + 262144u);
    EXPECT_EQ(cache.usedSize(), 20016u);
    cache.deallocate(block);
}

TEST(RenderCache, WithGrowthOffTheTargetStaysAndTheAllocationIsMadeAnyway) {
    TrenderCache cache(16384, theMallocAllocator());
    cache.setGrowthEnabled(false);
    void* block = cache.allocate(20000);
    ASSERT_NE(block, nullptr);
    std::memset(block, 0, 20000);
    EXPECT_EQ(cache.maximumMemorySize(), 16384u);
    EXPECT_EQ(cache.usedSize(), 20016u);
    cache.deallocate(block);
}

// Three entries of 8000 bytes (8016 each in the arena), then a target of
// 10000: far over it.
class ThreeBlocks : public ::testing::Test {
protected:
    ThreeBlocks() {
        for (BlockEntry* e : {&e1, &e2, &e3})
            touch(cache, *e);
        cache.reallySetMaximumMemorySize(10000);
    }
    TrenderCache cache{1 << 20, theMallocAllocator()};
    BlockEntry e1{cache, 8000, 1};
    BlockEntry e2{cache, 8000, 2};
    BlockEntry e3{cache, 8000, 3};
};

TEST_F(ThreeBlocks, EvictionStopsOnceOneFreedBlockCouldHoldTheRequest) {
    EXPECT_EQ(cache.usedSize(), 3 * 8016u);
    void* block = cache.allocate(5000);
    // e1 freed 8000 usable bytes, enough for 5000, though 16032 + 5000 is
    // still over the target.
    EXPECT_EQ(e1.leaves, 1);
    EXPECT_EQ(e2.leaves, 0);
    EXPECT_EQ(e3.leaves, 0);
    EXPECT_EQ(cache.lastFreedSize(), 8000u);
    EXPECT_EQ(cache.maximumMemorySize(), 10000u); // the last reclaim succeeded
    EXPECT_EQ(cache.usedSize(), 2 * 8016u + 5024u);
    cache.deallocate(block);
    EXPECT_TRUE(e1.intact);
}

TEST_F(ThreeBlocks, ARequestLargerThanAnyBlockEvictsUntilItFits) {
    void* block = cache.allocate(9000);
    // Every freed block is smaller than 9000; after the third, 0 + 9000 fits.
    EXPECT_EQ(e1.leaves + e2.leaves + e3.leaves, 3);
    EXPECT_EQ(cache.count(), 0u);
    EXPECT_EQ(cache.maximumMemorySize(), 10000u);
    EXPECT_EQ(cache.usedSize(), 9024u);
    cache.deallocate(block);
}

TEST_F(ThreeBlocks, ARefusalStopsTheLoopAndTheTargetGrows) {
    e1.refuse = true;
    void* block = cache.allocate(5000);
    EXPECT_EQ(e1.leaves, 1);
    EXPECT_EQ(e2.leaves, 0);
    EXPECT_EQ(e3.leaves, 0);
    EXPECT_EQ(cache.mru(), &e1);
    EXPECT_EQ(e1.state(), TcacheEntry::kUnlocked);
    EXPECT_EQ(cache.count(), 3u);
    EXPECT_EQ(cache.maximumMemorySize(), 10000u + 5000u + 262144u);
    cache.deallocate(block);
}

TEST_F(ThreeBlocks, LockedEntriesAreNeverEvicted) {
    ASSERT_EQ(cache.lock(e1, nullptr), 0);
    ASSERT_EQ(cache.lock(e1, nullptr), 0);
    cache.unlock(e1, nullptr); // still held once
    void* block = cache.allocate(9000);
    EXPECT_EQ(e1.leaves, 0);
    EXPECT_TRUE(e1.dataIntact());
    EXPECT_EQ(e2.leaves + e3.leaves, 2);
    // 8016 held + 9000 does not fit and nothing is left: growth.
    EXPECT_EQ(cache.maximumMemorySize(), 10000u + 9000u + 262144u);
    cache.deallocate(block);
    cache.unlock(e1, nullptr);
}

TEST(RenderCache, MaximumOnlyRisesUnlessReallySet) {
    TrenderCache cache(50000, theMallocAllocator());
    cache.setMaximumMemorySize(40000);
    EXPECT_EQ(cache.maximumMemorySize(), 50000u);
    cache.setMaximumMemorySize(60000);
    EXPECT_EQ(cache.maximumMemorySize(), 60000u);
    cache.reallySetMaximumMemorySize(40000);
    EXPECT_EQ(cache.maximumMemorySize(), 40000u);
}

TEST(RenderCache, LastFreedSizeIsTheLargestBlockSinceAllocateBegan) {
    TrenderCache cache(1 << 20, theMallocAllocator());
    void* small = cache.allocate(100);
    void* large = cache.allocate(3000);
    cache.deallocate(large);
    cache.deallocate(small);
    EXPECT_EQ(cache.lastFreedSize(), 3008u);
    void* again = cache.allocate(10);
    EXPECT_EQ(cache.lastFreedSize(), 0u);
    cache.deallocate(again);
    cache.deallocate(nullptr);
    EXPECT_EQ(cache.lastFreedSize(), 16u);
}

TEST(RenderCache, TheArenaAllocatorIsOneObjectThatDrawsOnTheCache) {
    TrenderCache cache(1 << 20, theMallocAllocator());
    Tallocator* seen[2] = {};
    std::thread other([&] { seen[0] = &cache.asArenaAllocator(); });
    seen[1] = &cache.asArenaAllocator();
    other.join();
    EXPECT_EQ(seen[0], seen[1]);
    EXPECT_EQ(&cache.asArenaAllocator(), seen[0]);

    const size_t before = cache.usedSize();
    void* block = seen[0]->allocate(1000);
    EXPECT_EQ(cache.usedSize(), before + 1024);
    seen[0]->deallocate(block);
    EXPECT_EQ(cache.usedSize(), before);
    // The allocator object itself lives in the arena.
    EXPECT_EQ(before, TvariantArena::chargeFor(sizeof(TrenderCacheAllocator)));
}

class SettingsRestorer {
public:
    ~SettingsRestorer() {
        for (const char* name :
             {"GROW_RENDER_CACHE", "TRACE_RENDER_CACHE", "ORVO_RENDERER_TRACE_GLOBAL_CACHE"})
            ::unsetenv(name);
        OrvoEnvRefresh();
        TrenderCache::readSettings();
    }
};

class TraceLines {
public:
    TraceLines() {
        fPrevious = setTdbTraceSink([this](std::string_view line) { lines.emplace_back(line); });
    }
    ~TraceLines() { setTdbTraceSink(std::move(fPrevious)); }
    std::vector<std::string> lines;

private:
    TdbTraceSink fPrevious;
};

TEST(RenderCacheSettings, GrowthOffIsTracedWhenACacheIsMade) {
    SettingsRestorer restore;
    TraceLines trace;
    ::setenv("GROW_RENDER_CACHE", "0", 1);
    ::setenv("TRACE_RENDER_CACHE", "1", 1);
    OrvoEnvRefresh();
    TrenderCache::readSettings();
    TrenderCache cache(1000, theMallocAllocator());
    EXPECT_FALSE(cache.growthEnabled());
    EXPECT_EQ(trace.lines, std::vector<std::string>{"TrenderCache: GROW_RENDER_CACHE disabled"});

    ::setenv("GROW_RENDER_CACHE", "1", 1);
    OrvoEnvRefresh();
    TrenderCache::readSettings();
    TrenderCache growing(1000, theMallocAllocator());
    EXPECT_TRUE(growing.growthEnabled());
    EXPECT_EQ(trace.lines.size(), 1u);
}

TEST(RenderCacheSettings, TheGlobalCacheStartsSmallAndOnlyRises) {
    SettingsRestorer restore;
    TrenderCache* global = theGlobalRenderCache();
    ASSERT_NE(global, nullptr) << "made when the library loads";
    EXPECT_GE(global->maximumMemorySize(), TrenderCache::kGlobalStartSize);

    TraceLines trace;
    ::setenv("ORVO_RENDERER_TRACE_GLOBAL_CACHE", "1", 1);
    OrvoEnvRefresh();
    TrenderCache::readSettings();
    const size_t raised = global->maximumMemorySize() + 4096;
    EXPECT_EQ(theGlobalRenderCache(raised), global);
    EXPECT_EQ(global->maximumMemorySize(), raised);
    EXPECT_EQ(theGlobalRenderCache(100), global);
    EXPECT_EQ(global->maximumMemorySize(), raised);

    ASSERT_EQ(trace.lines.size(), 4u);
    EXPECT_EQ(trace.lines[0].rfind("TrenderCache \"Render Cache\": footprint ", 0), 0u);
    EXPECT_EQ(trace.lines[1],
              "Warning: setting global cache maximum memory size to " + std::to_string(raised));
    EXPECT_EQ(trace.lines[3], "Warning: setting global cache maximum memory size to 100");
}

// Two threads lock, check, unlock and allocate scratch against a target that
// holds half of the entries. There is always something to evict, so the
// target never grows; used bytes stay within the target plus what two
// allocations racing past the check can add; no entry's data is ever freed
// under a holder; and at the end every entry is accounted for.
TEST(RenderCacheThreads, TwoThreadsOverSubscribedTwiceKeepTheTargetAndLoseNothing) {
    constexpr int kEntries = 48;
    constexpr size_t kLargest = 4000;
    constexpr size_t kScratch = 2000;
    std::vector<size_t> sizes;
    size_t workingSet = 0;
    for (int i = 0; i < kEntries; ++i) {
        sizes.push_back(1000 + static_cast<size_t>(i * 997) % (kLargest - 1000));
        workingSet += TvariantArena::chargeFor(sizes.back());
    }
    const size_t target = workingSet / 2;
    TrenderCache cache(theMallocAllocator(), 65536, target, TrenderCache::sDefaultFitSearchLimit);

    std::atomic<long> worstOver{LONG_MIN};
    auto observe = [&] {
        const long over =
            static_cast<long>(cache.usedSize()) - static_cast<long>(cache.maximumMemorySize());
        long seen = worstOver.load();
        while (over > seen && !worstOver.compare_exchange_weak(seen, over)) {
        }
    };
    std::vector<std::unique_ptr<BlockEntry>> entries;
    for (int i = 0; i < kEntries; ++i) {
        entries.push_back(std::make_unique<BlockEntry>(cache, sizes[static_cast<size_t>(i)],
                                                       static_cast<unsigned char>(i + 1)));
        entries.back()->afterEnter = observe;
    }

    std::atomic<int> failures{0};
    auto work = [&](unsigned seed) {
        std::mt19937 random(seed);
        std::vector<BlockEntry*> held;
        for (int step = 0; step < 20000; ++step) {
            const unsigned pick = random() % 100;
            if (pick < 60 || held.empty()) {
                BlockEntry& entry = *entries[random() % kEntries];
                if (cache.lock(entry, nullptr) != 0 || !entry.dataIntact())
                    ++failures;
                held.push_back(&entry);
            }
            if (held.size() > 2 || (pick >= 60 && pick < 90)) {
                BlockEntry* entry = held.front();
                held.erase(held.begin());
                if (!entry->dataIntact())
                    ++failures;
                cache.unlock(*entry, nullptr);
            }
            if (pick >= 90) {
                const size_t size = 16 + random() % kScratch;
                auto* scratch = static_cast<unsigned char*>(cache.allocate(size));
                observe();
                std::memset(scratch, 0x5A, size);
                cache.deallocate(scratch);
            }
        }
        for (BlockEntry* entry : held)
            cache.unlock(*entry, nullptr);
    };
    std::thread other(work, 11u);
    work(23u);
    other.join();

    EXPECT_EQ(failures, 0);
    int evictions = 0;
    for (const auto& entry : entries)
        evictions += entry->leaves;
    EXPECT_GT(evictions, 1000) << "the run must evict to test anything";
    EXPECT_EQ(cache.maximumMemorySize(), target);
    // A block may take 16 bytes beyond its charge (see TvariantArena).
    const long allowance = 2 * static_cast<long>(TvariantArena::chargeFor(kLargest) + 16);
    EXPECT_LE(worstOver.load(), allowance);

    size_t inMemory = 0;
    size_t bytesInMemory = 0;
    for (const auto& entry : entries) {
        EXPECT_EQ(entry->lockCount(), 0);
        EXPECT_TRUE(entry->intact);
        const bool resident = entry->state() == TcacheEntry::kUnlocked;
        EXPECT_TRUE(resident || entry->state() == TcacheEntry::kOut);
        EXPECT_EQ(entry->enters - entry->leaves, resident ? 1 : 0);
        EXPECT_EQ(entry->data() != nullptr, resident);
        if (resident) {
            ++inMemory;
            bytesInMemory +=
                TvariantArena::blockSize(entry->data()) + TvariantArena::kBlockOverhead;
            EXPECT_TRUE(entry->dataIntact());
        }
    }
    size_t listed = 0;
    for (TcacheProxy* p = cache.mru(); p; p = p->lruNext())
        ++listed;
    EXPECT_EQ(listed, inMemory);
    EXPECT_EQ(cache.count(), inMemory);
    EXPECT_EQ(cache.usedSize(), bytesInMemory);
    EXPECT_LE(bytesInMemory, target + static_cast<size_t>(allowance));

    for (const auto& entry : entries)
        cache.removeProxy(*entry, nullptr);
    EXPECT_EQ(cache.usedSize(), 0u);
}

} // namespace
