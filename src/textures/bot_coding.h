#pragma once

// The coding of one block of a BOT file.
//
// A block is coded by itself, so that it can be decoded alone. The samples
// of each channel (R, G, B, A, one channel after the other) are walked in a
// serpentine scan (row 0 left to right, row 1 right to left, ...). Each run
// of 1 to 32 equal samples becomes a symbol, (run - 1) * 8 + s, where s is
// the size of the run value's difference d from the previous run's value
// (modulo 256, in -127 .. 128; the first run's previous value is 0), then a
// payload of s bits (one bit when s is 0, for d = 0 or d = 128). The symbols
// of all channels share one canonical Huffman code, written at the head of
// the block as its tree in pre-order.
//
// The output is a bit stream, least significant bit first in each byte.
// Numbers (symbols in the tree, payloads) go least significant bit first;
// a Huffman code goes from the root, its first branch first (left 0, right
// 1).
//
// How big a coded block can get: Huffman spends no more bits on a symbol,
// on average, than a fixed 8-bit code would, and a payload is at most 7
// bits, so 4,096 samples take at most 4,096 * 15 bits = 7,680 bytes; the
// tree of at most 252 symbols (4,096 samples cannot hold more runs of
// distinct kinds) takes 252 * 9 + 251 + 1 bits, 316 bytes. 7,996 bytes stay
// below the 8,192 of the writer's scratch. The coder checks its capacity all
// the same.

#include <cstddef>
#include <cstdint>

struct TbotBlockCoder {
    // The size s of a difference d, indexed by d as a byte: 0 for 0 and 128,
    // otherwise the bit length of |d|, 1 .. 7.
    static const uint8_t fsSizeTable[256];
    // Tree nodes a decoder keeps; a larger tree is a decode error.
    static constexpr unsigned kMaxTreeNodes = 509;

    // Codes a block of width by height pixels of pixelSize (1 .. 4)
    // interleaved bytes, rows in scan order. Returns the coded length, or 0
    // when it would not fit in `capacity` bytes.
    static size_t codeBlock(const uint8_t* pixels, unsigned width, unsigned height,
                            unsigned pixelSize, uint8_t* out, size_t capacity);

    // Decodes `length` bytes of a coded block into width by height pixels of
    // pixelSize interleaved bytes. Never reads outside [data, data + length)
    // and never writes outside the width * height * pixelSize bytes of
    // `pixels`. Returns the bytes the code took, or a negative number when
    // the data is not a valid block of that size.
    static long decodeBlock(const uint8_t* data, size_t length, unsigned width, unsigned height,
                            unsigned pixelSize, uint8_t* pixels);
};
