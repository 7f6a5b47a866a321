// The block cache's bookkeeping and the pyramid inventory.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

#include "cache/render_cache.h"
#include "textures/file_texture_cache.h"
#include "textures/pyramid.h"
#include "textures/pyramid_inventory.h"
#include "textures/pyramid_test_support.h"

namespace {

using namespace orvo_test;

// A 64 x 64 BOT of one grey value: its top level is four blocks.
std::unique_ptr<Tpyramid> flatBOT(const TempFolder& dir, const std::string& name, uint8_t grey) {
    TpyramidNonSwatch memory;
    memory.buildPyramidFromPixelMap(greyMap(64, 64, [&](unsigned, unsigned) { return grey; }));
    const std::string path = dir.file(name);
    memory.writeBOT(path, true);
    return std::unique_ptr<Tpyramid>(Tpyramid::openBOT(path, false, path));
}

TEST(FileTextureCache, LeastRecentlyUsedSlotGoes) {
    TempFolder dir;
    auto bot = flatBOT(dir, "a.bot", 90);
    ASSERT_TRUE(bot);
    TfileTextureCache cache(2);
    EXPECT_EQ(cache.capacity(), 2u);
    EXPECT_EQ(cache.capacityLog2(), 1u);
    // Blocks of the top (level 6): A at x 0, y 63 (file row 0), B at x 32,
    // y 63, C at x 0, y 0.
    auto fetch = [&](unsigned x, unsigned y) {
        return cache.fetch(*bot, 6, x, y)[0];
    };
    fetch(0, 63);  // A miss
    fetch(32, 63); // B miss
    fetch(0, 63);  // A hit; B is now the least recently used
    fetch(0, 0);   // C miss, B goes
    EXPECT_EQ(cache.hits(), 1u);
    EXPECT_EQ(cache.misses(), 3u);
    fetch(0, 63); // A still there
    EXPECT_EQ(cache.hits(), 2u);
    fetch(32, 63); // B again: a miss, C goes
    EXPECT_EQ(cache.misses(), 4u);
    EXPECT_EQ(fetch(40, 40), 90);
    // The bit word: this thread's word for level 6 names both slots; every
    // other word is clear.
    const std::vector<uint32_t>& flags = bot->cacheFlags();
    ASSERT_GT(bot->threadCount(), cache.threadIndex());
    EXPECT_EQ(flags[cache.threadIndex() * 14 + 6], 3u);
    EXPECT_EQ(flags[cache.threadIndex() * 14 + 5], 0u);
    cache.clear();
    EXPECT_EQ(flags[cache.threadIndex() * 14 + 6], 0u);
}

TEST(FileTextureCache, LargeCachesUseHashListsAndKeepToTheirBudget) {
    TempFolder dir;
    auto bot = flatBOT(dir, "b.bot", 7);
    TfileTextureCache cache(64);
    for (int pass = 0; pass < 2; ++pass)
        for (unsigned y : {0u, 63u})
            for (unsigned x : {0u, 32u})
                EXPECT_EQ(cache.fetch(*bot, 6, x, y)[0], 7);
    EXPECT_EQ(cache.misses(), 4u);
    EXPECT_EQ(cache.hits(), 4u);
    // No bit words with hash lists.
    EXPECT_EQ(bot->cacheFlags()[cache.threadIndex() * 14 + 6], 0u);

    // A bilinear fetch inside one block is one lookup but counts its four
    // texels: at (8.5, 8.5) texels of level 4 (one 16 by 16 block) the
    // texels are 8 and 9 across and down, all in that block, which is new.
    auto saved = TfileTextureCache::exchangeForThisThread(std::make_unique<TfileTextureCache>(64));
    TfileTextureCache& mine = TfileTextureCache::forThisThread();
    T3Float colour;
    float alpha = 0.0f;
    bot->levelCol({false, false, false}, 4, 9.0f / 16.0f, 9.0f / 16.0f, colour, alpha, false);
    EXPECT_EQ(mine.misses(), 1u);
    EXPECT_EQ(mine.hits(), 3u);
    EXPECT_FLOAT_EQ(colour.x, 7.0f / 255.0f);
    TfileTextureCache::exchangeForThisThread(std::move(saved));

    // Slots of 4 KiB plus one for the alignment: a budget of 1 MiB takes
    // fewer than 255 slots, the largest power of two being 128.
    const unsigned slots = TfileTextureCache::capacityForBudget(1 << 20);
    EXPECT_EQ(slots, 128u);
    EXPECT_LE(TfileTextureCache::bytesFor(slots), size_t(1) << 20);
    EXPECT_GT(TfileTextureCache::bytesFor(2 * slots), size_t(1) << 20);
    cache.setCapacity(slots);
    EXPECT_EQ(cache.bytesHeld(), TfileTextureCache::bytesFor(slots));
    EXPECT_EQ(TfileTextureCache::capacityForBudget(1000), 0u);
}

TEST(FileTextureCache, APyramidThatIsGoneIsNeverMatched) {
    TempFolder dir;
    TfileTextureCache& cache = TfileTextureCache::forThisThread();
    for (uint8_t grey : {11, 22, 33}) {
        // Each pyramid is likely made where the last one was.
        auto bot = flatBOT(dir, "c" + std::to_string(grey) + ".bot", grey);
        EXPECT_EQ(cache.fetch(*bot, 6, 5, 5)[0], grey);
        EXPECT_EQ(cache.fetch(*bot, 3, 1, 1)[0], grey);
    }
    // A thread's cache of its own, under its own index.
    unsigned other = cache.threadIndex();
    std::thread([&] { other = TfileTextureCache::forThisThread().threadIndex(); }).join();
    EXPECT_NE(other, cache.threadIndex());
}

TEST(PyramidInventory, FindRegisterAndAFrameOfGrace) {
    TpyramidInventory::freeAllPyramids();
    {
        TpyramidInventory::TfindResult miss = TpyramidInventory::findPyramid("wood.png", false);
        EXPECT_FALSE(miss.found());
        auto* p = new TpyramidNonSwatch;
        p->setIdentifier("wood.png");
        TpyramidInventory::registerPyramid(p);
    }
    auto* swatch = new TpyramidSwatch;
    swatch->setIdentifier("wood.png");
    TpyramidInventory::registerPyramid(swatch);
    EXPECT_EQ(TpyramidInventory::count(false), 1u);
    EXPECT_EQ(TpyramidInventory::count(true), 1u);

    TpyramidInventory::TfindResult hit = TpyramidInventory::findPyramid("wood.png", false);
    ASSERT_TRUE(hit.found());
    EXPECT_FALSE(hit.pyramid()->isSwatch());
    EXPECT_EQ(TpyramidInventory::findPyramid("wood.png", true).pyramid(), swatch);

    // Needed (set by the find): the first sweep clears the flag, the second
    // deletes it. Swatch pyramids are not swept.
    TpyramidInventory::freeUnusedPyramids();
    EXPECT_EQ(TpyramidInventory::count(false), 1u);
    EXPECT_FALSE(hit.pyramid()->needed());
    TpyramidInventory::freeUnusedPyramids();
    EXPECT_EQ(TpyramidInventory::count(false), 0u);
    EXPECT_EQ(TpyramidInventory::count(true), 1u);

    TpyramidNonSwatch stranger;
    EXPECT_FALSE(TpyramidInventory::unregisterPyramid(&stranger));
    EXPECT_TRUE(TpyramidInventory::unregisterPyramid(swatch));
    EXPECT_EQ(TpyramidInventory::count(true), 0u);

    // The identifier of a prefiltered file carries the radius.
    EXPECT_EQ(Tpyramid::getUniqueIdentifier("a.png", false, false, 2.5f), "a.png");
    EXPECT_EQ(Tpyramid::getUniqueIdentifier("a.png", false, true, 2.5f), "a.png__%25000%__");
}

TEST(PyramidInventory, OneThreadLoadsWhileOthersWaitForTheSameFile) {
    TpyramidInventory::freeAllPyramids();
    std::atomic<int> builds{0};
    std::atomic<int> otherFileDone{0};
    Tpyramid* seen[4] = {};
    auto load = [&](int t) {
        TpyramidInventory::TfindResult r = TpyramidInventory::findPyramid("shared.png", false);
        if (!r.found()) {
            ++builds;
            // Meanwhile, a thread asking for another file is not held up.
            std::thread other([&] {
                TpyramidInventory::TfindResult o =
                    TpyramidInventory::findPyramid("other.png", false);
                ++otherFileDone;
            });
            other.join();
            auto* p = new TpyramidNonSwatch;
            p->setIdentifier("shared.png");
            p->buildPyramidFromPixelMap(greyMap(8, 8, [](unsigned, unsigned) { return 1; }));
            TpyramidInventory::registerPyramid(p);
            seen[t] = p;
        } else {
            seen[t] = r.pyramid();
        }
    };
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back(load, t);
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(builds, 1);
    EXPECT_EQ(otherFileDone, 1);
    for (int t = 1; t < 4; ++t)
        EXPECT_EQ(seen[t], seen[0]);
    TpyramidInventory::freeAllPyramids();
}

TEST(PyramidInventory, RenderPyramidsDrawOnTheRenderCache) {
    TrenderCache cache(1 << 20, theMallocAllocator());
    TpyramidInventory::init(&cache);
    EXPECT_EQ(TpyramidInventory::renderCache(), &cache);
    const size_t before = cache.usedSize();
    {
        TpyramidNonSwatch p;
        ASSERT_TRUE(
            p.buildPyramidFromPixelMap(greyMap(64, 64, [](unsigned, unsigned) { return 3; })));
        // 1365 texels below the top, 4096 in it, one byte each
        EXPECT_GE(cache.usedSize() - before, 1365u + 4096u);
        TpyramidSwatch s;
        ASSERT_TRUE(
            s.buildPyramidFromPixelMap(greyMap(64, 64, [](unsigned, unsigned) { return 3; })));
        EXPECT_LT(cache.usedSize() - before, 2 * (1365u + 4096u)); // a swatch uses the heap
    }
    EXPECT_EQ(cache.usedSize(), before);
    TpyramidInventory::init(nullptr);
}

} // namespace
