#include "textures/file_texture_cache.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "host/messages.h"
#include "textures/bot_coding.h"
#include "textures/pyramid.h"

namespace {

// The coded block as read, with the four zero bytes behind it.
constexpr size_t kCodedBytes = Tpyramid::kCodedBlockScratch + 4;

// Pyramids that read BOT files, by serial, while they live. A cache that
// evicts another pyramid's block looks its owner up here before it clears
// the owner's bit, so that it never writes into a pyramid that is gone.
struct LivePyramids {
    std::mutex mutex;
    std::unordered_map<uint64_t, const Tpyramid*> bySerial;
};

LivePyramids& livePyramids() {
    // Never destroyed: thread caches may outlive static destruction.
    static LivePyramids* const live = new LivePyramids;
    return *live;
}

// Thread indices: each cache takes the lowest free one, so that the indices
// stay below the thread count that cacheFlags are sized for even when render
// threads come and go.
struct ThreadIndices {
    std::mutex mutex;
    unsigned next = 0;
    std::vector<unsigned> freed;
};

ThreadIndices& threadIndices() {
    static ThreadIndices* const indices = new ThreadIndices;
    return *indices;
}

unsigned takeThreadIndex() {
    ThreadIndices& indices = threadIndices();
    std::lock_guard lock(indices.mutex);
    if (indices.freed.empty())
        return indices.next++;
    const auto lowest = std::min_element(indices.freed.begin(), indices.freed.end());
    const unsigned index = *lowest;
    indices.freed.erase(lowest);
    return index;
}

void giveThreadIndex(unsigned index) {
    ThreadIndices& indices = threadIndices();
    std::lock_guard lock(indices.mutex);
    indices.freed.push_back(index);
}

std::atomic<unsigned> gDefaultCapacity{TfileTextureCache::kDefaultCapacity};

thread_local std::unique_ptr<TfileTextureCache> tCache;

unsigned floorPowerOfTwo(unsigned n) {
    return n == 0 ? 1 : std::bit_floor(n);
}

unsigned hashListsFor(unsigned slots) {
    return slots > TfileTextureCache::kMaxFlaggedSlots ? slots : 0;
}

} // namespace

// ---- the thread's cache

TfileTextureCache& TfileTextureCache::forThisThread() {
    if (!tCache)
        tCache = std::make_unique<TfileTextureCache>();
    return *tCache;
}

TfileTextureCache* TfileTextureCache::existingForThisThread() {
    return tCache.get();
}

void TfileTextureCache::freeForThisThread() {
    tCache.reset();
}

std::unique_ptr<TfileTextureCache>
TfileTextureCache::exchangeForThisThread(std::unique_ptr<TfileTextureCache> cache) {
    std::swap(cache, tCache);
    return cache;
}

void TfileTextureCache::setDefaultCapacity(unsigned slots) {
    gDefaultCapacity.store(floorPowerOfTwo(slots), std::memory_order_relaxed);
}

unsigned TfileTextureCache::defaultCapacity() {
    return gDefaultCapacity.load(std::memory_order_relaxed);
}

size_t TfileTextureCache::bytesFor(unsigned slots) {
    return (size_t(slots) + 1) * kSlotBytes + size_t(slots) * (sizeof(Entry) + sizeof(Link)) +
           size_t(hashListsFor(slots)) * sizeof(int32_t) + kCodedBytes + Tpyramid::kBlockBytes;
}

unsigned TfileTextureCache::capacityForBudget(size_t bytes) {
    unsigned slots = 0;
    for (unsigned candidate = 1; candidate != 0 && bytesFor(candidate) <= bytes; candidate *= 2)
        slots = candidate;
    return slots;
}

TfileTextureCache::TfileTextureCache(unsigned capacity)
    : fThreadIndex(takeThreadIndex()), fCoded(new uint8_t[kCodedBytes]()),
      fDecoded(new uint8_t[Tpyramid::kBlockBytes]()) {
    allocateSlots(capacity);
}

TfileTextureCache::~TfileTextureCache() {
    clear();
    giveThreadIndex(fThreadIndex);
}

void TfileTextureCache::PixelBuffer::allocate(size_t bytes) {
    free();
    // A buffer of a huge page or more is mapped on its own, aligned to the
    // huge page and advised to use them; mmap gives zeroed pages.
    constexpr size_t kHugePage = size_t(2) << 20;
    if (bytes >= kHugePage && bytes % kHugePage == 0) {
        void* raw = ::mmap(nullptr, bytes + kHugePage, PROT_READ | PROT_WRITE,
                           MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (raw != MAP_FAILED) {
            const uintptr_t start = reinterpret_cast<uintptr_t>(raw);
            const uintptr_t aligned = (start + kHugePage - 1) & ~(kHugePage - 1);
            if (aligned > start)
                ::munmap(raw, aligned - start);
            if (const size_t tail = start + kHugePage - aligned; tail > 0)
                ::munmap(reinterpret_cast<void*>(aligned + bytes), tail);
            data = reinterpret_cast<uint8_t*>(aligned);
            mappedBytes = bytes;
            ::madvise(data, bytes, MADV_HUGEPAGE);
            return;
        }
    }
    // One slot more than needed, so that the buffer can start on a slot
    // boundary; zeroed, so that a slot whose load failed reads black.
    heap.reset(new uint8_t[bytes + kSlotBytes]());
    const uintptr_t raw = reinterpret_cast<uintptr_t>(heap.get());
    data = heap.get() + ((kSlotBytes - (raw & (kSlotBytes - 1))) & (kSlotBytes - 1));
}

void TfileTextureCache::PixelBuffer::free() {
    if (mappedBytes)
        ::munmap(data, mappedBytes);
    heap.reset();
    data = nullptr;
    mappedBytes = 0;
}

void TfileTextureCache::allocateSlots(unsigned capacity) {
    fCapacity = floorPowerOfTwo(capacity);
    fCapacityLog2 = unsigned(std::countr_zero(fCapacity));
    fEntries.reset(new Entry[fCapacity]);
    fLinks.reset(new Link[fCapacity]);
    fBuffer.allocate(size_t(fCapacity) * kSlotBytes);
    const unsigned lists = hashListsFor(fCapacity);
    fHashHeads.reset(lists ? new int32_t[lists] : nullptr);
    fHashMask = lists ? lists - 1 : 0;
    for (unsigned i = 0; i < lists; ++i)
        fHashHeads[i] = -1;
    fLruHead = fLruTail = -1;
    fCount = 0;
}

void TfileTextureCache::clear() {
    for (unsigned k = 0; k < fCount; ++k)
        release(int(k));
    for (unsigned k = 0; k < fCapacity; ++k) {
        fEntries[k] = Entry{};
        fLinks[k] = Link{};
    }
    for (unsigned i = 0; fHashHeads && i <= fHashMask; ++i)
        fHashHeads[i] = -1;
    fLruHead = fLruTail = -1;
    fCount = 0;
}

void TfileTextureCache::setCapacity(unsigned slots) {
    clear();
    allocateSlots(slots);
}

void TfileTextureCache::notePyramid(const Tpyramid& pyramid) {
    LivePyramids& live = livePyramids();
    std::lock_guard lock(live.mutex);
    live.bySerial[pyramid.serial()] = &pyramid;
}

void TfileTextureCache::forgetPyramid(const Tpyramid& pyramid) {
    LivePyramids& live = livePyramids();
    std::lock_guard lock(live.mutex);
    live.bySerial.erase(pyramid.serial());
}

// ---- lookups

unsigned TfileTextureCache::bucketOf(uint64_t key) const {
    uint64_t h = key;
    h ^= h >> 33;
    h *= 0xff51afd7ed558ccdULL;
    h ^= h >> 33;
    return unsigned(h) & fHashMask;
}

int TfileTextureCache::find(const Tpyramid& pyramid, uint64_t key, unsigned level) const {
    if (fHashHeads) {
        for (int k = fHashHeads[bucketOf(key)]; k >= 0; k = fEntries[size_t(k)].hashNext)
            if (fEntries[size_t(k)].key == key)
                return k;
        return -1;
    }
    if (fThreadIndex < pyramid.fThreadCount) {
        // Only the slots this pyramid's word for this thread and level names.
        uint32_t word = pyramid.fCacheFlags[size_t(fThreadIndex) * Tpyramid::kMaxLevels + level];
        while (word) {
            const int k = std::countr_zero(word);
            if (fEntries[size_t(k)].key == key)
                return k;
            word &= word - 1;
        }
        return -1;
    }
    // A thread beyond the count the flags were sized for looks at every slot.
    for (unsigned k = 0; k < fCount; ++k)
        if (fEntries[k].key == key)
            return int(k);
    return -1;
}

void TfileTextureCache::moveToHead(int k) {
    if (k == fLruHead)
        return;
    Link& s = fLinks[size_t(k)];
    // Unlink; k is not the head, so it has a previous slot.
    fLinks[size_t(s.previous)].next = s.next;
    if (s.next >= 0)
        fLinks[size_t(s.next)].previous = s.previous;
    else
        fLruTail = s.previous;
    s.previous = -1;
    s.next = fLruHead;
    fLinks[size_t(fLruHead)].previous = k;
    fLruHead = k;
}

// Forgets what slot k holds: its bit in its pyramid's flags or its place on
// a hash list.
void TfileTextureCache::release(int k) {
    Entry& e = fEntries[size_t(k)];
    if (e.key == 0)
        return;
    if (fHashHeads) {
        int32_t* link = &fHashHeads[bucketOf(e.key)];
        while (*link >= 0 && *link != k)
            link = &fEntries[size_t(*link)].hashNext;
        if (*link == k)
            *link = e.hashNext;
        e.hashNext = -1;
    } else {
        LivePyramids& live = livePyramids();
        std::lock_guard lock(live.mutex);
        const auto owner = live.bySerial.find(serialOf(e.key));
        if (owner != live.bySerial.end() && fThreadIndex < owner->second->fThreadCount)
            owner->second
                ->fCacheFlags[size_t(fThreadIndex) * Tpyramid::kMaxLevels + levelOf(e.key)] &=
                ~(1u << k);
    }
    e.key = 0;
}

int TfileTextureCache::take(const Tpyramid& pyramid, unsigned level, uint32_t block,
                            unsigned blockWidth) {
    int k;
    if (fCount < fCapacity) {
        k = int(fCount++);
        Link& s = fLinks[size_t(k)];
        s.previous = -1;
        s.next = fLruHead;
        if (fLruHead >= 0)
            fLinks[size_t(fLruHead)].previous = k;
        fLruHead = k;
        if (fLruTail < 0)
            fLruTail = k;
    } else {
        k = fLruTail;
        Entry& old = fEntries[size_t(k)];
        if (!fHashHeads && old.key != 0 && serialOf(old.key) == pyramid.fSerial) {
            // The common case, a block of the same pyramid: no need to look
            // the owner up.
            if (fThreadIndex < pyramid.fThreadCount)
                pyramid
                    .fCacheFlags[size_t(fThreadIndex) * Tpyramid::kMaxLevels + levelOf(old.key)] &=
                    ~(1u << k);
            old.key = 0;
        } else {
            release(k);
        }
        moveToHead(k);
    }
    Entry& e = fEntries[size_t(k)];
    e.key = keyOf(pyramid.fSerial, level, block);
    e.rowBytes = blockWidth * pyramid.fPixelSize;
    if (fHashHeads) {
        int32_t& head = fHashHeads[bucketOf(e.key)];
        e.hashNext = head;
        head = k;
    } else if (fThreadIndex < pyramid.fThreadCount) {
        pyramid.fCacheFlags[size_t(fThreadIndex) * Tpyramid::kMaxLevels + level] |= 1u << k;
    }
    return k;
}

int TfileTextureCache::slotForMiss(const Tpyramid& pyramid, unsigned level, uint32_t block,
                                   unsigned x) {
    const uint64_t key = keyOf(pyramid.fSerial, level, block);
    int k = find(pyramid, key, level);
    if (k >= 0) {
        moveToHead(k);
        return k;
    }
    ++fMisses;
    --fHits; // the caller counts every fetch a hit
    // Blocks in the rightmost column are cut to what is left.
    const unsigned left = x & ~(Tpyramid::kBlockSide - 1);
    k = take(pyramid, level, block,
             std::min(Tpyramid::kBlockSide, pyramid.levelWidth(level) - left));
    loadBlock(pyramid, level, block, k);
    return k;
}

// ---- reading a block

void TfileTextureCache::loadBlock(const Tpyramid& pyramid, unsigned level, uint32_t block, int k) {
    const std::string& name = pyramid.fBotFileName;
    // A descriptor of its own for this read, so that threads never share a
    // file position.
    const int fd = ::open(name.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return;
    struct Closer {
        int fd;
        ~Closer() { ::close(fd); }
    } closer{fd};

    const off_t entry = off_t(pyramid.fLevels[level] + 4 * uint64_t(block));
    if (::lseek(fd, entry, SEEK_SET) != entry) {
        TcommandEngine::displayConsole(
            fmt::format("{}/n", TstringId("s_TfileTextureStrings.rBOTseekError").format(name)));
        return;
    }
    uint32_t offsets[2];
    if (::read(fd, offsets, sizeof offsets) != ssize_t(sizeof offsets)) {
        TcommandEngine::displayConsole(
            fmt::format("{}/n", TstringId("s_TfileTextureStrings.rBOTreadError").format(name)));
        return;
    }
    if (::lseek(fd, off_t(offsets[0]), SEEK_SET) != off_t(offsets[0])) {
        TcommandEngine::displayConsole(
            fmt::format("{}/n", TstringId("s_TfileTextureStrings.rBOTseekError").format(name)));
        return;
    }
    const int64_t length = int64_t(offsets[1]) - int64_t(offsets[0]);
    if (length < 0 || length + 4 >= 8193) {
        TcommandEngine::displayConsole(fmt::format(
            "Error: Corrupted data found in block ordered texture file {}: {}\n", name,
            fmt::format("block {} of level {} would be {} bytes long", block, level, length)));
        return;
    }
    errno = 0;
    if (::read(fd, fCoded.get(), size_t(length)) != ssize_t(length)) {
        TcommandEngine::displayConsole(
            fmt::format("Error: Read error in block ordered texture file {}: {}\n", name,
                        errno ? std::strerror(errno) : "the file ends early"));
        return;
    }
    std::memset(fCoded.get() + length, 0, 4);

    const unsigned blocksAcross = pyramid.fBlocksPerRow[level];
    const unsigned column = block % blocksAcross;
    const unsigned blockRow = block / blocksAcross;
    const unsigned width =
        std::min(Tpyramid::kBlockSide, pyramid.levelWidth(level) - column * Tpyramid::kBlockSide);
    const unsigned height = std::min(Tpyramid::kBlockSide,
                                     pyramid.levelHeight(level) - blockRow * Tpyramid::kBlockSide);
    if (TbotBlockCoder::decodeBlock(fCoded.get(), size_t(length), width, height, pyramid.fPixelSize,
                                    fDecoded.get()) < 0) {
        TcommandEngine::displayConsole(
            fmt::format("Error: Decode error in block ordered texture file {}: {}\n", name,
                        fmt::format("block {} of level {} is not a coded {} by {} block", block,
                                    level, width, height)));
        return;
    }
    std::memcpy(pixels(k), fDecoded.get(), size_t(width) * height * pyramid.fPixelSize);
}
