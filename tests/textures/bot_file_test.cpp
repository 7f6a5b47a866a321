// BOT files: the layout written, a file read back equal to the pyramid it
// came from, damaged and foreign files, the disk limit, many threads
// reading one file.

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <memory>
#include <random>
#include <thread>

#include "textures/bot_file_info.h"
#include "textures/file_texture_cache.h"
#include "textures/pyramid.h"
#include "textures/pyramid_test_support.h"

namespace {

using namespace orvo_test;

std::vector<uint8_t> readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void writeFile(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
}

uint32_t entry(const std::vector<uint8_t>& file, size_t i) {
    uint32_t v;
    std::memcpy(&v, file.data() + 14 + 4 * i, 4);
    return v;
}

std::unique_ptr<Tpyramid> open(const std::string& path, std::string* why = nullptr) {
    return std::unique_ptr<Tpyramid>(Tpyramid::openBOT(path, false, path, why));
}

TEST(BotFile, HeaderAndOffsetTableOf33By33) {
    // 33 x 33 grey: maxLevel 6; blocks: levels 0..5 one each, level 6
    // (the top) ceil(33/32)^2 = 4: N = 6 + 4 = 10, a table of 11 entries.
    TempFolder dir;
    TpyramidNonSwatch p;
    ASSERT_TRUE(p.buildPyramidFromPixelMap(
        greyMap(33, 33, [](unsigned x, unsigned y) { return uint8_t(x * 7 + y); })));
    const std::string path = dir.file("a.bot");
    ASSERT_TRUE(p.writeBOT(path, false));
    const std::vector<uint8_t> file = readFile(path);
    const uint8_t head[14] = {0x55, 0x54, 33, 0, 33, 0, 6, 1, 0x55, 0x54, 1, 0, 0x55, 0x54};
    ASSERT_GE(file.size(), 14u + 44u);
    EXPECT_EQ(std::memcmp(file.data(), head, 14), 0);
    EXPECT_EQ(entry(file, 0), 14u + 4u * 11u);
    for (size_t i = 0; i < 10; ++i)
        EXPECT_LT(entry(file, i), entry(file, i + 1));
    EXPECT_EQ(entry(file, 10), file.size());
    // Writing again without overwrite fails and leaves the file as it was.
    ReportCapture reports;
    EXPECT_FALSE(p.writeBOT(path, false));
    EXPECT_NE(reports.text().find("Warning: Can't open cache file for texture"), std::string::npos);
    EXPECT_EQ(readFile(path), file);

    // The top level's four blocks: 32 x 32, 1 x 32, 32 x 1, 1 x 1. Decoded
    // alone, block 7 (second of the top's first row: file rows 0..31 from
    // the image's top, column 32) holds x = 32, y = 32 - r for row r.
    auto pyramid = open(path);
    ASSERT_TRUE(pyramid);
    EXPECT_TRUE(pyramid->isBOT());
    EXPECT_EQ(pyramid->levels(6), 14u + 4u * 6u);
    EXPECT_EQ(pyramid->levels(5), 14u + 4u * 5u);
    EXPECT_EQ(pyramid->blocksPerRow(6), 2u);
    for (unsigned y : {32u, 31u, 1u, 0u})
        EXPECT_EQ(pyramid->texelData(6, 32, y)[0], uint8_t(32 * 7 + y)) << y;
}

TEST(BotFile, ReadsBackEqualToTheMemoryPyramid) {
    TempFolder dir;
    const struct {
        unsigned w, h, channels;
    } shapes[] = {{1, 1, 1}, {33, 33, 3}, {100, 60, 4}, {300, 5, 1}, {64, 64, 3}, {70, 129, 4}};
    for (const auto& s : shapes) {
        SCOPED_TRACE(testing::Message() << s.w << "x" << s.h << "x" << s.channels);
        TpyramidNonSwatch memory;
        ASSERT_TRUE(memory.buildPyramidFromPixelMap(
            s.channels == 1
                ? greyMap(s.w, s.h, [](unsigned x, unsigned y) { return noiseByte(x, y, 0); })
                : colourMap(s.w, s.h, s.channels, [](unsigned x, unsigned y, unsigned c) {
                      return noiseByte(x, y, c);
                  })));
        const std::string path = dir.file("t.bot");
        ASSERT_TRUE(memory.writeBOT(path, true));
        auto bot = open(path);
        ASSERT_TRUE(bot);
        EXPECT_EQ(bot->maxLevel(), memory.maxLevel());
        EXPECT_EQ(bot->pixelSize(), memory.pixelSize());
        EXPECT_EQ(bot->aspect(), memory.aspect());
        for (unsigned l = 0; l <= memory.maxLevel(); ++l)
            for (unsigned y = 0; y < memory.levelHeight(l); ++y)
                for (unsigned x = 0; x < memory.levelWidth(l); ++x) {
                    const uint8_t* a = memory.texelData(l, x, y);
                    const uint8_t* b = bot->texelData(l, x, y);
                    ASSERT_EQ(std::memcmp(a, b, memory.pixelSize()), 0)
                        << "level " << l << " at " << x << "," << y;
                }
        std::mt19937 random(3);
        std::uniform_real_distribution<float> unit(0.0f, 1.0f);
        for (int i = 0; i < 500; ++i) {
            const float u = unit(random), v = unit(random), f = unit(random) * 0.2f;
            TfileTextureWrapper w{i % 2 == 0, i % 3 == 0, i % 7 == 0};
            T3Float a, b;
            float aa = 0, ba = 0;
            memory.getMapColor(w, u, v, a, aa, false, f);
            bot->getMapColor(w, u, v, b, ba, false, f);
            ASSERT_EQ(a.x, b.x);
            ASSERT_EQ(a.y, b.y);
            ASSERT_EQ(a.z, b.z);
            ASSERT_EQ(aa, ba);
        }
        TbotFileInfo info;
        std::string why;
        EXPECT_TRUE(info.readFile(path, why)) << why;
        bot.reset();
    }
}

// A batch reads a BOT through whatever cache the thread has: one slot (a
// bilinear fetch across blocks evicts its own texels), the bit words of a
// small cache, the hash lists of a large one (which also reads ahead), and
// one mapped on huge pages. Every way must give the memory pyramid's values
// exactly, at wrapped and clamped edges too.
TEST(BotFile, BatchesUnderEveryCacheEqualTheMemoryPyramid) {
    TempFolder dir;
    TpyramidNonSwatch memory;
    ASSERT_TRUE(memory.buildPyramidFromPixelMap(colourMap(
        100, 70, 4, [](unsigned x, unsigned y, unsigned c) { return noiseByte(x, y, c); })));
    const std::string path = dir.file("b.bot");
    ASSERT_TRUE(memory.writeBOT(path, true));
    auto bot = open(path);
    ASSERT_TRUE(bot);

    constexpr unsigned kN = 64;
    std::mt19937 random(11);
    std::uniform_real_distribution<float> unit(-0.25f, 1.25f);
    float u[kN], v[kN], filter[kN];
    for (unsigned slots : {1u, 32u, 64u, 1024u}) {
        SCOPED_TRACE(testing::Message() << slots << " slots");
        auto saved =
            TfileTextureCache::exchangeForThisThread(std::make_unique<TfileTextureCache>(slots));
        for (int round = 0; round < 40; ++round) {
            for (unsigned i = 0; i < kN; ++i) {
                u[i] = unit(random);
                v[i] = unit(random);
                filter[i] = std::abs(unit(random)) * 0.3f;
            }
            const TfileTextureWrapper wrapper{round % 2 == 0, round % 3 == 0, round % 5 == 0};
            T3Float a[kN], b[kN];
            float aa[kN] = {}, ba[kN] = {};
            memory.getMapColors(wrapper, kN, u, v, filter, 1, false, a, aa);
            bot->getMapColors(wrapper, kN, u, v, filter, 1, false, b, ba);
            for (unsigned i = 0; i < kN; ++i) {
                ASSERT_EQ(a[i].x, b[i].x) << "round " << round << " sample " << i;
                ASSERT_EQ(a[i].z, b[i].z);
                ASSERT_EQ(aa[i], ba[i]);
            }
            const unsigned level = unsigned(round) % (memory.maxLevel() + 1);
            memory.levelCols(wrapper, level, kN, u, v, a, aa, round % 4 == 0);
            bot->levelCols(wrapper, level, kN, u, v, b, ba, round % 4 == 0);
            for (unsigned i = 0; i < kN; ++i) {
                ASSERT_EQ(a[i].y, b[i].y) << "level " << level << " sample " << i;
                ASSERT_EQ(aa[i], ba[i]);
            }
        }
        TfileTextureCache::exchangeForThisThread(std::move(saved));
    }
}

TEST(BotFile, RemapMovesThePyramidToATemporaryFile) {
    auto p = std::make_unique<TpyramidNonSwatch>();
    p->setFileName("/textures/wood.v2.png");
    ASSERT_TRUE(p->buildPyramidFromPixelMap(colourMap(
        40, 40, 3, [](unsigned x, unsigned y, unsigned c) { return noiseByte(x, y, c); })));
    T3Float before, after;
    float a = 0;
    TfileTextureWrapper w;
    p->getMapColor(w, 0.3f, 0.8f, before, a, false, 0.05f);
    // The temp folder, the name with '.' and '/' made '_', the process, the
    // pyramid's address.
    const std::string name = p->getCachePyrFileName();
    EXPECT_NE(name.find("/_textures_wood_v2_png_" + std::to_string(::getpid()) + "_0x"),
              std::string::npos)
        << name;
    ReportCapture reports;
    ASSERT_TRUE(p->remapPyramidToBlocks(nullptr, false));
    EXPECT_EQ(reports.text(), "producing BOT file for /textures/wood.v2.png\n");
    EXPECT_TRUE(p->isBOT());
    EXPECT_EQ(p->storeBytes(), 0u);
    EXPECT_EQ(p->botFileName(), name);
    EXPECT_GE(p->botFile(), 0);
    p->getMapColor(w, 0.3f, 0.8f, after, a, false, 0.05f);
    EXPECT_EQ(before.x, after.x);
    EXPECT_EQ(before.z, after.z);
    EXPECT_TRUE(std::filesystem::exists(name));
    p.reset();
    EXPECT_FALSE(std::filesystem::exists(name)); // the temporary goes with its pyramid
}

TEST(BotFile, ForeignTruncatedAndMixedMarkerFilesAreRefused) {
    TempFolder dir;
    TpyramidNonSwatch p;
    ASSERT_TRUE(p.buildPyramidFromPixelMap(colourMap(
        50, 40, 3, [](unsigned x, unsigned y, unsigned c) { return noiseByte(x, y, c); })));
    const std::string good = dir.file("good.bot");
    ASSERT_TRUE(p.writeBOT(good, false));
    const std::vector<uint8_t> file = readFile(good);
    std::string why;

    // Markers all 21845 are accepted; 21589 and 21845 mixed are not.
    std::vector<uint8_t> alt = file;
    for (size_t at : {0, 8, 12}) {
        alt[at] = 0x55;
        alt[at + 1] = 0x55;
    }
    writeFile(dir.file("alt.bot"), alt);
    EXPECT_TRUE(Tpyramid::IsItABOTFile(dir.file("alt.bot"), nullptr, nullptr));
    std::vector<uint8_t> mixed = file;
    mixed[8] = mixed[9] = 0x55;
    writeFile(dir.file("mixed.bot"), mixed);
    EXPECT_FALSE(Tpyramid::IsItABOTFile(dir.file("mixed.bot"), nullptr, nullptr));
    EXPECT_FALSE(open(dir.file("mixed.bot"), &why));
    EXPECT_EQ(why, "not a block ordered texture file");

    // Only a full 14-byte header counts.
    writeFile(dir.file("short.bot"), std::vector<uint8_t>(file.begin(), file.begin() + 13));
    EXPECT_FALSE(Tpyramid::IsItABOTFile(dir.file("short.bot"), nullptr, nullptr));
    // Cut inside the table, and inside the blocks.
    writeFile(dir.file("cut1.bot"), std::vector<uint8_t>(file.begin(), file.begin() + 30));
    EXPECT_FALSE(open(dir.file("cut1.bot"), &why));
    EXPECT_NE(why.find("offset table"), std::string::npos) << why;
    writeFile(dir.file("cut2.bot"), std::vector<uint8_t>(file.begin(), file.end() - 10));
    EXPECT_FALSE(open(dir.file("cut2.bot"), &why));
    EXPECT_NE(why.find("cut short"), std::string::npos) << why;
    // A header whose size and top level disagree, or with 2 channels.
    std::vector<uint8_t> bad = file;
    bad[6] = 9;
    writeFile(dir.file("bad.bot"), bad);
    EXPECT_FALSE(open(dir.file("bad.bot"), &why));
    bad = file;
    bad[7] = 2;
    writeFile(dir.file("bad.bot"), bad);
    EXPECT_FALSE(open(dir.file("bad.bot"), &why));
    // A PNG, an empty file, no file.
    writeFile(dir.file("x.png"), {0x89, 'P', 'N', 'G', 13, 10, 26, 10, 0, 0, 0, 0, 0, 0, 0});
    EXPECT_FALSE(open(dir.file("x.png")));
    writeFile(dir.file("empty.bot"), {});
    EXPECT_FALSE(open(dir.file("empty.bot")));
    EXPECT_FALSE(open(dir.file("none.bot"), &why));
    EXPECT_EQ(why, "No such file or directory");
}

TEST(BotFile, DamagedBlocksAreReportedAndTheSlotKeepsItsPixels) {
    TempFolder dir;
    TpyramidNonSwatch p;
    // 64 x 64 grey of 200: level 6 has 4 blocks (entries 6..9).
    ASSERT_TRUE(
        p.buildPyramidFromPixelMap(greyMap(64, 64, [](unsigned, unsigned) { return 200; })));
    const std::string path = dir.file("d.bot");
    ASSERT_TRUE(p.writeBOT(path, false));
    std::vector<uint8_t> file = readFile(path);
    // Block 6, the top's top-left (x 0..31, y 32..63): its end pushed to
    // start + 8189, which makes a length + 4 of 8193.
    const uint32_t start = entry(file, 6), end = start + 8189;
    std::memcpy(file.data() + 14 + 4 * 7, &end, 4);
    file.resize(end + 100);
    writeFile(path, file);
    auto bot = open(path);
    ASSERT_TRUE(bot);
    TfileTextureCache cache(4);
    ReportCapture reports;
    // A fresh cache's slots are zero: the damaged block reads 0.
    EXPECT_EQ(cache.fetch(*bot, 6, 0, 63)[0], 0);
    EXPECT_EQ(reports.text(), "Error: Corrupted data found in block ordered texture file " + path +
                                  ": block 0 of level 6 would be 8189 bytes long\n");
    // Block 8 (x 0..31, y 0..31) is sound: 200.
    EXPECT_EQ(cache.fetch(*bot, 6, 0, 0)[0], 200);

    // A block that does not decode.
    file = readFile(path);
    // Block 8 cut to one byte: too little for 1,024 samples.
    const uint32_t cut = entry(file, 8) + 1;
    std::memcpy(file.data() + 14 + 4 * 9, &cut, 4);
    writeFile(path, file);
    reports.clear();
    cache.clear();
    cache.fetch(*bot, 6, 0, 0);
    EXPECT_NE(reports.text().find("Error: Decode error in block ordered texture file " + path),
              std::string::npos)
        << reports.text();
    // The offset table cut away under a pyramid already open: a read error,
    // "/n" and all.
    std::filesystem::resize_file(path, 20);
    reports.clear();
    cache.clear();
    cache.fetch(*bot, 6, 0, 0);
    EXPECT_NE(reports.text().find("/n"), std::string::npos) << reports.text();
}

TEST(BotFile, DiskLimit) {
    TempFolder dir;
    TpyramidNonSwatch p;
    ASSERT_TRUE(p.buildPyramidFromPixelMap(greyMap(8, 8, [](unsigned x, unsigned) { return x; })));
    TfileTextureCache& cache = TfileTextureCache::forThisThread();
    EXPECT_EQ(cache.limitMB(), -50);
    const int saved = cache.limitMB();
    // A total of 0 MB: every write of more than 0 bytes fails, and the
    // pyramid stays in memory.
    cache.setLimitMB(0);
    ReportCapture reports;
    const std::string path = dir.file("l.bot");
    EXPECT_FALSE(p.remapPyramidToBlocks(&path, false));
    EXPECT_EQ(reports.text(),
              "Warning: Not enough disk space or limit exceeded for caching texture " + path +
                  "\n");
    EXPECT_FALSE(p.isBOT());
    EXPECT_FALSE(std::filesystem::exists(path));
    // A reserve of 50 MB on the test's disk is met.
    cache.setLimitMB(saved);
    EXPECT_TRUE(p.remapPyramidToBlocks(&path, false));
    EXPECT_TRUE(p.isBOT());
    EXPECT_FALSE(p.remapPyramidToBlocks(&path, true)); // already a BOT
}

TEST(BotFile, ManyThreadsReadOneFile) {
    TempFolder dir;
    TpyramidNonSwatch memory;
    ASSERT_TRUE(memory.buildPyramidFromPixelMap(colourMap(
        200, 150, 4, [](unsigned x, unsigned y, unsigned c) { return noiseByte(x, y, c, 4); })));
    const std::string path = dir.file("mt.bot");
    ASSERT_TRUE(memory.writeBOT(path, false));
    Tpyramid::setThreadCount(4);
    auto bot = open(path);
    ASSERT_TRUE(bot);
    std::atomic<int> mismatches{0};
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < 6; ++t)
        threads.emplace_back([&, t] {
            std::mt19937 random(t);
            std::uniform_real_distribution<float> unit(0.0f, 1.0f);
            TfileTextureWrapper w;
            for (int i = 0; i < 3000; ++i) {
                const float u = unit(random), v = unit(random), f = unit(random) * 0.1f;
                T3Float a, b;
                float aa = 0, ba = 0;
                memory.getMapColor(w, u, v, a, aa, false, f);
                bot->getMapColor(w, u, v, b, ba, false, f);
                if (a.x != b.x || a.y != b.y || a.z != b.z || aa != ba)
                    ++mismatches;
            }
            TfileTextureCache::freeForThisThread();
        });
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(mismatches, 0);
}

} // namespace
