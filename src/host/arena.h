#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "host/mt.h"

// Memory sources and arenas of the host core library.
//
// A Tallocator is where an arena gets its big pieces from: the C heap, a
// render cache, another arena. Arenas then cut those pieces up cheaply:
//   TstackArena    - bump allocation, everything given back at once;
//   TfixedArena    - slots of one size with a free list;
//   TvariantArena  - blocks of any size, freed one by one, from pages;
//   TmtVariantArena - a TvariantArena behind a lock, for shared use.
// All hand out memory aligned to 16 bytes. None of them throws: a failed
// allocation returns null.

class Tallocator {
public:
    virtual ~Tallocator();
    // A block of at least `size` bytes aligned to 16, or null.
    virtual void* allocate(size_t size) = 0;
    // Gives back a block of this allocator; null is ignored.
    virtual void deallocate(void* block) = 0;
};

// The C heap.
class TmallocAllocator final : public Tallocator {
public:
    void* allocate(size_t size) override;
    void deallocate(void* block) override;
};

// One shared heap allocator for the whole process.
Tallocator& theMallocAllocator();

// Blocks of any size, carved from pages of `pageSize` bytes taken from the
// parent allocator. Each block costs its request rounded up to 16 bytes (at
// least 16) plus a 16-byte header: chargeFor() gives the figure, and
// usedSize() is the sum over the live blocks. (A block takes 16 bytes more
// than its charge when the piece left over would have been too small to be a
// block of its own; blockSize() tells.) Freed blocks merge with free
// neighbours, and a page that becomes wholly free goes back to the parent,
// except the last one, which is kept for the next request. A request too large
// for a page gets a piece of its own from the parent.
//
// Free blocks are kept in size classes. A request first searches its own
// class, looking at no more than `fitSearchLimit` blocks, then takes the first
// block of the next larger non-empty class, which always fits.
//
// Not thread-safe; see TmtVariantArena.
class TvariantArena {
public:
    static constexpr size_t kAlignment = 16;
    static constexpr size_t kBlockOverhead = 16;
    static constexpr unsigned kUnlimitedFitSearch = 0xFFFFFFFFu;
    static constexpr size_t kMinimumPageSize = 256;

    TvariantArena(Tallocator& parent, size_t pageSize, unsigned fitSearchLimit, std::string name);
    ~TvariantArena();
    TvariantArena(const TvariantArena&) = delete;
    TvariantArena& operator=(const TvariantArena&) = delete;

    void* allocate(size_t size);
    void deallocate(void* block);

    // Gives every page and large block back to the parent. Blocks handed out
    // before become invalid.
    void freeAll();

    // Usable bytes of a live block: its request rounded up to 16.
    static size_t blockSize(const void* block);
    // What a request of `size` bytes adds to usedSize().
    static size_t chargeFor(size_t size);

    size_t usedSize() const { return fUsed; }
    size_t footprint() const { return fFootprint; }
    size_t liveBlocks() const { return fLiveBlocks; }
    size_t pageSize() const { return fPageSize; }
    unsigned fitSearchLimit() const { return fFitSearchLimit; }
    const std::string& name() const { return fName; }

private:
    struct Block;
    struct Piece;
    static constexpr int kBinCount = 192;

    static int binOf(size_t blockBytes);
    Block* findFree(size_t blockBytes);
    void insertFree(Block* block);
    void removeFree(Block* block);
    Block* newPage();
    void* allocateLarge(size_t blockBytes);

    Tallocator& fParent;
    size_t fPageSize;
    size_t fPageCapacity; // bytes of a page available to blocks
    unsigned fFitSearchLimit;
    std::string fName;
    size_t fUsed = 0;
    size_t fFootprint = 0;
    size_t fLiveBlocks = 0;
    Piece* fPages = nullptr; // pages taken from the parent
    Piece* fLarge = nullptr; // blocks too big for a page
    std::array<Block*, kBinCount> fBins{};
    std::array<uint64_t, kBinCount / 64> fBinMap{};
};

// A TvariantArena whose every operation holds a critical section, so that
// several threads can allocate and free in it.
class TmtVariantArena {
public:
    TmtVariantArena(Tallocator& parent, size_t pageSize, unsigned fitSearchLimit, std::string name)
        : fArena(parent, pageSize, fitSearchLimit, std::move(name)) {}

    void* allocate(size_t size);
    void deallocate(void* block);
    void freeAll();

    static size_t blockSize(const void* block) { return TvariantArena::blockSize(block); }
    static size_t chargeFor(size_t size) { return TvariantArena::chargeFor(size); }

    size_t usedSize() const;
    size_t footprint() const;
    size_t liveBlocks() const;
    const std::string& name() const { return fArena.name(); }

private:
    mutable TmtCriticalSection fSection;
    TvariantArena fArena;
};

// Bump allocation from blocks of `blockSize` bytes; nothing is freed until
// reset() or destruction. A request larger than a block gets a block of its
// own. Not thread-safe.
class TstackArena {
public:
    TstackArena(Tallocator& parent, size_t blockSize, std::string name = {});
    ~TstackArena();
    TstackArena(const TstackArena&) = delete;
    TstackArena& operator=(const TstackArena&) = delete;

    // `alignment` must be a power of two no larger than 4096.
    void* allocate(size_t size, size_t alignment = 16);
    // Gives every block back to the parent.
    void reset();

    // Bytes handed out, alignment padding included.
    size_t usedSize() const { return fUsed; }
    size_t footprint() const { return fFootprint; }
    size_t blockSize() const { return fBlockSize; }
    const std::string& name() const { return fName; }

private:
    struct Chunk;

    Tallocator& fParent;
    size_t fBlockSize;
    std::string fName;
    Chunk* fChunks = nullptr;
    char* fCursor = nullptr;
    char* fEnd = nullptr;
    size_t fUsed = 0;
    size_t fFootprint = 0;
};

// Slots of one size, `perChunk` to a chunk taken from the parent; a freed slot
// is the next one handed out. Not thread-safe.
class TfixedArena {
public:
    TfixedArena(Tallocator& parent, size_t elementSize, size_t perChunk);
    ~TfixedArena();
    TfixedArena(const TfixedArena&) = delete;
    TfixedArena& operator=(const TfixedArena&) = delete;

    void* allocate();
    void deallocate(void* slot);
    // Gives every chunk back to the parent.
    void reset();

    size_t elementSize() const { return fSlotSize; }
    size_t liveCount() const { return fLive; }
    size_t footprint() const { return fFootprint; }

private:
    struct Chunk;
    struct FreeSlot;

    Tallocator& fParent;
    size_t fSlotSize;
    size_t fPerChunk;
    Chunk* fChunks = nullptr;
    FreeSlot* fFree = nullptr;
    char* fCursor = nullptr; // unused slots of the newest chunk
    char* fEnd = nullptr;
    size_t fLive = 0;
    size_t fFootprint = 0;
};
