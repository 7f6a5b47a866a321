#include "textures/bot_coding.h"

#include <array>
#include <bit>
#include <cstring>

namespace {

constexpr unsigned kSymbols = 256;
constexpr unsigned kMaxRun = 32;
constexpr unsigned kMaxSamples = 32 * 32 * 4;

constexpr std::array<uint8_t, 256> sizeTable() {
    std::array<uint8_t, 256> table{};
    for (unsigned b = 0; b < 256; ++b) {
        const int d = b > 128 ? int(b) - 256 : int(b);
        if (d == 0 || d == 128)
            continue;
        unsigned magnitude = unsigned(d < 0 ? -d : d);
        uint8_t bits = 0;
        while (magnitude) {
            ++bits;
            magnitude >>= 1;
        }
        table[b] = bits;
    }
    return table;
}
constexpr std::array<uint8_t, 256> kSizeTable = sizeTable();

// ---- bits out

class BitWriter {
public:
    BitWriter(uint8_t* out, size_t capacity) : fOut(out), fCapacity(capacity) {}

    // The low `count` bits of `bits`, lowest first; count up to 32.
    void put(uint32_t bits, unsigned count) {
        fAccumulator |= uint64_t(bits & ((uint64_t(1) << count) - 1)) << fFill;
        fFill += count;
        if (fFill >= 32)
            flush(32);
    }
    // Ends on a byte boundary; the coded length, or 0 when it overflowed.
    size_t finish() {
        flush(0);
        if (fFill > 0)
            flushByte();
        return fOverflow ? 0 : fSize;
    }

private:
    // With 32 bits waiting, writes them as four bytes at once where they
    // fit; otherwise byte by byte down to fewer than 8 bits.
    void flush(unsigned atLeast) {
        if (atLeast == 32 && std::endian::native == std::endian::little && fSize + 4 <= fCapacity) {
            const uint32_t word = uint32_t(fAccumulator);
            std::memcpy(fOut + fSize, &word, 4);
            fSize += 4;
            fAccumulator >>= 32;
            fFill -= 32;
            return;
        }
        while (fFill >= 8)
            flushByte();
    }
    void flushByte() {
        if (fSize == fCapacity) {
            fOverflow = true;
        } else {
            fOut[fSize++] = uint8_t(fAccumulator);
        }
        fAccumulator >>= 8;
        fFill = fFill >= 8 ? fFill - 8 : 0;
    }

    uint8_t* fOut;
    size_t fCapacity;
    size_t fSize = 0;
    uint64_t fAccumulator = 0;
    unsigned fFill = 0;
    bool fOverflow = false;
};

// ---- the Huffman tree

struct Node {
    uint32_t weight;
    int16_t left;  // child nodes, or -1 for a leaf
    int16_t right; //
    uint16_t symbol;
};

struct Tree {
    std::array<Node, 2 * kSymbols> nodes;
    unsigned count = 0;
    int root = -1;
};

// A small binary min-heap of node indices by weight.
class NodeHeap {
public:
    explicit NodeHeap(const Tree& tree) : fTree(tree) {}
    unsigned size() const { return fSize; }
    void push(int node) {
        unsigned i = fSize++;
        fHeap[i] = node;
        while (i > 0) {
            const unsigned parent = (i - 1) / 2;
            if (weight(fHeap[parent]) <= weight(fHeap[i]))
                break;
            std::swap(fHeap[parent], fHeap[i]);
            i = parent;
        }
    }
    int pop() {
        const int top = fHeap[0];
        fHeap[0] = fHeap[--fSize];
        heapUpdate(0);
        return top;
    }

private:
    uint32_t weight(int node) const { return fTree.nodes[size_t(node)].weight; }
    void heapUpdate(unsigned i) {
        for (;;) {
            const unsigned l = 2 * i + 1, r = l + 1;
            unsigned least = i;
            if (l < fSize && weight(fHeap[l]) < weight(fHeap[least]))
                least = l;
            if (r < fSize && weight(fHeap[r]) < weight(fHeap[least]))
                least = r;
            if (least == i)
                return;
            std::swap(fHeap[least], fHeap[i]);
            i = least;
        }
    }

    const Tree& fTree;
    std::array<int, kSymbols> fHeap{};
    unsigned fSize = 0;
};

// Builds the tree of the symbols with nonzero counts; at least two of them.
void buildTree(const uint32_t* counts, Tree& tree) {
    NodeHeap heap(tree);
    tree.count = 0;
    for (unsigned s = 0; s < kSymbols; ++s) {
        if (counts[s] == 0)
            continue;
        tree.nodes[tree.count] = {counts[s], -1, -1, uint16_t(s)};
        heap.push(int(tree.count++));
    }
    while (heap.size() > 1) {
        const int a = heap.pop();
        const int b = heap.pop();
        tree.nodes[tree.count] = {tree.nodes[size_t(a)].weight + tree.nodes[size_t(b)].weight,
                                  int16_t(a), int16_t(b), 0};
        heap.push(int(tree.count++));
    }
    tree.root = heap.pop();
}

struct Code {
    uint32_t bits = 0; // first branch in bit 0
    uint8_t length = 0;
};

// Writes the tree in pre-order and gives each symbol its code.
void traverseTree(const Tree& tree, BitWriter& out, std::array<Code, kSymbols>& codes) {
    struct Pending {
        int node;
        uint32_t bits;
        uint8_t length;
    };
    std::array<Pending, 2 * kSymbols> stack;
    unsigned top = 0;
    stack[top++] = {tree.root, 0, 0};
    while (top > 0) {
        const Pending p = stack[--top];
        const Node& node = tree.nodes[size_t(p.node)];
        if (node.left < 0) {
            out.put(0, 1);
            out.put(node.symbol, 8);
            codes[node.symbol] = {p.bits, p.length};
            continue;
        }
        out.put(1, 1);
        // Right is pushed first so that the left subtree is written first.
        stack[top++] = {node.right, p.bits | (1u << p.length), uint8_t(p.length + 1)};
        stack[top++] = {node.left, p.bits, uint8_t(p.length + 1)};
    }
}

// ---- the scan

// Pixel index of each position of the serpentine scan.
unsigned serpentine(unsigned width, unsigned height, uint16_t* order) {
    unsigned n = 0;
    for (unsigned y = 0; y < height; ++y)
        for (unsigned i = 0; i < width; ++i)
            order[n++] = uint16_t(y * width + ((y & 1) ? width - 1 - i : i));
    return n;
}

struct Token {
    uint8_t symbol;
    uint8_t payloadBits;
    uint8_t payload;
};

// ---- bits in

class BitReader {
public:
    BitReader(const uint8_t* data, size_t length) : fData(data), fLength(length) {}

    // Tops the window up to at least 57 bits; past the end of the data it
    // fills with zeros, which overrun() tells.
    void refill() {
        if (fFill > 56)
            return;
        if (std::endian::native == std::endian::little && fPosition + 8 <= fLength) {
            // Eight bytes at once; the window keeps the whole ones.
            uint64_t word;
            std::memcpy(&word, fData + fPosition, 8);
            fWindow |= word << fFill;
            const unsigned bytes = (63 - fFill) >> 3;
            fPosition += bytes;
            fFill += bytes * 8;
            return;
        }
        while (fFill <= 56) {
            uint64_t byte = 0;
            if (fPosition < fLength)
                byte = fData[fPosition++];
            else
                ++fPadding;
            fWindow |= byte << fFill;
            fFill += 8;
        }
    }
    // The window: its lowest bit is the next one of the stream.
    uint64_t window() const { return fWindow; }
    // Takes `count` bits of the window, which holds them (after refill,
    // up to 57).
    uint32_t take(unsigned count) {
        const uint32_t bits = uint32_t(fWindow & ((uint64_t(1) << count) - 1));
        fWindow >>= count;
        fFill -= count;
        return bits;
    }
    uint32_t get(unsigned count) {
        refill();
        return take(count);
    }
    // True once more bits were taken than the data holds.
    bool overrun() const { return taken() > fLength * 8; }
    // Bytes taken, the last one partly used.
    size_t consumed() const { return (taken() + 7) / 8; }

private:
    size_t taken() const { return (fPosition + fPadding) * 8 - fFill; }

    const uint8_t* fData;
    size_t fLength;
    size_t fPosition = 0;
    size_t fPadding = 0;
    uint64_t fWindow = 0;
    unsigned fFill = 0;
};

struct DecodeNode {
    int16_t child[2]; // -1 for a leaf
    uint8_t symbol;
};

} // namespace

const uint8_t TbotBlockCoder::fsSizeTable[256] = {
#define ORVO_SIZE_ROW(r)                                                                           \
    kSizeTable[r + 0], kSizeTable[r + 1], kSizeTable[r + 2], kSizeTable[r + 3], kSizeTable[r + 4], \
        kSizeTable[r + 5], kSizeTable[r + 6], kSizeTable[r + 7]
    ORVO_SIZE_ROW(0),   ORVO_SIZE_ROW(8),   ORVO_SIZE_ROW(16),  ORVO_SIZE_ROW(24),
    ORVO_SIZE_ROW(32),  ORVO_SIZE_ROW(40),  ORVO_SIZE_ROW(48),  ORVO_SIZE_ROW(56),
    ORVO_SIZE_ROW(64),  ORVO_SIZE_ROW(72),  ORVO_SIZE_ROW(80),  ORVO_SIZE_ROW(88),
    ORVO_SIZE_ROW(96),  ORVO_SIZE_ROW(104), ORVO_SIZE_ROW(112), ORVO_SIZE_ROW(120),
    ORVO_SIZE_ROW(128), ORVO_SIZE_ROW(136), ORVO_SIZE_ROW(144), ORVO_SIZE_ROW(152),
    ORVO_SIZE_ROW(160), ORVO_SIZE_ROW(168), ORVO_SIZE_ROW(176), ORVO_SIZE_ROW(184),
    ORVO_SIZE_ROW(192), ORVO_SIZE_ROW(200), ORVO_SIZE_ROW(208), ORVO_SIZE_ROW(216),
    ORVO_SIZE_ROW(224), ORVO_SIZE_ROW(232), ORVO_SIZE_ROW(240), ORVO_SIZE_ROW(248),
#undef ORVO_SIZE_ROW
};

size_t TbotBlockCoder::codeBlock(const uint8_t* pixels, unsigned width, unsigned height,
                                 unsigned pixelSize, uint8_t* out, size_t capacity) {
    if (width == 0 || height == 0 || width * height > 1024 || pixelSize == 0 || pixelSize > 4)
        return 0;
    std::array<uint16_t, 1024> order;
    const unsigned samples = serpentine(width, height, order.data());
    // Each channel's samples in scan order, one after the other.
    std::array<uint8_t, kMaxSamples> planes;
    for (unsigned i = 0; i < samples; ++i) {
        const uint8_t* p = pixels + order[i] * pixelSize;
        for (unsigned c = 0; c < pixelSize; ++c)
            planes[c * samples + i] = p[c];
    }

    // The runs of every channel, in order, and how often each symbol comes.
    std::array<Token, kMaxSamples> tokens;
    unsigned tokenCount = 0;
    std::array<uint32_t, kSymbols> counts{};
    for (unsigned c = 0; c < pixelSize; ++c) {
        const uint8_t* plane = planes.data() + c * samples;
        uint8_t previous = 0;
        unsigned i = 0;
        while (i < samples) {
            const uint8_t value = plane[i];
            unsigned run = 1;
            while (run < kMaxRun && i + run < samples && plane[i + run] == value)
                ++run;
            const uint8_t d = uint8_t(value - previous); // the difference as a byte
            const uint8_t s = kSizeTable[d];
            Token t{uint8_t((run - 1) * 8 + s), 1, 0};
            if (s == 0) {
                t.payload = d == 128 ? 1 : 0;
            } else if (d < 128) {
                // d > 0: its bits below the top one, with a 0 on top
                t.payloadBits = s;
                t.payload = uint8_t(d - (1u << (s - 1)));
            } else {
                // d < 0: |d|, whose top bit is 1
                t.payloadBits = s;
                t.payload = uint8_t(256 - d);
            }
            tokens[tokenCount++] = t;
            ++counts[t.symbol];
            i += run;
            previous = value;
        }
    }

    BitWriter bits(out, capacity);
    std::array<Code, kSymbols> codes{};
    unsigned distinct = 0;
    unsigned only = 0;
    for (unsigned s = 0; s < kSymbols; ++s)
        if (counts[s]) {
            ++distinct;
            only = s;
        }
    if (distinct == 1) {
        // Every symbol is this one, with a code of no bits.
        bits.put(0, 1);
        bits.put(only, 8);
    } else {
        Tree tree;
        buildTree(counts.data(), tree);
        bits.put(1, 1);
        traverseTree(tree, bits, codes);
    }
    for (unsigned k = 0; k < tokenCount; ++k) {
        const Token& t = tokens[k];
        const Code& code = codes[t.symbol];
        // The code and the payload after it, in one go when they fit.
        if (code.length + t.payloadBits <= 32) {
            bits.put(code.bits | (uint32_t(t.payload) << code.length), code.length + t.payloadBits);
        } else {
            bits.put(code.bits, code.length);
            bits.put(t.payload, t.payloadBits);
        }
    }
    return bits.finish();
}

long TbotBlockCoder::decodeBlock(const uint8_t* data, size_t length, unsigned width,
                                 unsigned height, unsigned pixelSize, uint8_t* pixels) {
    if (width == 0 || height == 0 || width * height > 1024 || pixelSize == 0 || pixelSize > 4)
        return -1;
    BitReader bits(data, length);

    // The tree, read in pre-order: 1 for an inner node, 0 and a symbol for a
    // leaf. One leaf alone stands for a code of no bits.
    std::array<DecodeNode, kMaxTreeNodes> nodes;
    unsigned nodeCount = 0;
    if (bits.get(1) == 0) {
        nodes[0] = {{-1, -1}, uint8_t(bits.get(8))};
        nodeCount = 1;
    } else {
        // Inner nodes whose children are still to come, and which child.
        std::array<int16_t, kMaxTreeNodes> open;
        unsigned openCount = 0;
        do {
            if (nodeCount == kMaxTreeNodes || bits.overrun())
                return -2;
            const unsigned index = nodeCount++;
            if (openCount > 0) {
                DecodeNode& parent = nodes[size_t(open[openCount - 1])];
                if (parent.child[0] < 0) {
                    parent.child[0] = int16_t(index);
                } else {
                    parent.child[1] = int16_t(index);
                    --openCount;
                }
            }
            if (bits.get(1)) {
                nodes[index] = {{-1, -1}, 0};
                open[openCount++] = int16_t(index);
            } else {
                nodes[index] = {{-1, -1}, uint8_t(bits.get(8))};
            }
        } while (openCount > 0);
    }

    // The direct table: the next 8 bits give a symbol and its code length,
    // or, for a longer code, the node reached after 8 branches.
    struct Entry {
        uint8_t length; // 0: continue from `node`
        uint8_t symbol;
        int16_t node;
    };
    std::array<Entry, 256> table{};
    {
        struct Walk {
            int16_t node;
            uint8_t depth;
            uint16_t bits;
        };
        std::array<Walk, kMaxTreeNodes> stack;
        unsigned top = 0;
        stack[top++] = {0, 0, 0};
        while (top > 0) {
            const Walk w = stack[--top];
            const DecodeNode& n = nodes[size_t(w.node)];
            const bool leaf = n.child[0] < 0;
            if (leaf || w.depth == 8) {
                const Entry e = leaf ? Entry{w.depth, n.symbol, -1} : Entry{0, 0, w.node};
                for (unsigned high = 0; high < (1u << (8 - w.depth)); ++high)
                    table[w.bits | (high << w.depth)] = e;
                continue;
            }
            stack[top++] = {n.child[0], uint8_t(w.depth + 1), w.bits};
            stack[top++] = {n.child[1], uint8_t(w.depth + 1), uint16_t(w.bits | (1u << w.depth))};
        }
    }

    std::array<uint16_t, 1024> order;
    const unsigned samples = serpentine(width, height, order.data());
    const bool single = nodes[0].child[0] < 0;
    for (unsigned c = 0; c < pixelSize; ++c) {
        uint8_t previous = 0;
        unsigned i = 0;
        while (i < samples) {
            // One symbol (a code of at most 8 bits through the table) and its
            // payload of at most 7 bits fit in a full window; longer codes
            // walk the tree a bit at a time.
            bits.refill();
            unsigned symbol;
            if (single) {
                symbol = nodes[0].symbol;
            } else {
                const Entry& e = table[bits.window() & 0xFF];
                if (e.length) {
                    bits.take(e.length);
                    symbol = e.symbol;
                } else {
                    bits.take(8);
                    int node = e.node;
                    while (nodes[size_t(node)].child[0] >= 0)
                        node = nodes[size_t(node)].child[bits.get(1)];
                    symbol = nodes[size_t(node)].symbol;
                    bits.refill();
                }
            }
            const unsigned run = (symbol >> 3) + 1;
            const unsigned s = symbol & 7;
            uint8_t delta;
            if (s == 0) {
                delta = bits.take(1) ? 128 : 0;
            } else {
                const unsigned payload = bits.take(s);
                delta = (payload >> (s - 1)) ? uint8_t(0u - payload)
                                             : uint8_t(payload + (1u << (s - 1)));
            }
            if (i + run > samples)
                return -3;
            const uint8_t value = uint8_t(previous + delta);
            for (unsigned k = 0; k < run; ++k)
                pixels[order[i + k] * pixelSize + c] = value;
            i += run;
            previous = value;
        }
        // Past the end the stream reads as zeros; a block that needed them
        // is cut short.
        if (bits.overrun())
            return -3;
    }
    return long(bits.consumed());
}
