// The per-thread block cache of BOT textures under byte budgets smaller
// than the texture: hit rate, lookups a second, and the bytes the cache
// holds, which must never pass the budget.
//
// The texture is the 4096 x 4096 RGB 8-bit one of bench/texture_lookup: its
// BOT file has 21,845 blocks, 85 MiB of decoded slots (48 MiB of pixels and
// 16 of mip levels, each block in a 4 KiB slot). Budgets from 128 KiB (the
// default cache of 32 slots is 149 KiB with its scratch) to 32 MiB. Patterns:
//   coherent bilinear  - the top level, a 1024 x 1024 grid in 16 x 16 buckets;
//   coherent mipmapped - the same grid with its footprint (1/1024), between
//                        levels 10 and 11 as a renderer's samples would be;
//   scanline bilinear  - the same grid row by row across the whole texture,
//                        so that a row of blocks comes back eight times, a
//                        whole row of the texture apart: a cache of fewer
//                        slots than a row holds (128 blocks) reloads them;
//   random bilinear    - the top level at random points (the worst case).
// Every lookup's colour is checked against the memory pyramid's before the
// figures count; the program fails when a value differs or a cache ever
// holds more than its budget.
#include <fmt/format.h>
#include <stdlib.h>

#include <cstring>
#include <ctime>
#include <filesystem>
#include <memory>
#include <string>

#include "texture_bench_support.h"
#include "textures/file_texture_cache.h"
#include "textures/pyramid.h"

namespace {

using namespace orvo_bench;

constexpr unsigned kBatch = 64;

struct Result {
    double hitRate = 0;
    double nsPerLookup = 0;
    size_t held = 0;
    bool agrees = true;
};

// Processor time of this thread: the machine is shared, and wall time
// would count the other programs' turns.
double threadSeconds() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return double(t.tv_sec) + 1e-9 * double(t.tv_nsec);
}

Result run(const Tpyramid& bot, const Tpyramid& memory, const Coords& c, size_t points,
           bool mipmapped, unsigned slots) {
    // The lookups go through this thread's cache: give it the slots.
    TfileTextureCache& mine = TfileTextureCache::forThisThread();
    mine.setCapacity(slots);
    mine.resetStatistics();
    TfileTextureWrapper wrapper{false, false, false};
    const float footprint = 1.0f / 1024.0f;
    T3Float got[kBatch], want[kBatch];
    float alpha[kBatch];
    Result r;
    double seconds = 0;
    for (size_t i = 0; i < points; i += kBatch) {
        const unsigned n = unsigned(std::min<size_t>(kBatch, points - i));
        const double start = threadSeconds();
        if (mipmapped)
            bot.getMapColors(wrapper, n, &c.u[i], &c.v[i], &footprint, 0, false, got, alpha);
        else
            bot.levelCols(wrapper, bot.maxLevel(), n, &c.u[i], &c.v[i], got, alpha, false);
        seconds += threadSeconds() - start;
        r.held = std::max(r.held, mine.bytesHeld());
        if (mipmapped)
            memory.getMapColors(wrapper, n, &c.u[i], &c.v[i], &footprint, 0, false, want, alpha);
        else
            memory.levelCols(wrapper, memory.maxLevel(), n, &c.u[i], &c.v[i], want, alpha, false);
        if (std::memcmp(got, want, sizeof(T3Float) * n) != 0)
            r.agrees = false;
    }
    r.hitRate = double(mine.hits()) / double(mine.hits() + mine.misses());
    r.nsPerLookup = seconds * 1e9 / double(points);
    return r;
}

} // namespace

int main() {
    namespace fs = std::filesystem;
    const BenchFolder folder;

    TpyramidNonSwatch memory;
    if (!memory.buildPyramidFromPixelMap(textureMap()))
        return 2;
    const std::string path = folder.file("texture.bot");
    if (!memory.writeBOT(path, true))
        return 2;
    std::unique_ptr<Tpyramid> bot(Tpyramid::openBOT(path, false, path));
    if (!bot)
        return 2;
    const size_t decoded = size_t(Tpyramid::fsNumBlocks[12] + 128 * 128) * 4096;
    fmt::print("texture {} x {} RGB; BOT file {:.1f} MiB, {} blocks, {:.1f} MiB as slots\n\n",
               kSide, kSide, double(fs::file_size(path)) / 1048576.0,
               Tpyramid::fsNumBlocks[12] + 128 * 128, double(decoded) / 1048576.0);

    const Coords coherent = coherentCoords();
    Coords scanline;
    for (unsigned y = 0; y < 1024; ++y)
        for (unsigned x = 0; x < 1024; ++x) {
            scanline.u.push_back((x + 0.37f) / 1024);
            scanline.v.push_back((y + 0.61f) / 1024);
        }
    const Coords random = randomCoords(size_t(1) << 16);
    const struct {
        const char* name;
        const Coords* coords;
        bool mipmapped;
    } patterns[] = {{"coherent bilinear", &coherent, false},
                    {"coherent mipmapped", &coherent, true},
                    {"scanline bilinear", &scanline, false},
                    {"random bilinear", &random, false}};
    const size_t budgets[] = {128 << 10, 512 << 10, 2 << 20, 8 << 20, 32 << 20};

    fmt::print("{:<20} {:>10} {:>7} {:>12} {:>9} {:>10}\n", "pattern", "budget", "slots", "held",
               "hit rate", "CPU ns a lookup");
    int failures = 0;
    for (const auto& p : patterns)
        for (size_t budget : budgets) {
            // The most slots whose cache, scratch and bookkeeping included,
            // stays within the budget.
            const unsigned slots = TfileTextureCache::capacityForBudget(budget);
            const Result r = run(*bot, memory, *p.coords, p.coords->u.size(), p.mipmapped, slots);
            fmt::print("{:<20} {:>7} KiB {:>7} {:>8} KiB {:>8.2f}% {:>10.1f}{}\n", p.name,
                       budget >> 10, slots, r.held >> 10, 100.0 * r.hitRate, r.nsPerLookup,
                       r.agrees ? "" : "  VALUES DIFFER");
            if (!r.agrees || r.held > budget)
                ++failures;
        }
    return failures ? 1 : 0;
}
