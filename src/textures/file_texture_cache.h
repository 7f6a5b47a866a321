#pragma once

// TfileTextureCache: one thread's cache of decoded BOT blocks.
//
// Each slot holds one decoded block of 4,096 bytes (32 by 32 pixels of up to
// 4 bytes) in one pixel buffer aligned to 4,096 bytes, so a slot's pixels are
// found by a shift. The slots sit on a doubly linked LRU list. With at most
// 32 slots, a pyramid's cacheFlags word for this thread and a level has bit
// k set while slot k holds one of its blocks of that level, so a lookup tests
// the most recently used slot and then only the slots that bit word names.
// With more slots, hash lists stand in for the bit word.
//
// The cache belongs to its thread and takes no lock on a lookup. A miss
// reads the block from the file (opening it by name, so threads never share
// a file position) and decodes it into the least recently used slot. A
// block that cannot be read or decoded is reported; the slot keeps what it
// had and the render goes on.
//
// Slots know their pyramid by its serial number, which is never reused, so
// a pyramid freed while slots still hold its blocks is simply never matched
// again.
//
// What a lookup reads is kept small and apart from the rest: a 16-byte
// entry a slot (the block's key, its next slot on a hash list, the bytes in
// a row of the block) and the LRU links, 8 bytes a slot, so that a cache of
// many thousand slots keeps its bookkeeping in the processor's caches while
// the pixels stream through. A large pixel buffer is mapped on huge pages
// where the system allows it: the texels of a random lookup then cost no
// page walk.

#include <cstddef>
#include <cstdint>
#include <memory>

#include "textures/pyramid.h"

class TfileTextureCache {
public:
    static constexpr unsigned kDefaultCapacity = 32;
    static constexpr int kDefaultLimitMB = -50;
    static constexpr size_t kSlotBytes = 4096;
    static constexpr unsigned kSlotShift = 12;
    // Above this many slots the cache keeps hash lists instead of bit words.
    static constexpr unsigned kMaxFlaggedSlots = 32;

    // This thread's cache, made at first use with the default capacity.
    static TfileTextureCache& forThisThread();
    // This thread's cache if it has been made, else null.
    static TfileTextureCache* existingForThisThread();
    // Frees this thread's cache; the next use makes a new one.
    static void freeForThisThread();
    // Makes `cache` this thread's cache (none: the next use makes one) and
    // hands back the one it had, for a renderer that keeps caches with its
    // work rather than with its threads. A cache is used by one thread at a
    // time.
    static std::unique_ptr<TfileTextureCache>
    exchangeForThisThread(std::unique_ptr<TfileTextureCache> cache);
    // Slots of the caches made from now on (rounded down to a power of two,
    // at least 1).
    static void setDefaultCapacity(unsigned slots);
    static unsigned defaultCapacity();
    // The largest power-of-two slot count whose cache holds no more than
    // `bytes`; 0 when not even one slot fits.
    static unsigned capacityForBudget(size_t bytes);
    // What a cache of `slots` slots holds, in bytes, all told.
    static size_t bytesFor(unsigned slots);

    explicit TfileTextureCache(unsigned capacity = defaultCapacity());
    ~TfileTextureCache();
    TfileTextureCache(const TfileTextureCache&) = delete;
    TfileTextureCache& operator=(const TfileTextureCache&) = delete;

    // The pixel (x, y) of `level` of a BOT pyramid, y counted from the
    // bottom: its pixelSize bytes, valid until the next fetch.
    const uint8_t* fetch(const Tpyramid& pyramid, unsigned level, unsigned x, unsigned y);
    // The four texels of a bilinear fetch, (x0, y0), (x0, y1), (x1, y0) and
    // (x1, y1), with one lookup when they lie in one block; false, with
    // nothing looked up, when they do not. Each counts as a fetch.
    bool fetchQuad(const Tpyramid& pyramid, unsigned level, unsigned x0, unsigned x1, unsigned y0,
                   unsigned y1, const uint8_t* texels[4]);

    // Asks the processor for the rows y0 and y1 of block texel x of `level`
    // if the block is held, and for the memory that finds it: a hint, which
    // changes nothing a later fetch sees.
    void prefetch(const Tpyramid& pyramid, unsigned level, unsigned x, unsigned y0,
                  unsigned y1) const;

    // Drops every block.
    void clear();
    // Changes the slot count (rounded down to a power of two, at least 1);
    // drops every block.
    void setCapacity(unsigned slots);
    unsigned capacity() const { return fCapacity; }
    unsigned capacityLog2() const { return fCapacityLog2; }
    // Bytes the cache holds: the pixel buffer (one slot more than the
    // capacity, for the alignment), the slots, the hash lists.
    size_t bytesHeld() const { return bytesFor(fCapacity); }

    // The disk limit for BOT files written from this thread: negative, a
    // reserve of that many MB that must stay free on the disk; 0 or more, a
    // total in MB for all BOT files the process writes.
    int limitMB() const { return fLimitMB; }
    void setLimitMB(int limitMB) { fLimitMB = limitMB; }

    unsigned threadIndex() const { return fThreadIndex; }
    unsigned count() const { return fCount; }
    uint64_t hits() const { return fHits; }
    uint64_t misses() const { return fMisses; }
    void resetStatistics() { fHits = fMisses = 0; }

    // Pyramids reading BOT files are known here while they live, so that a
    // slot of a pyramid that is gone is never used to reach it.
    static void notePyramid(const Tpyramid& pyramid);
    static void forgetPyramid(const Tpyramid& pyramid);

private:
    // What a lookup reads of a slot.
    struct Entry {
        uint64_t key = 0; // keyOf(serial, level, block) of the block held; 0: empty
        int32_t hashNext = -1;
        uint32_t rowBytes = 0; // bytes in a row of the block
    };
    // The slot's place on the LRU list.
    struct Link {
        int32_t previous = -1; // towards the most recently used end
        int32_t next = -1;     // towards the least recently used end
    };
    // Pyramid serials below 2^38 (never reused; one a pyramid made), levels
    // below 16 and blocks below 2^22 (a level of at most 65,535 texels a
    // side) make one exact 64-bit key.
    static constexpr unsigned kLevelShift = 22;
    static constexpr unsigned kSerialShift = 26;
    static uint64_t keyOf(uint64_t serial, unsigned level, uint32_t block) {
        return (serial << kSerialShift) | (uint64_t(level) << kLevelShift) | block;
    }
    static uint64_t serialOf(uint64_t key) { return key >> kSerialShift; }
    static unsigned levelOf(uint64_t key) { return unsigned(key >> kLevelShift) & 15u; }

    // A buffer of pixels, from the heap or mapped on huge pages.
    struct PixelBuffer {
        uint8_t* data = nullptr; // aligned to kSlotBytes
        size_t mappedBytes = 0;  // 0: data is within heap
        std::unique_ptr<uint8_t[]> heap;
        void allocate(size_t bytes);
        void free();
        ~PixelBuffer() { free(); }
    };

    uint8_t* pixels(int slot) const { return fBuffer.data + (size_t(slot) << kSlotShift); }
    // The slot holding `block` of `level`, loading it on a miss.
    // The most recently used slot is tested inline; the rest is not.
    int slotFor(const Tpyramid& pyramid, unsigned level, uint32_t block, unsigned x);
    int slotForMiss(const Tpyramid& pyramid, unsigned level, uint32_t block, unsigned x);
    int find(const Tpyramid& pyramid, uint64_t key, unsigned level) const;
    int take(const Tpyramid& pyramid, unsigned level, uint32_t block, unsigned blockWidth);
    void release(int slot);
    void moveToHead(int slot);
    unsigned bucketOf(uint64_t key) const;
    void loadBlock(const Tpyramid& pyramid, unsigned level, uint32_t block, int slot);
    void allocateSlots(unsigned capacity);

    int fLimitMB = kDefaultLimitMB;
    unsigned fThreadIndex = 0;
    int fLruHead = -1;
    int fLruTail = -1;
    unsigned fCount = 0;
    std::unique_ptr<Entry[]> fEntries;
    std::unique_ptr<Link[]> fLinks;
    PixelBuffer fBuffer;
    unsigned fCapacity = 0;
    unsigned fCapacityLog2 = 0;
    std::unique_ptr<int32_t[]> fHashHeads;
    unsigned fHashMask = 0;
    // A coded block as read, and a decoded one before it replaces a slot's.
    std::unique_ptr<uint8_t[]> fCoded;
    std::unique_ptr<uint8_t[]> fDecoded;
    uint64_t fHits = 0;
    uint64_t fMisses = 0;
};

// ---- the lookups, inline: a texture batch makes one or more a sample

inline int TfileTextureCache::slotFor(const Tpyramid& pyramid, unsigned level, uint32_t block,
                                      unsigned x) {
    const int k = fLruHead;
    if (k >= 0 && fEntries[size_t(k)].key == keyOf(pyramid.fSerial, level, block))
        return k;
    return slotForMiss(pyramid, level, block, x);
}

inline const uint8_t* TfileTextureCache::fetch(const Tpyramid& pyramid, unsigned level, unsigned x,
                                               unsigned y) {
    // Rows of a BOT level run from the top.
    const unsigned row = pyramid.levelHeight(level) - 1 - y;
    const uint32_t block = pyramid.fBlocksPerRow[level] * (row >> Tpyramid::kBlockShift) +
                           (x >> Tpyramid::kBlockShift);
    ++fHits;
    const int k = slotFor(pyramid, level, block, x);
    constexpr unsigned kMask = Tpyramid::kBlockSide - 1;
    return pixels(k) + (row & kMask) * fEntries[size_t(k)].rowBytes +
           (x & kMask) * pyramid.fPixelSize;
}

inline bool TfileTextureCache::fetchQuad(const Tpyramid& pyramid, unsigned level, unsigned x0,
                                         unsigned x1, unsigned y0, unsigned y1,
                                         const uint8_t* texels[4]) {
    const unsigned top = pyramid.levelHeight(level) - 1;
    const unsigned row0 = top - y0, row1 = top - y1;
    if (((x0 ^ x1) | (row0 ^ row1)) >> Tpyramid::kBlockShift)
        return false;
    const uint32_t block = pyramid.fBlocksPerRow[level] * (row0 >> Tpyramid::kBlockShift) +
                           (x0 >> Tpyramid::kBlockShift);
    fHits += 4;
    const int k = slotFor(pyramid, level, block, x0);
    constexpr unsigned kMask = Tpyramid::kBlockSide - 1;
    const uint8_t* base = pixels(k);
    const size_t rowBytes = fEntries[size_t(k)].rowBytes;
    const size_t r0 = (row0 & kMask) * rowBytes, r1 = (row1 & kMask) * rowBytes;
    const size_t c0 = (x0 & kMask) * pyramid.fPixelSize, c1 = (x1 & kMask) * pyramid.fPixelSize;
    texels[0] = base + r0 + c0;
    texels[1] = base + r1 + c0;
    texels[2] = base + r0 + c1;
    texels[3] = base + r1 + c1;
    return true;
}

inline void TfileTextureCache::prefetch(const Tpyramid& pyramid, unsigned level, unsigned x,
                                        unsigned y0, unsigned y1) const {
    const unsigned top = pyramid.levelHeight(level) - 1;
    const unsigned row0 = top - y0;
    const uint32_t block = pyramid.fBlocksPerRow[level] * (row0 >> Tpyramid::kBlockShift) +
                           (x >> Tpyramid::kBlockShift);
    const uint64_t key = keyOf(pyramid.fSerial, level, block);
    // Coherent lookups mostly stay in the block just read or the one before
    // it, at hand; their texels still come from memory as a new row starts.
    int k = fLruHead;
    if (k >= 0 && fEntries[size_t(k)].key != key) {
        k = fLinks[size_t(k)].next;
        if (k < 0 || fEntries[size_t(k)].key != key)
            k = find(pyramid, key, level);
    }
    if (k < 0)
        return;
    // Addresses as integers: the second row may lie in another block (at a
    // wrapped edge), where the hint is merely wasted.
    constexpr unsigned kMask = Tpyramid::kBlockSide - 1;
    const size_t rowBytes = fEntries[size_t(k)].rowBytes;
    const uintptr_t column = uintptr_t(pixels(k)) + (x & kMask) * pyramid.fPixelSize;
    __builtin_prefetch(reinterpret_cast<const void*>(column + (row0 & kMask) * rowBytes));
    __builtin_prefetch(reinterpret_cast<const void*>(column + ((top - y1) & kMask) * rowBytes));
    __builtin_prefetch(&fLinks[size_t(k)]);
}
