// Texture lookups through our pyramids against OpenImageIO's TextureSystem,
// on the same 4096 x 4096 RGB 8-bit texture and the same coordinates.
//
// The texture is made in memory; OpenImageIO gets it as a tiled, mipmapped
// .tx file made by its own make_texture, we as a pyramid built from the
// same pixels, in memory and as a BOT file. Three filters:
//   closest   - the top level's nearest texel (ours: the no-filter flag);
//   bilinear  - bilinear on the top level;
//   trilinear - bilinear on the two levels around a footprint of 1/1500 of
//               the texture, blended (OpenImageIO: MipModeTrilinear with
//               the same footprint as derivatives).
// Two coordinate sets of 2^20 points: random, and coherent (a 1024 x 1024
// grid over the texture visited in 16 x 16 buckets, as a renderer's tiles
// do). Ours reads batches of 64, as a texture node computes a run of
// samples; OpenImageIO is timed one point at a time through a texture handle
// and in its batches of 16, and the faster counts.
//
// Before timing, every way's results on the first 2^16 points are compared
// with OpenImageIO's single-point results: closest and bilinear must agree
// within 1/255; trilinear differs by how each picks and weighs its levels,
// and the largest difference is printed. Where the two pick the same level
// alone (a footprint of 1/1024, level 10 with no blend), trilinear must
// agree within 1/255 as well.
//
// `bench_texture_lookup PASSES [random|coherent [closest|bilinear|trilinear]]`
// runs one set, or one cell, only.
//
// `bench_texture_lookup --image PATH` writes the picture to an image file
// instead, the source for timing `orvo maketx` against `maketx`.
//
// Times: ns per lookup, the median of the passes, ways interleaved pass by
// pass; with two threads each thread does the whole set, and the figure is
// wall time over both threads' lookups.
#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>
#include <OpenImageIO/texture.h>
#include <fmt/format.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <functional>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "texture_bench_support.h"
#include "textures/file_texture_cache.h"
#include "textures/pyramid.h"

namespace {

using namespace orvo_bench;

constexpr size_t kCheckPoints = size_t(1) << 16;
constexpr unsigned kBatch = 64;
constexpr float kFootprint = 1.0f / 1500.0f;

enum class Filter { Closest, Bilinear, Trilinear };
const char* filterName(Filter f) {
    return f == Filter::Closest ? "closest" : f == Filter::Bilinear ? "bilinear" : "trilinear";
}

// A way to look the coordinates [begin, end) up, writing RGB to out.
using Way = std::function<void(const Coords&, size_t begin, size_t end, float* out)>;

// The block caches of a BOT way, one for each thread that runs it, kept
// from pass to pass so that each way keeps its own warm cache.
struct Caches {
    unsigned slots;
    std::unique_ptr<TfileTextureCache> byThread[2];
};

struct Ours {
    const Tpyramid* pyramid;
    Caches* caches = nullptr;
    float trilinearFootprint = kFootprint;

    void operator()(Filter filter, const Coords& c, size_t begin, size_t end, float* out,
                    unsigned thread) const {
        std::unique_ptr<TfileTextureCache> saved;
        if (caches) {
            std::unique_ptr<TfileTextureCache>& mine = caches->byThread[thread];
            if (!mine)
                mine = std::make_unique<TfileTextureCache>(caches->slots);
            saved = TfileTextureCache::exchangeForThisThread(std::move(mine));
        }
        lookUp(filter, c, begin, end, out);
        if (caches)
            caches->byThread[thread] = TfileTextureCache::exchangeForThisThread(std::move(saved));
    }

    void lookUp(Filter filter, const Coords& c, size_t begin, size_t end, float* out) const {
        TfileTextureWrapper wrapper{false, false, filter == Filter::Closest};
        T3Float colour[kBatch];
        float alpha[kBatch];
        const float footprint = filter == Filter::Trilinear ? trilinearFootprint : 1e-6f;
        for (size_t i = begin; i < end; i += kBatch) {
            const unsigned n = unsigned(std::min<size_t>(kBatch, end - i));
            if (filter == Filter::Bilinear)
                pyramid->levelCols(wrapper, pyramid->maxLevel(), n, &c.u[i], &c.v[i], colour, alpha,
                                   false);
            else
                pyramid->getMapColors(wrapper, n, &c.u[i], &c.v[i], &footprint, 0, false, colour,
                                      alpha);
            std::memcpy(out + 3 * (i - begin), colour, sizeof(T3Float) * n);
        }
    }
};

struct Theirs {
    OIIO::TextureSystem* system;
    OIIO::ustring file;
    bool batched;
    float trilinearFootprint = kFootprint;

    void operator()(Filter filter, const Coords& c, size_t begin, size_t end, float* out,
                    unsigned) const {
        OIIO::TextureSystem::Perthread* thread = system->get_perthread_info();
        OIIO::TextureSystem::TextureHandle* handle = system->get_texture_handle(file, thread);
        const float d = filter == Filter::Trilinear ? trilinearFootprint : 0.0f;
        if (!batched) {
            OIIO::TextureOpt opt;
            opt.swrap = opt.twrap = OIIO::TextureOpt::WrapClamp;
            opt.interpmode = filter == Filter::Closest ? OIIO::TextureOpt::InterpClosest
                                                       : OIIO::TextureOpt::InterpBilinear;
            opt.mipmode = filter == Filter::Trilinear ? OIIO::TextureOpt::MipModeTrilinear
                                                      : OIIO::TextureOpt::MipModeNoMIP;
            for (size_t i = begin; i < end; ++i)
                system->texture(handle, thread, opt, c.u[i], 1.0f - c.v[i], d, 0.0f, 0.0f, d, 3,
                                out + 3 * (i - begin));
            return;
        }
        constexpr int W = OIIO::Tex::BatchWidth;
        OIIO::TextureOptBatch opt;
        opt.swrap = opt.twrap = OIIO::Tex::Wrap::Clamp;
        opt.interpmode = filter == Filter::Closest ? OIIO::Tex::InterpMode::Closest
                                                   : OIIO::Tex::InterpMode::Bilinear;
        opt.mipmode =
            filter == Filter::Trilinear ? OIIO::Tex::MipMode::Trilinear : OIIO::Tex::MipMode::NoMIP;
        // The batch options leave blur and width unset: no blur, derivatives
        // as given, as the one-point options have them.
        std::fill(std::begin(opt.sblur), std::end(opt.sblur), 0.0f);
        std::fill(std::begin(opt.tblur), std::end(opt.tblur), 0.0f);
        std::fill(std::begin(opt.swidth), std::end(opt.swidth), 1.0f);
        std::fill(std::begin(opt.twidth), std::end(opt.twidth), 1.0f);
        alignas(64) float s[W], t[W], dd[W], zero[W], result[3 * W];
        std::fill(std::begin(dd), std::end(dd), d);
        std::fill(std::begin(zero), std::end(zero), 0.0f);
        for (size_t i = begin; i < end; i += W) {
            const int n = int(std::min<size_t>(W, end - i));
            for (int k = 0; k < n; ++k) {
                s[k] = c.u[i + k];
                t[k] = 1.0f - c.v[i + k];
            }
            system->texture(handle, thread, opt, OIIO::Tex::RunMask((1u << n) - 1), s, t, dd, zero,
                            zero, dd, 3, result);
            for (int k = 0; k < n; ++k)
                for (int ch = 0; ch < 3; ++ch)
                    out[3 * (i - begin + k) + ch] = result[ch * W + k];
        }
    }
};

struct Row {
    std::string name;
    std::function<void(Filter, const Coords&, size_t, size_t, float*, unsigned)> run;
    size_t points; // fewer for the slowest ways; figures are per lookup
};

double medianOf(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

double processSeconds() {
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return double(t.tv_sec) + 1e-9 * double(t.tv_nsec);
}

struct PassTime {
    double wall; // ns a lookup, wall time over all threads' lookups
    double cpu;  // ns a lookup of processor time
};

// One pass of a way on `threads` threads.
PassTime timePass(const Row& row, Filter filter, const Coords& c, unsigned threads) {
    const size_t n = std::min(row.points, c.u.size());
    std::vector<std::vector<float>> out(threads, std::vector<float>(3 * n));
    const auto start = std::chrono::steady_clock::now();
    const double cpuStart = processSeconds();
    std::vector<std::thread> helpers;
    for (unsigned t = 1; t < threads; ++t)
        helpers.emplace_back([&, t] { row.run(filter, c, 0, n, out[t].data(), t); });
    row.run(filter, c, 0, n, out[0].data(), 0);
    for (std::thread& h : helpers)
        h.join();
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    const double lookups = double(n * threads);
    return {seconds * 1e9 / lookups, (processSeconds() - cpuStart) * 1e9 / lookups};
}

} // namespace

int main(int argc, char** argv) {
    // `--image PATH` writes the picture, for timing the texture makers on it.
    if (argc == 3 && std::string(argv[1]) == "--image") {
        std::vector<uint8_t> pixels(size_t(kSide) * kSide * 3);
        for (unsigned y = 0; y < kSide; ++y)
            for (unsigned x = 0; x < kSide; ++x)
                for (unsigned c = 0; c < 3; ++c)
                    pixels[(size_t(y) * kSide + x) * 3 + c] = texel(x, y, c);
        OIIO::ImageBuf image(OIIO::ImageSpec(kSide, kSide, 3, OIIO::TypeDesc::UINT8),
                             pixels.data());
        return image.write(argv[2]) ? 0 : 2;
    }
    const int passes = argc > 1 ? std::max(1, std::atoi(argv[1])) : 7;
    namespace fs = std::filesystem;
    const BenchFolder folder;

    // The texture, both ways.
    std::vector<uint8_t> pixels = texturePixels();
    TpixelMap map = textureMap();
    const std::string tx = folder.file("texture.tx");
    {
        OIIO::ImageBuf buffer(OIIO::ImageSpec(kSide, kSide, 3, OIIO::TypeDesc::UINT8),
                              pixels.data());
        OIIO::ImageSpec config;
        if (!OIIO::ImageBufAlgo::make_texture(OIIO::ImageBufAlgo::MakeTxTexture, buffer, tx,
                                              config)) {
            fmt::print(stderr, "make_texture: {}\n", OIIO::geterror());
            return 2;
        }
    }
    TpyramidNonSwatch memory;
    if (!memory.buildPyramidFromPixelMap(map))
        return 2;
    map = TpixelMap();
    const std::string botPath = folder.file("texture.bot");
    if (!memory.writeBOT(botPath, true))
        return 2;
    std::unique_ptr<Tpyramid> bot(Tpyramid::openBOT(botPath, false, botPath));
    if (!bot)
        return 2;
    Tpyramid::setThreadCount(8);
    bot->resetCacheFlags();

    OIIO::TextureSystem* system = OIIO::TextureSystem::create(true);
    system->attribute("max_memory_MB", 1024.0f);
    const OIIO::ustring file(tx);
    // Enough slots for every block: 64 MiB of blocks of 4 KiB.
    Caches allCaches{32768, {}};
    Caches smallCaches{TfileTextureCache::kDefaultCapacity, {}};

    std::vector<Row> rows = {
        {"OIIO TextureSystem, one point",
         [&](Filter f, const Coords& c, size_t b, size_t e, float* o, unsigned t) {
             Theirs{system, file, false}(f, c, b, e, o, t);
         },
         kPoints},
        {"OIIO TextureSystem, batches of 16",
         [&](Filter f, const Coords& c, size_t b, size_t e, float* o, unsigned t) {
             Theirs{system, file, true}(f, c, b, e, o, t);
         },
         kPoints},
        {"ours, memory pyramid",
         [&](Filter f, const Coords& c, size_t b, size_t e, float* o, unsigned t) {
             Ours{&memory}(f, c, b, e, o, t);
         },
         kPoints},
        {"ours, BOT, cache of all blocks",
         [&](Filter f, const Coords& c, size_t b, size_t e, float* o, unsigned t) {
             Ours{bot.get(), &allCaches}(f, c, b, e, o, t);
         },
         kPoints},
        {"ours, BOT, 32 slots (128 KiB)",
         [&](Filter f, const Coords& c, size_t b, size_t e, float* o, unsigned t) {
             Ours{bot.get(), &smallCaches}(f, c, b, e, o, t);
         },
         kPoints},
    };

    fmt::print("texture {} x {} RGB 8-bit; {} points a set; {} passes; {} hardware threads\n",
               kSide, kSide, kPoints, passes, std::thread::hardware_concurrency());
    const Coords sets[2] = {randomCoords(), coherentCoords()};
    const char* setNames[2] = {"random", "coherent"};
    int failures = 0;
    // `bench_texture_lookup PASSES [SET [FILTER]]` runs one set or one cell.
    const std::string onlySet = argc > 2 ? argv[2] : "";
    const std::string onlyFilter = argc > 3 ? argv[3] : "";
    for (int s = 0; s < 2; ++s)
        for (Filter filter : {Filter::Closest, Filter::Bilinear, Filter::Trilinear}) {
            if ((!onlySet.empty() && onlySet != setNames[s]) ||
                (!onlyFilter.empty() && onlyFilter != filterName(filter)))
                continue;
            const Coords& c = sets[s];
            // Agreement, against OpenImageIO one point at a time.
            std::vector<float> reference(3 * kCheckPoints), got(3 * kCheckPoints);
            rows[0].run(filter, c, 0, kCheckPoints, reference.data(), 0);
            std::vector<double> worst(rows.size(), 0.0);
            for (size_t r = 1; r < rows.size(); ++r) {
                rows[r].run(filter, c, 0, kCheckPoints, got.data(), 0);
                for (size_t i = 0; i < got.size(); ++i)
                    worst[r] = std::max(worst[r], double(std::fabs(got[i] - reference[i])));
                if (filter != Filter::Trilinear && worst[r] > 1.0 / 255.0 + 1e-6) {
                    fmt::print(stderr, "{} {} {}: differs from OIIO by {}\n", setNames[s],
                               filterName(filter), rows[r].name, worst[r]);
                    ++failures;
                }
            }
            if (filter == Filter::Trilinear) {
                // A footprint of 1/1024 is 4 texels of the top level: both
                // read level 10 (1024 texels across) alone, bilinear, and
                // must agree within 1/255 there too.
                constexpr float kOneLevel = 1.0f / 1024.0f;
                Theirs{system, file, false, kOneLevel}(filter, c, 0, kCheckPoints, reference.data(),
                                                       0);
                Ours{&memory, nullptr, kOneLevel}(filter, c, 0, kCheckPoints, got.data(), 0);
                double oneLevel = 0.0;
                for (size_t i = 0; i < got.size(); ++i)
                    oneLevel = std::max(oneLevel, double(std::fabs(got[i] - reference[i])));
                fmt::print("{} trilinear on one level (footprint 1/1024): ours differs from "
                           "OIIO by {:.2g}\n",
                           setNames[s], oneLevel);
                if (oneLevel > 1.0 / 255.0 + 1e-6) {
                    fmt::print(stderr, "{} trilinear on one level: differs from OIIO by {}\n",
                               setNames[s], oneLevel);
                    ++failures;
                }
            }
            // The slow way reads fewer points on the random set.
            rows[4].points = s == 0 ? kPoints / 64 : kPoints;
            for (unsigned threads : {1u, 2u}) {
                std::vector<std::vector<double>> wall(rows.size()), cpu(rows.size());
                for (const Row& row : rows) // warm up: the caches fill
                    timePass(row, filter, c, threads);
                for (int p = 0; p < passes; ++p)
                    for (size_t r = 0; r < rows.size(); ++r) {
                        const PassTime t = timePass(rows[r], filter, c, threads);
                        wall[r].push_back(t.wall);
                        cpu[r].push_back(t.cpu);
                    }
                const double oiioWall = std::min(medianOf(wall[0]), medianOf(wall[1]));
                const double oiioCpu = std::min(medianOf(cpu[0]), medianOf(cpu[1]));
                fmt::print("\n{} {}, {} thread{}\n", setNames[s], filterName(filter), threads,
                           threads == 1 ? "" : "s");
                fmt::print("  {:<34} {:>10} {:>8} {:>10} {:>8}  {}\n", "", "wall ns", "x OIIO",
                           "CPU ns", "x OIIO", "max diff");
                for (size_t r = 0; r < rows.size(); ++r) {
                    const double w = medianOf(wall[r]), p = medianOf(cpu[r]);
                    fmt::print("  {:<34} {:>10.1f} {:>8.2f} {:>10.1f} {:>8.2f}  {:.2g}\n",
                               rows[r].name, w, oiioWall / w, p, oiioCpu / p, worst[r]);
                }
            }
        }
    OIIO::TextureSystem::destroy(system);
    return failures ? 1 : 0;
}
