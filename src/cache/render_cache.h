#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "cache/cache.h"
#include "host/arena.h"

class TrenderCache;

// A Tallocator that forwards to a render cache, so that arenas and other
// clients of the allocator interface draw on the cache's memory.
class TrenderCacheAllocator final : public Tallocator {
public:
    explicit TrenderCacheAllocator(TrenderCache& cache) : fCache(cache) {}
    void* allocate(size_t size) override;
    void deallocate(void* block) override;
    TrenderCache& cache() const { return fCache; }

private:
    TrenderCache& fCache;
};

// An LRU cache with an arena and a byte target. An allocation that would take
// the arena's used bytes to the target first evicts cold entries, until the
// request fits or one block freed by that eviction could hold it. When nothing more can be
// evicted the target grows by the request and a margin (unless growth is
// off); either way the allocation is made: the target steers eviction and is
// never a hard failure.
//
// Render-time data whose size is not known in advance (pyramids, shadow map
// tiles) lives in a render cache; an entry's leaveCache gives its memory back
// with deallocate, which is how eviction makes room.
class TrenderCache : public Tcache {
public:
    static constexpr size_t sDefaultPageSize = 2097152;
    static constexpr unsigned sDefaultFitSearchLimit = 0xFFFFFFFFu;
    // What the target grows by, beyond the request, when nothing is left to
    // evict.
    static constexpr size_t kGrowthMargin = 262144;
    // Size of the global cache when the library loads: small on purpose, the
    // renderer raises it and growth does the rest.
    static constexpr size_t kGlobalStartSize = 16384;
    // Size of the private cache a client makes when there is no global one.
    static constexpr size_t kPrivateCacheSize = 16777216;

    // Environment settings, read when the library loads.
    struct Settings {
        bool globalize = true;    // ORVO_RENDERER_GLOBALIZE_RENDER_CACHE
        bool traceGlobal = false; // ORVO_RENDERER_TRACE_GLOBAL_CACHE
        bool grow = true;         // GROW_RENDER_CACHE
        bool trace = false;       // TRACE_RENDER_CACHE
    };
    static const Settings& settings();
    // Reads the settings (and LIMIT_CACHE_SIZE of Tcache) again; for tests.
    static void readSettings();

    TrenderCache(size_t maximumMemory, Tallocator& allocator);
    TrenderCache(Tallocator& allocator, size_t pageSize, size_t maximumMemory,
                 unsigned fitSearchLimit);
    ~TrenderCache() override;

    // Never null for a sane size, whatever the target: see above.
    void* allocate(size_t size);
    void deallocate(void* block);

    // This cache as a Tallocator, made once, in the arena.
    Tallocator& asArenaAllocator();

    // Raises the target; a smaller value is ignored.
    void setMaximumMemorySize(size_t size);
    // Sets the target.
    void reallySetMaximumMemorySize(size_t size);
    size_t maximumMemorySize() const { return fMaximumMemory.load(std::memory_order_relaxed); }

    // Bytes the arena holds for live blocks (see TvariantArena::chargeFor).
    size_t usedSize() const { return fArena.usedSize(); }
    // Bytes the arena holds from its allocator.
    size_t footprint() const { return fArena.footprint(); }
    // The largest block freed since the last allocate began.
    size_t lastFreedSize() const { return fLastFreedSize.load(std::memory_order_relaxed); }

    bool growthEnabled() const { return fGrow.load(std::memory_order_relaxed); }
    void setGrowthEnabled(bool grow) { fGrow.store(grow, std::memory_order_relaxed); }

    const char* name() const { return "Render Cache"; }

private:
    TmtVariantArena fArena;
    std::atomic<uint64_t> fMaximumMemory;
    std::atomic<int> fAllocatorClaim{0};
    std::atomic<TrenderCacheAllocator*> fAllocator{nullptr};
    std::atomic<uint64_t> fLastFreedSize{0};
    std::atomic<bool> fGrow;
};

// The one shared render cache, made when the library loads unless
// ORVO_RENDERER_GLOBALIZE_RENDER_CACHE is 0; null then. A client that finds
// none makes a private cache of TrenderCache::kPrivateCacheSize bytes.
TrenderCache* theGlobalRenderCache();
// Traces the footprint, raises the global cache's target to at least `size`
// and returns the cache (null when there is none).
TrenderCache* theGlobalRenderCache(size_t size);
// Traces the global cache's footprint and used size.
void displayGlobalRenderCacheFootPrint();
