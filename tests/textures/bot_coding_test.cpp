// The coding of one BOT block: bit streams assembled by hand from the rules,
// and a decoder that never strays outside its data.

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "textures/bot_coding.h"

namespace {

// Assembles a bit stream, least significant bit first in each byte.
struct Bits {
    std::vector<uint8_t> bytes;
    unsigned count = 0;
    void bit(unsigned b) {
        if (count % 8 == 0)
            bytes.push_back(0);
        bytes.back() |= uint8_t((b & 1) << (count % 8));
        ++count;
    }
    // A number of n bits, lowest bit first.
    void number(unsigned value, unsigned n) {
        for (unsigned i = 0; i < n; ++i)
            bit(value >> i);
    }
};

std::vector<uint8_t> decode(const std::vector<uint8_t>& data, unsigned w, unsigned h,
                            unsigned channels, long* result = nullptr) {
    std::vector<uint8_t> pixels(size_t(w) * h * channels, 0xAB);
    const long r =
        TbotBlockCoder::decodeBlock(data.data(), data.size(), w, h, channels, pixels.data());
    if (result)
        *result = r;
    return pixels;
}

std::vector<uint8_t> code(const std::vector<uint8_t>& pixels, unsigned w, unsigned h,
                          unsigned channels) {
    std::vector<uint8_t> out(8192);
    out.resize(TbotBlockCoder::codeBlock(pixels.data(), w, h, channels, out.data(), out.size()));
    return out;
}

TEST(BotCoding, SizeTable) {
    // 0 and 128 have size 0; otherwise the bit length of |d|, d in -127..127.
    EXPECT_EQ(TbotBlockCoder::fsSizeTable[0], 0);
    EXPECT_EQ(TbotBlockCoder::fsSizeTable[128], 0);
    EXPECT_EQ(TbotBlockCoder::fsSizeTable[1], 1);
    EXPECT_EQ(TbotBlockCoder::fsSizeTable[255], 1); // -1
    EXPECT_EQ(TbotBlockCoder::fsSizeTable[5], 3);
    EXPECT_EQ(TbotBlockCoder::fsSizeTable[200], 6); // -56: 111000
    EXPECT_EQ(TbotBlockCoder::fsSizeTable[127], 7);
    EXPECT_EQ(TbotBlockCoder::fsSizeTable[129], 7); // -127
}

TEST(BotCoding, FlatBlocksHaveAOneSymbolTable) {
    // 32 x 32 of 0, one channel: 32 runs of 32, each symbol (32-1)*8 + 0 =
    // 248 with a code of no bits and a payload bit 0. Bits: 0, then 248 in 8
    // bits (00011111 lowest first), then 32 zeros: 41 bits, 6 bytes.
    //   byte 0: 0 | 0 0 0 1 1 1 1 = 0xF0; byte 1: 1, then zeros = 0x01.
    const std::vector<uint8_t> black(1024, 0);
    const std::vector<uint8_t> expected = {0xF0, 0x01, 0, 0, 0, 0};
    EXPECT_EQ(code(black, 32, 32, 1), expected);
    EXPECT_EQ(decode(expected, 32, 32, 1), black);
    // Three channels: 9 + 3 * 32 = 105 bits, 14 bytes.
    EXPECT_EQ(code(std::vector<uint8_t>(3072, 0), 32, 32, 3).size(), 14u);
}

TEST(BotCoding, HandAssembledSingleSymbolStream) {
    // A 2 x 1 block, one channel, values 3 then 1.
    // 3: d = 3, s = 2, symbol 2, payload 3 - 2 = 1 in 2 bits (top bit 0).
    // 1: d = -2, s = 2, symbol 2, payload |d| = 2 in 2 bits (top bit 1).
    // One symbol: bit 0, symbol 2 in 8 bits; then the payloads 01, 10
    // (lowest bit first: 1,0 and 0,1). 13 bits: 0x04, 0x12.
    Bits b;
    b.bit(0);
    b.number(2, 8);
    b.number(1, 2);
    b.number(2, 2);
    const std::vector<uint8_t> expected = {0x04, 0x12};
    EXPECT_EQ(b.bytes, expected);
    EXPECT_EQ(code({3, 1}, 2, 1, 1), expected);
    long used = 0;
    EXPECT_EQ(decode(expected, 2, 1, 1, &used), (std::vector<uint8_t>{3, 1}));
    EXPECT_EQ(used, 2);
}

TEST(BotCoding, TreeInPreOrderAndSerpentineScan) {
    // A 2 x 2 block read row 0 left to right, row 1 right to left. The scan
    // 0, 0, 0, 7 is pixels (0,0), (1,0), (1,1), (0,1): the 7 is row 1's
    // first pixel. Runs: three 0s (symbol 2*8 + 0 = 16, payload bit 0), then
    // 7 (d = 7, s = 3, symbol 3, payload 7 - 4 = 3 in 3 bits).
    // The tree: 1 (several symbols), 1 (inner), 0 + 16 (left, code 0),
    // 0 + 3 (right, code 1).
    Bits b;
    b.bit(1);
    b.bit(1);
    b.bit(0);
    b.number(16, 8);
    b.bit(0);
    b.number(3, 8);
    b.bit(0); // code of 16
    b.bit(0); // payload d = 0
    b.bit(1); // code of 3
    b.number(3, 3);
    EXPECT_EQ(decode(b.bytes, 2, 2, 1), (std::vector<uint8_t>{0, 0, 7, 0}));
    // The coder may order the tree either way; what it writes reads back.
    const std::vector<uint8_t> pixels = {0, 0, 7, 0};
    EXPECT_EQ(decode(code(pixels, 2, 2, 1), 2, 2, 1), pixels);
}

TEST(BotCoding, DeltaOf128IsOneBit) {
    // 200 then 72: d = 200 (-56 as a byte difference: s 6, payload 56 with
    // its top bit 1), then 72 - 200 = -128, coded as s = 0 and bit 1; 200 +
    // 128 = 72 in 8 bits. Single symbols 6 and 0 differ, so assemble with a
    // tree: left 6, right 0.
    Bits b;
    b.bit(1);
    b.bit(1);
    b.bit(0);
    b.number(6, 8);
    b.bit(0);
    b.number(0, 8);
    b.bit(0);
    b.number(56, 6);
    b.bit(1);
    b.bit(1);
    EXPECT_EQ(decode(b.bytes, 2, 1, 1), (std::vector<uint8_t>{200, 72}));
    EXPECT_EQ(decode(code({200, 72}, 2, 1, 1), 2, 1, 1), (std::vector<uint8_t>{200, 72}));
    // +128: 0 then 128.
    EXPECT_EQ(decode(code({0, 128, 0}, 3, 1, 1), 3, 1, 1), (std::vector<uint8_t>{0, 128, 0}));
}

TEST(BotCoding, RoundTripsEveryShapeAndChannelCount) {
    std::mt19937 random(5);
    for (unsigned channels : {1u, 3u, 4u})
        for (auto [w, h] :
             {std::pair{32u, 32u}, {1u, 1u}, {1u, 32u}, {32u, 1u}, {5u, 17u}, {8u, 8u}})
            for (int kind = 0; kind < 3; ++kind) {
                std::vector<uint8_t> pixels(size_t(w) * h * channels);
                for (size_t i = 0; i < pixels.size(); ++i)
                    pixels[i] = kind == 0   ? uint8_t(random())
                                : kind == 1 ? uint8_t(i / 37 * 3)
                                            : uint8_t((random() % 4) * 64);
                const std::vector<uint8_t> coded = code(pixels, w, h, channels);
                ASSERT_FALSE(coded.empty());
                // Random bytes are the worst case; the bound of 7,996 holds.
                EXPECT_LT(coded.size(), 7996u);
                long used = 0;
                EXPECT_EQ(decode(coded, w, h, channels, &used), pixels)
                    << channels << " " << w << "x" << h << " kind " << kind;
                EXPECT_EQ(size_t(used), coded.size());
            }
}

TEST(BotCoding, DamagedStreamsAreErrorsNotCrashes) {
    std::vector<uint8_t> pixels(4096);
    std::mt19937 random(9);
    for (uint8_t& p : pixels)
        p = uint8_t(random());
    const std::vector<uint8_t> coded = code(pixels, 32, 32, 4);
    long result = 0;
    // Cut short anywhere: an error, never a read past the end (ASan
    // watches: the data is copied to a buffer of exactly that size).
    for (size_t keep : {size_t(0), size_t(1), size_t(5), coded.size() / 2, coded.size() - 1}) {
        std::vector<uint8_t> cut(coded.begin(), coded.begin() + long(keep));
        cut.shrink_to_fit();
        decode(cut, 32, 32, 4, &result);
        EXPECT_LT(result, 0) << keep;
    }
    // Random garbage either decodes to something or is an error.
    for (int trial = 0; trial < 2000; ++trial) {
        std::vector<uint8_t> junk(1 + random() % 64);
        for (uint8_t& j : junk)
            j = uint8_t(random());
        decode(junk, 1 + random() % 32, 1 + random() % 32, 1 + random() % 4, &result);
    }
    // A tree deeper than 509 nodes: 255 inner nodes down the left, then
    // leaves, is 511 nodes.
    Bits deep;
    deep.bit(1);
    for (int i = 0; i < 255; ++i)
        deep.bit(1);
    for (int i = 0; i < 256; ++i) {
        deep.bit(0);
        deep.number(unsigned(i), 8);
    }
    decode(deep.bytes, 32, 32, 1, &result);
    EXPECT_LT(result, 0);
}

} // namespace
