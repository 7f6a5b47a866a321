#include "host/arena.h"

#include <algorithm>
#include <bit>
#include <cassert>
#include <cstdlib>
#include <limits>

namespace {

constexpr size_t roundUp(size_t value, size_t multiple) {
    return (value + multiple - 1) & ~(multiple - 1);
}

// Requests larger than this are refused outright, so that rounding and
// header arithmetic can never wrap.
constexpr size_t kLargestRequest = std::numeric_limits<size_t>::max() / 4;

} // namespace

// ---------------------------------------------------------------------------
// Allocators

Tallocator::~Tallocator() = default;

void* TmallocAllocator::allocate(size_t size) {
    return std::malloc(size == 0 ? 1 : size);
}

void TmallocAllocator::deallocate(void* block) {
    std::free(block);
}

Tallocator& theMallocAllocator() {
    static TmallocAllocator allocator;
    return allocator;
}

// ---------------------------------------------------------------------------
// TvariantArena
//
// A page is a Piece header, then blocks laid end to end, then a 16-byte
// sentinel header marked used so that merging stops at the page end. Every
// block starts with its size (low bits: flags) and the size of the block
// before it in the page, 0 for the first, which is how a freed block finds its
// neighbour on the left. A free block keeps its free-list links in what would
// be its payload; the smallest block, 32 bytes, has room for them.

struct TvariantArena::Block {
    size_t sizeAndFlags;
    size_t prevSize;
    Block* nextFree; // free blocks only
    Block* prevFree; // free blocks only
};

struct TvariantArena::Piece {
    Piece* next;
    Piece* prev;
    size_t bytes;
    size_t unused;
};

namespace {

constexpr size_t kUsedFlag = 1;
constexpr size_t kLargeFlag = 2;
constexpr size_t kFlagMask = 15;
constexpr size_t kHeader = TvariantArena::kBlockOverhead;
constexpr size_t kSmallestBlock = 32;

} // namespace

TvariantArena::TvariantArena(Tallocator& parent, size_t pageSize, unsigned fitSearchLimit,
                             std::string name)
    : fParent(parent), fPageSize(std::max(pageSize & ~(kAlignment - 1), kMinimumPageSize)),
      fPageCapacity(fPageSize - sizeof(Piece) - kHeader), fFitSearchLimit(fitSearchLimit),
      fName(std::move(name)) {
    static_assert(sizeof(Piece) % kAlignment == 0);
    static_assert(sizeof(Block) == kSmallestBlock);
}

TvariantArena::~TvariantArena() {
    freeAll();
}

size_t TvariantArena::chargeFor(size_t size) {
    return std::max(roundUp(size, kAlignment), kAlignment) + kHeader;
}

size_t TvariantArena::blockSize(const void* block) {
    const auto* header = reinterpret_cast<const Block*>(static_cast<const char*>(block) - kHeader);
    return (header->sizeAndFlags & ~kFlagMask) - kHeader;
}

int TvariantArena::binOf(size_t blockBytes) {
    // Exact classes of 16 bytes below 1 KiB, then four classes per power of
    // two, so that any block of a larger class fits a request of this one.
    if (blockBytes < 1024)
        return static_cast<int>(blockBytes >> 4);
    const int log = 63 - std::countl_zero(static_cast<uint64_t>(blockBytes));
    const int sub = static_cast<int>((blockBytes >> (log - 2)) & 3);
    return std::min(64 + (log - 10) * 4 + sub, kBinCount - 1);
}

void TvariantArena::insertFree(Block* block) {
    const int bin = binOf(block->sizeAndFlags & ~kFlagMask);
    block->prevFree = nullptr;
    block->nextFree = fBins[bin];
    if (block->nextFree)
        block->nextFree->prevFree = block;
    fBins[bin] = block;
    fBinMap[bin / 64] |= uint64_t{1} << (bin % 64);
}

void TvariantArena::removeFree(Block* block) {
    const int bin = binOf(block->sizeAndFlags & ~kFlagMask);
    if (block->prevFree)
        block->prevFree->nextFree = block->nextFree;
    else
        fBins[bin] = block->nextFree;
    if (block->nextFree)
        block->nextFree->prevFree = block->prevFree;
    if (!fBins[bin])
        fBinMap[bin / 64] &= ~(uint64_t{1} << (bin % 64));
}

TvariantArena::Block* TvariantArena::findFree(size_t blockBytes) {
    const int own = binOf(blockBytes);
    unsigned looked = 0;
    for (Block* candidate = fBins[own]; candidate && looked < fFitSearchLimit;
         candidate = candidate->nextFree, ++looked) {
        if ((candidate->sizeAndFlags & ~kFlagMask) >= blockBytes)
            return candidate;
    }
    for (int bin = own + 1; bin < kBinCount;) {
        const uint64_t word = fBinMap[bin / 64] >> (bin % 64);
        if (word == 0) {
            bin = (bin / 64 + 1) * 64;
            continue;
        }
        bin += std::countr_zero(word);
        if (bin < kBinCount - 1)
            return fBins[bin];
        // The last class is open-ended: its blocks need looking at.
        for (Block* candidate = fBins[bin]; candidate; candidate = candidate->nextFree) {
            if ((candidate->sizeAndFlags & ~kFlagMask) >= blockBytes)
                return candidate;
        }
        break;
    }
    return nullptr;
}

TvariantArena::Block* TvariantArena::newPage() {
    void* memory = fParent.allocate(fPageSize);
    if (!memory)
        return nullptr;
    auto* page = static_cast<Piece*>(memory);
    page->bytes = fPageSize;
    page->prev = nullptr;
    page->next = fPages;
    if (fPages)
        fPages->prev = page;
    fPages = page;
    fFootprint += fPageSize;

    auto* first = reinterpret_cast<Block*>(static_cast<char*>(memory) + sizeof(Piece));
    first->sizeAndFlags = fPageCapacity;
    first->prevSize = 0;
    auto* sentinel = reinterpret_cast<Block*>(reinterpret_cast<char*>(first) + fPageCapacity);
    sentinel->sizeAndFlags = kUsedFlag;
    sentinel->prevSize = fPageCapacity;
    return first;
}

void* TvariantArena::allocateLarge(size_t blockBytes) {
    const size_t bytes = sizeof(Piece) + blockBytes;
    void* memory = fParent.allocate(bytes);
    if (!memory)
        return nullptr;
    auto* piece = static_cast<Piece*>(memory);
    piece->bytes = bytes;
    piece->prev = nullptr;
    piece->next = fLarge;
    if (fLarge)
        fLarge->prev = piece;
    fLarge = piece;
    fFootprint += bytes;

    auto* block = reinterpret_cast<Block*>(static_cast<char*>(memory) + sizeof(Piece));
    block->sizeAndFlags = blockBytes | kUsedFlag | kLargeFlag;
    block->prevSize = 0;
    fUsed += blockBytes;
    ++fLiveBlocks;
    return reinterpret_cast<char*>(block) + kHeader;
}

void* TvariantArena::allocate(size_t size) {
    if (size > kLargestRequest)
        return nullptr;
    const size_t wanted = chargeFor(size);
    if (wanted > fPageCapacity)
        return allocateLarge(wanted);

    Block* block = findFree(wanted);
    if (block) {
        removeFree(block);
    } else {
        block = newPage();
        if (!block)
            return nullptr;
    }

    size_t have = block->sizeAndFlags & ~kFlagMask;
    if (have - wanted >= kSmallestBlock) {
        auto* rest = reinterpret_cast<Block*>(reinterpret_cast<char*>(block) + wanted);
        rest->sizeAndFlags = have - wanted;
        rest->prevSize = wanted;
        auto* after = reinterpret_cast<Block*>(reinterpret_cast<char*>(rest) + (have - wanted));
        after->prevSize = have - wanted;
        insertFree(rest);
        have = wanted;
    }
    block->sizeAndFlags = have | kUsedFlag;
    fUsed += have;
    ++fLiveBlocks;
    return reinterpret_cast<char*>(block) + kHeader;
}

void TvariantArena::deallocate(void* pointer) {
    if (!pointer)
        return;
    auto* block = reinterpret_cast<Block*>(static_cast<char*>(pointer) - kHeader);
    assert((block->sizeAndFlags & kUsedFlag) && "block freed twice or not from this arena");
    size_t size = block->sizeAndFlags & ~kFlagMask;
    fUsed -= size;
    --fLiveBlocks;

    if (block->sizeAndFlags & kLargeFlag) {
        auto* piece = reinterpret_cast<Piece*>(reinterpret_cast<char*>(block) - sizeof(Piece));
        if (piece->prev)
            piece->prev->next = piece->next;
        else
            fLarge = piece->next;
        if (piece->next)
            piece->next->prev = piece->prev;
        fFootprint -= piece->bytes;
        fParent.deallocate(piece);
        return;
    }

    auto* next = reinterpret_cast<Block*>(reinterpret_cast<char*>(block) + size);
    if (!(next->sizeAndFlags & kUsedFlag)) {
        removeFree(next);
        size += next->sizeAndFlags & ~kFlagMask;
    }
    if (block->prevSize != 0) {
        auto* prev = reinterpret_cast<Block*>(reinterpret_cast<char*>(block) - block->prevSize);
        if (!(prev->sizeAndFlags & kUsedFlag)) {
            removeFree(prev);
            size += prev->sizeAndFlags & ~kFlagMask;
            block = prev;
        }
    }
    block->sizeAndFlags = size;
    auto* after = reinterpret_cast<Block*>(reinterpret_cast<char*>(block) + size);
    after->prevSize = size;

    const bool pageIsEmpty = block->prevSize == 0 && size == fPageCapacity;
    if (pageIsEmpty && fPages->next) {
        auto* page = reinterpret_cast<Piece*>(reinterpret_cast<char*>(block) - sizeof(Piece));
        if (page->prev)
            page->prev->next = page->next;
        else
            fPages = page->next;
        if (page->next)
            page->next->prev = page->prev;
        fFootprint -= page->bytes;
        fParent.deallocate(page);
        return;
    }
    insertFree(block);
}

void TvariantArena::freeAll() {
    for (Piece* list : {fPages, fLarge}) {
        while (list) {
            Piece* next = list->next;
            fParent.deallocate(list);
            list = next;
        }
    }
    fPages = nullptr;
    fLarge = nullptr;
    fBins.fill(nullptr);
    fBinMap.fill(0);
    fUsed = 0;
    fFootprint = 0;
    fLiveBlocks = 0;
}

// ---------------------------------------------------------------------------
// TmtVariantArena

void* TmtVariantArena::allocate(size_t size) {
    std::lock_guard lock(fSection);
    return fArena.allocate(size);
}

void TmtVariantArena::deallocate(void* block) {
    std::lock_guard lock(fSection);
    fArena.deallocate(block);
}

void TmtVariantArena::freeAll() {
    std::lock_guard lock(fSection);
    fArena.freeAll();
}

size_t TmtVariantArena::usedSize() const {
    std::lock_guard lock(fSection);
    return fArena.usedSize();
}

size_t TmtVariantArena::footprint() const {
    std::lock_guard lock(fSection);
    return fArena.footprint();
}

size_t TmtVariantArena::liveBlocks() const {
    std::lock_guard lock(fSection);
    return fArena.liveBlocks();
}

// ---------------------------------------------------------------------------
// TstackArena

struct TstackArena::Chunk {
    Chunk* next;
    size_t bytes;
};

TstackArena::TstackArena(Tallocator& parent, size_t blockSize, std::string name)
    : fParent(parent), fBlockSize(std::max<size_t>(blockSize, 256)), fName(std::move(name)) {
    static_assert(sizeof(Chunk) == 16);
}

TstackArena::~TstackArena() {
    reset();
}

void* TstackArena::allocate(size_t size, size_t alignment) {
    assert(std::has_single_bit(alignment) && alignment <= 4096);
    if (size > kLargestRequest)
        return nullptr;
    if (size == 0)
        size = 1;

    if (fCursor) {
        char* start =
            reinterpret_cast<char*>(roundUp(reinterpret_cast<uintptr_t>(fCursor), alignment));
        if (start <= fEnd && size <= static_cast<size_t>(fEnd - start)) {
            fUsed += static_cast<size_t>(start + size - fCursor);
            fCursor = start + size;
            return start;
        }
    }

    // Chunks come from the parent aligned to 16; more than that is padding.
    const size_t padding = alignment > 16 ? alignment - 16 : 0;
    const size_t needed = sizeof(Chunk) + padding + size;
    const bool ownChunk = needed > fBlockSize;
    const size_t bytes = ownChunk ? needed : fBlockSize;
    void* memory = fParent.allocate(bytes);
    if (!memory)
        return nullptr;
    auto* chunk = static_cast<Chunk*>(memory);
    chunk->bytes = bytes;
    chunk->next = fChunks;
    fChunks = chunk;
    fFootprint += bytes;

    char* data = static_cast<char*>(memory) + sizeof(Chunk);
    char* start = reinterpret_cast<char*>(roundUp(reinterpret_cast<uintptr_t>(data), alignment));
    fUsed += static_cast<size_t>(start - data) + size;
    // A chunk of its own is full; the current chunk keeps serving small
    // requests.
    if (!ownChunk) {
        fCursor = start + size;
        fEnd = static_cast<char*>(memory) + bytes;
    }
    return start;
}

void TstackArena::reset() {
    while (fChunks) {
        Chunk* next = fChunks->next;
        fParent.deallocate(fChunks);
        fChunks = next;
    }
    fCursor = nullptr;
    fEnd = nullptr;
    fUsed = 0;
    fFootprint = 0;
}

// ---------------------------------------------------------------------------
// TfixedArena

struct TfixedArena::Chunk {
    Chunk* next;
    size_t unused;
};

struct TfixedArena::FreeSlot {
    FreeSlot* next;
};

TfixedArena::TfixedArena(Tallocator& parent, size_t elementSize, size_t perChunk)
    : fParent(parent), fSlotSize(std::max<size_t>(roundUp(elementSize, 16), 16)),
      fPerChunk(std::max<size_t>(perChunk, 1)) {}

TfixedArena::~TfixedArena() {
    reset();
}

void* TfixedArena::allocate() {
    if (fFree) {
        FreeSlot* slot = fFree;
        fFree = slot->next;
        ++fLive;
        return slot;
    }
    if (fCursor == fEnd) {
        const size_t bytes = sizeof(Chunk) + fSlotSize * fPerChunk;
        void* memory = fParent.allocate(bytes);
        if (!memory)
            return nullptr;
        auto* chunk = static_cast<Chunk*>(memory);
        chunk->next = fChunks;
        fChunks = chunk;
        fFootprint += bytes;
        fCursor = static_cast<char*>(memory) + sizeof(Chunk);
        fEnd = static_cast<char*>(memory) + bytes;
    }
    void* slot = fCursor;
    fCursor += fSlotSize;
    ++fLive;
    return slot;
}

void TfixedArena::deallocate(void* pointer) {
    if (!pointer)
        return;
    auto* slot = static_cast<FreeSlot*>(pointer);
    slot->next = fFree;
    fFree = slot;
    --fLive;
}

void TfixedArena::reset() {
    while (fChunks) {
        Chunk* next = fChunks->next;
        fParent.deallocate(fChunks);
        fChunks = next;
    }
    fFree = nullptr;
    fCursor = nullptr;
    fEnd = nullptr;
    fLive = 0;
    fFootprint = 0;
}
