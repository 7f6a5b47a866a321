#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <map>
#include <random>

#include "host/arena.h"

namespace {

bool aligned16(const void* p) {
    return reinterpret_cast<uintptr_t>(p) % 16 == 0;
}

// Counts what an arena takes from its parent and gives back.
class CountingAllocator final : public Tallocator {
public:
    void* allocate(size_t size) override {
        ++pieces;
        return theMallocAllocator().allocate(size);
    }
    void deallocate(void* block) override {
        if (block)
            --pieces;
        theMallocAllocator().deallocate(block);
    }
    int pieces = 0;
};

// A page of 4096 bytes keeps 32 for its header and 16 for the end marker:
// 4048 bytes for blocks.
constexpr size_t kPage = 4096;

TEST(VariantArena, ChargeIsTheRequestRoundedTo16PlusAHeader) {
    EXPECT_EQ(TvariantArena::chargeFor(0), 32u);
    EXPECT_EQ(TvariantArena::chargeFor(1), 32u);
    EXPECT_EQ(TvariantArena::chargeFor(16), 32u);
    EXPECT_EQ(TvariantArena::chargeFor(17), 48u);
    EXPECT_EQ(TvariantArena::chargeFor(1000), 1024u);

    TvariantArena arena(theMallocAllocator(), kPage, TvariantArena::kUnlimitedFitSearch, "t");
    void* small = arena.allocate(10);
    void* round = arena.allocate(1000);
    EXPECT_EQ(TvariantArena::blockSize(small), 16u);
    EXPECT_EQ(TvariantArena::blockSize(round), 1008u);
    EXPECT_EQ(arena.usedSize(), 32u + 1024u);
    EXPECT_TRUE(aligned16(small));
    EXPECT_TRUE(aligned16(round));
}

TEST(VariantArena, PagesFillThenANewOneIsTaken) {
    CountingAllocator parent;
    TvariantArena arena(parent, kPage, TvariantArena::kUnlimitedFitSearch, "t");
    void* a = arena.allocate(1000);
    void* b = arena.allocate(1000);
    void* c = arena.allocate(1000);
    EXPECT_EQ(arena.usedSize(), 3072u);
    EXPECT_EQ(arena.footprint(), kPage);
    EXPECT_EQ(parent.pieces, 1);
    // Blocks follow each other in the page.
    EXPECT_EQ(static_cast<char*>(b) - static_cast<char*>(a), 1024);
    EXPECT_EQ(static_cast<char*>(c) - static_cast<char*>(b), 1024);

    // 4048 - 3072 = 976 bytes are left, too few for another 1024.
    void* d = arena.allocate(1000);
    EXPECT_EQ(arena.footprint(), 2 * kPage);
    EXPECT_EQ(parent.pieces, 2);
    EXPECT_EQ(arena.liveBlocks(), 4u);
    for (void* p : {a, b, c, d})
        arena.deallocate(p);
    EXPECT_EQ(arena.usedSize(), 0u);
    // The last empty page is kept for the next request.
    EXPECT_EQ(parent.pieces, 1);
    EXPECT_EQ(arena.footprint(), kPage);
}

TEST(VariantArena, FreedNeighboursMergeAndServeALargerRequestInPlace) {
    TvariantArena arena(theMallocAllocator(), kPage, TvariantArena::kUnlimitedFitSearch, "t");
    void* a = arena.allocate(1000);
    void* b = arena.allocate(1000);
    void* c = arena.allocate(1000);
    arena.deallocate(b);
    arena.deallocate(a);                 // merges with b: 2048 free bytes where a was
    void* joined = arena.allocate(2000); // charge 2016
    EXPECT_EQ(joined, a);
    EXPECT_EQ(arena.footprint(), kPage);
    EXPECT_EQ(arena.usedSize(), 1024u + 2016u);

    // Freeing the middle of three merges on both sides.
    arena.deallocate(joined);
    void* x = arena.allocate(100);
    void* y = arena.allocate(100);
    void* z = arena.allocate(100);
    arena.deallocate(x);
    arena.deallocate(z);
    arena.deallocate(y);
    arena.deallocate(c);
    EXPECT_EQ(arena.usedSize(), 0u);
    void* whole = arena.allocate(4048 - 16); // the whole page as one block again
    EXPECT_EQ(arena.footprint(), kPage);
    arena.deallocate(whole);
}

TEST(VariantArena, AnEmptyPageGoesBackUnlessItIsTheLast) {
    CountingAllocator parent;
    TvariantArena arena(parent, kPage, TvariantArena::kUnlimitedFitSearch, "t");
    void* x = arena.allocate(2000);
    void* big = arena.allocate(3000); // does not fit beside x
    ASSERT_EQ(parent.pieces, 2);
    arena.deallocate(big);
    EXPECT_EQ(parent.pieces, 1);
    EXPECT_EQ(arena.footprint(), kPage);
    arena.deallocate(x);
    EXPECT_EQ(parent.pieces, 1);
    arena.freeAll();
    EXPECT_EQ(parent.pieces, 0);
    EXPECT_EQ(arena.footprint(), 0u);
}

TEST(VariantArena, ARequestLargerThanAPageGetsAPieceOfItsOwn) {
    CountingAllocator parent;
    TvariantArena arena(parent, kPage, TvariantArena::kUnlimitedFitSearch, "t");
    void* large = arena.allocate(5000); // charge 5024, piece 32 + 5024
    ASSERT_NE(large, nullptr);
    EXPECT_TRUE(aligned16(large));
    EXPECT_EQ(arena.usedSize(), 5024u);
    EXPECT_EQ(arena.footprint(), 5056u);
    EXPECT_EQ(TvariantArena::blockSize(large), 5008u);
    std::memset(large, 0xAB, 5000);
    arena.deallocate(large);
    EXPECT_EQ(arena.footprint(), 0u);
    EXPECT_EQ(parent.pieces, 0);
}

// Two free blocks in one size class, the first too small for the request:
// an unlimited search finds the second; a search limited to one block goes on
// to the larger classes and takes the rest of the page instead.
TEST(VariantArena, FitSearchLimitBoundsTheLookInTheRequestsOwnClass) {
    for (unsigned limit : {TvariantArena::kUnlimitedFitSearch, 1u}) {
        TvariantArena arena(theMallocAllocator(), 65536, limit, "t");
        void* small = arena.allocate(1024); // block of 1040
        void* keepApart1 = arena.allocate(16);
        void* fitting = arena.allocate(1248); // block of 1264
        void* keepApart2 = arena.allocate(16);
        arena.deallocate(fitting);
        arena.deallocate(small);             // first on its class's list
        void* wanted = arena.allocate(1184); // block of 1200, same class
        if (limit == 1) {
            EXPECT_NE(wanted, fitting);
            EXPECT_NE(wanted, small);
        } else {
            EXPECT_EQ(wanted, fitting);
        }
        EXPECT_EQ(arena.footprint(), 65536u);
        arena.deallocate(keepApart1);
        arena.deallocate(keepApart2);
        arena.deallocate(wanted);
    }
}

// Random allocations and frees against a model: blocks never overlap, their
// bytes survive every other operation, and the used size is the sum of the
// live blocks.
TEST(VariantArena, RandomUseKeepsEveryBlockIntact) {
    CountingAllocator parent;
    TvariantArena arena(parent, 8192, 64, "t");
    std::mt19937 random(1234);
    struct Live {
        size_t size;
        unsigned char fill;
    };
    std::map<char*, Live> live;
    size_t expectedUsed = 0;
    auto release = [&](std::map<char*, Live>::iterator it) {
        for (size_t i = 0; i < it->second.size; ++i)
            ASSERT_EQ(static_cast<unsigned char>(it->first[i]), it->second.fill);
        expectedUsed -= TvariantArena::blockSize(it->first) + TvariantArena::kBlockOverhead;
        arena.deallocate(it->first);
        live.erase(it);
    };
    for (int step = 0; step < 4000; ++step) {
        if (live.empty() || random() % 100 < 55) {
            const size_t size = random() % 100 < 5 ? 8000 + random() % 4000 : random() % 1500;
            auto* p = static_cast<char*>(arena.allocate(size));
            ASSERT_NE(p, nullptr);
            ASSERT_TRUE(aligned16(p));
            ASSERT_GE(TvariantArena::blockSize(p), size);
            const auto fill = static_cast<unsigned char>(random());
            std::memset(p, fill, size);
            expectedUsed += TvariantArena::blockSize(p) + TvariantArena::kBlockOverhead;
            auto next = live.lower_bound(p);
            if (next != live.end()) {
                ASSERT_LE(p + size, next->first);
            }
            if (next != live.begin()) {
                ASSERT_LE(std::prev(next)->first + std::prev(next)->second.size, p);
            }
            live[p] = {size, fill};
        } else {
            auto it = live.begin();
            std::advance(it, random() % live.size());
            release(it);
        }
        ASSERT_EQ(arena.usedSize(), expectedUsed);
    }
    while (!live.empty())
        release(live.begin());
    EXPECT_EQ(arena.usedSize(), 0u);
    EXPECT_EQ(arena.liveBlocks(), 0u);
    EXPECT_EQ(parent.pieces, 1); // the one page kept
}

TEST(StackArena, BumpsWithinABlockAndGivesOversizeRequestsTheirOwn) {
    CountingAllocator parent;
    TstackArena arena(parent, 1024, "stack");
    auto* a = static_cast<char*>(arena.allocate(100));
    EXPECT_EQ(arena.footprint(), 1024u);
    auto* b = static_cast<char*>(arena.allocate(8, 64));
    EXPECT_EQ(reinterpret_cast<uintptr_t>(b) % 64, 0u);
    EXPECT_GE(b, a + 100);
    auto* huge = static_cast<char*>(arena.allocate(5000));
    EXPECT_EQ(arena.footprint(), 1024u + 16u + 5000u);
    std::memset(huge, 1, 5000);
    // The block in use before the oversize request still serves small ones.
    auto* c = static_cast<char*>(arena.allocate(100));
    EXPECT_EQ(arena.footprint(), 1024u + 16u + 5000u);
    EXPECT_GT(c, b);
    EXPECT_LT(c, a + 1024);
    EXPECT_EQ(parent.pieces, 2);
    arena.reset();
    EXPECT_EQ(parent.pieces, 0);
    EXPECT_EQ(arena.usedSize(), 0u);
}

TEST(StackArena, UsedSizeCountsAlignmentPadding) {
    TstackArena arena(theMallocAllocator(), 4096);
    arena.allocate(20);     // 20 bytes at the start of the block data
    arena.allocate(16, 16); // padded from 20 to 32, then 16
    EXPECT_EQ(arena.usedSize(), 48u);
}

TEST(FixedArena, SlotsComeInChunksAndAFreedSlotIsReusedFirst) {
    CountingAllocator parent;
    TfixedArena arena(parent, 24, 4); // slots of 32 bytes, 4 to a chunk
    EXPECT_EQ(arena.elementSize(), 32u);
    void* slots[5];
    for (void*& slot : slots)
        slot = arena.allocate();
    EXPECT_EQ(parent.pieces, 2);
    EXPECT_EQ(arena.footprint(), 2 * (16u + 4 * 32u));
    EXPECT_EQ(static_cast<char*>(slots[1]) - static_cast<char*>(slots[0]), 32);
    EXPECT_EQ(arena.liveCount(), 5u);
    arena.deallocate(slots[2]);
    EXPECT_EQ(arena.allocate(), slots[2]);
    arena.reset();
    EXPECT_EQ(parent.pieces, 0);
    EXPECT_EQ(arena.liveCount(), 0u);
}

TEST(MtVariantArena, TwoThreadsShareOneArena) {
    TmtVariantArena arena(theMallocAllocator(), 16384, TvariantArena::kUnlimitedFitSearch, "mt");
    auto work = [&](unsigned seed) {
        std::mt19937 random(seed);
        std::vector<std::pair<unsigned char*, size_t>> mine;
        for (int i = 0; i < 3000; ++i) {
            if (mine.size() < 20 && random() % 2) {
                const size_t size = 1 + random() % 900;
                auto* p = static_cast<unsigned char*>(arena.allocate(size));
                std::memset(p, static_cast<int>(seed), size);
                mine.emplace_back(p, size);
            } else if (!mine.empty()) {
                auto [p, size] = mine.back();
                mine.pop_back();
                for (size_t k = 0; k < size; ++k)
                    ASSERT_EQ(p[k], static_cast<unsigned char>(seed));
                arena.deallocate(p);
            }
        }
        for (auto [p, size] : mine)
            arena.deallocate(p);
    };
    std::thread other(work, 7u);
    work(9u);
    other.join();
    EXPECT_EQ(arena.usedSize(), 0u);
    EXPECT_EQ(arena.liveBlocks(), 0u);
}

} // namespace
