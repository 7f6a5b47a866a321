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

#include <cstddef>
#include <cstdint>
#include <memory>

class Tpyramid;

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
    struct Slot {
        uint64_t serial = 0; // of the pyramid whose block this is; 0: empty
        const Tpyramid* pyramid = nullptr;
        uint32_t block = 0;
        uint16_t level = 0;
        uint16_t blockWidth = 0; // pixels in a row of the block
        uint16_t pixelSize = 0;
        int32_t previous = -1; // towards the most recently used end
        int32_t next = -1;     // towards the least recently used end
        int32_t hashNext = -1;
    };

    uint8_t* pixels(int slot) const { return fBuffer + (size_t(slot) << kSlotShift); }
    int find(const Tpyramid& pyramid, unsigned level, uint32_t block) const;
    int take(const Tpyramid& pyramid, unsigned level, uint32_t block, unsigned blockWidth);
    void release(int slot);
    void moveToHead(int slot);
    unsigned bucketOf(uint64_t serial, unsigned level, uint32_t block) const;
    void loadBlock(const Tpyramid& pyramid, unsigned level, uint32_t block, int slot);
    void allocateSlots(unsigned capacity);

    int fLimitMB = kDefaultLimitMB;
    unsigned fThreadIndex = 0;
    int fLruHead = -1;
    int fLruTail = -1;
    unsigned fCount = 0;
    std::unique_ptr<Slot[]> fSlots;
    std::unique_ptr<uint8_t[]> fRawBuffer;
    uint8_t* fBuffer = nullptr; // aligned to kSlotBytes
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
