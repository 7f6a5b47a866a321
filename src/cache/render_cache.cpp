#include "cache/render_cache.h"

#include <algorithm>
#include <new>
#include <thread>

#include "host/env.h"
#include "host/trace.h"

namespace {

TrenderCache::Settings settingsFromEnvironment() {
    TrenderCache::Settings settings;
    settings.globalize = OrvoGetEnvInt("ORVO_RENDERER_GLOBALIZE_RENDER_CACHE", 1) != 0;
    settings.traceGlobal = OrvoGetEnvInt("ORVO_RENDERER_TRACE_GLOBAL_CACHE", 0) != 0;
    settings.grow = OrvoGetEnvInt("GROW_RENDER_CACHE", 1) != 0;
    settings.trace = OrvoGetEnvInt("TRACE_RENDER_CACHE", 0) != 0;
    return settings;
}

// The order of these three matters: they are made when the library loads,
// in this order, and the global cache uses the other two.
TrenderCache::Settings gSettings = settingsFromEnvironment();
TdbTrace gCacheTrace("TRACE_RENDER_CACHE", gSettings.trace);
TdbTrace gGlobalTrace("ORVO_RENDERER_TRACE_GLOBAL_CACHE", gSettings.traceGlobal);

void raiseTo(std::atomic<uint64_t>& value, uint64_t candidate) {
    uint64_t seen = value.load(std::memory_order_relaxed);
    while (seen < candidate &&
           !value.compare_exchange_weak(seen, candidate, std::memory_order_relaxed)) {
    }
}

// An allocate in progress on this thread. Its eviction loop stops once a
// block freed by its own reclaims could hold the request: with the cache's
// shared lastFreedSize alone, a block freed by another thread's eviction could
// end the loop before this call had made room for itself, and two threads
// could then walk the used bytes past the target between them. leaveCache runs
// on the thread that reclaims, so its deallocate lands in the right record.
struct AllocateFrame {
    const TrenderCache* cache;
    uint64_t largestFreed;
    AllocateFrame* outer;
};
thread_local AllocateFrame* tInnermostAllocate = nullptr;

class AllocateScope {
public:
    explicit AllocateScope(const TrenderCache& cache) : fFrame{&cache, 0, tInnermostAllocate} {
        tInnermostAllocate = &fFrame;
    }
    ~AllocateScope() { tInnermostAllocate = fFrame.outer; }
    uint64_t largestFreed() const { return fFrame.largestFreed; }

private:
    AllocateFrame fFrame;
};

void noteFreedByThisThread(const TrenderCache& cache, uint64_t size) {
    for (AllocateFrame* frame = tInnermostAllocate; frame; frame = frame->outer) {
        if (frame->cache == &cache) {
            frame->largestFreed = std::max(frame->largestFreed, size);
            return;
        }
    }
}

} // namespace

const TrenderCache::Settings& TrenderCache::settings() {
    return gSettings;
}

void TrenderCache::readSettings() {
    gSettings = settingsFromEnvironment();
    gCacheTrace.setOn(gSettings.trace);
    gGlobalTrace.setOn(gSettings.traceGlobal);
    Tcache::readSettings();
}

// ---------------------------------------------------------------------------

void* TrenderCacheAllocator::allocate(size_t size) {
    return fCache.allocate(size);
}

void TrenderCacheAllocator::deallocate(void* block) {
    fCache.deallocate(block);
}

// ---------------------------------------------------------------------------

TrenderCache::TrenderCache(size_t maximumMemory, Tallocator& allocator)
    : TrenderCache(allocator, sDefaultPageSize, maximumMemory, sDefaultFitSearchLimit) {}

TrenderCache::TrenderCache(Tallocator& allocator, size_t pageSize, size_t maximumMemory,
                           unsigned fitSearchLimit)
    : fArena(allocator, pageSize, fitSearchLimit, "Render Cache"), fMaximumMemory(maximumMemory),
      fGrow(gSettings.grow) {
    if (!fGrow)
        gCacheTrace.print("TrenderCache: GROW_RENDER_CACHE disabled");
}

TrenderCache::~TrenderCache() {
    // The allocator object lives in the arena, which gives its memory back
    // with everything else.
    if (TrenderCacheAllocator* allocator = fAllocator.load(std::memory_order_acquire))
        allocator->~TrenderCacheAllocator();
}

void* TrenderCache::allocate(size_t size) {
    // Beyond this the target arithmetic could wrap; no arena serves it anyway.
    if (size > SIZE_MAX / 4)
        return nullptr;
    fLastFreedSize.store(0, std::memory_order_relaxed);
    AllocateScope scope(*this);
    int result = 0;
    while (fArena.usedSize() + size >= maximumMemorySize()) {
        result = reclaim(nullptr);
        // Stop when eviction fails, or once one freed block could hold the
        // request: the arena will reuse it.
        if (result != 0 || scope.largestFreed() >= size)
            break;
    }
    if (fArena.usedSize() + size >= maximumMemorySize() && growthEnabled() && result != 0) {
        beginMutex();
        fMaximumMemory.fetch_add(size + kGrowthMargin, std::memory_order_relaxed);
        endMutex();
    }
    return fArena.allocate(size);
}

void TrenderCache::deallocate(void* block) {
    if (!block)
        return;
    const size_t size = TmtVariantArena::blockSize(block);
    fArena.deallocate(block);
    raiseTo(fLastFreedSize, size);
    noteFreedByThisThread(*this, size);
}

Tallocator& TrenderCache::asArenaAllocator() {
    if (TrenderCacheAllocator* allocator = fAllocator.load(std::memory_order_acquire))
        return *allocator;
    int unclaimed = 0;
    if (fAllocatorClaim.compare_exchange_strong(unclaimed, 1, std::memory_order_acq_rel)) {
        void* memory = fArena.allocate(sizeof(TrenderCacheAllocator));
        if (!memory)
            throw std::bad_alloc();
        auto* allocator = new (memory) TrenderCacheAllocator(*this);
        fAllocator.store(allocator, std::memory_order_release);
        return *allocator;
    }
    // Another thread won the claim and is making it.
    TrenderCacheAllocator* allocator = nullptr;
    while (!(allocator = fAllocator.load(std::memory_order_acquire)))
        std::this_thread::yield();
    return *allocator;
}

void TrenderCache::setMaximumMemorySize(size_t size) {
    beginMutex();
    if (size > fMaximumMemory.load(std::memory_order_relaxed))
        fMaximumMemory.store(size, std::memory_order_relaxed);
    endMutex();
}

void TrenderCache::reallySetMaximumMemorySize(size_t size) {
    beginMutex();
    fMaximumMemory.store(size, std::memory_order_relaxed);
    endMutex();
}

// ---------------------------------------------------------------------------
// The global instance

namespace {

TrenderCache* makeGlobalRenderCache() {
    if (!gSettings.globalize)
        return nullptr;
    // Tcache's entry limit is set in another file, whose static initialiser
    // may not have run yet.
    Tcache::readSettings();
    gGlobalTrace.printf("Warning ORVO_RENDERER_GLOBALIZE_RENDER_CACHE is enabled. starting with {}",
                        TrenderCache::kGlobalStartSize);
    // Made once and never destroyed: clients may give memory back to it from
    // their own static destructors, in any order, up to the very end.
    return new TrenderCache(TrenderCache::kGlobalStartSize, theMallocAllocator());
}

TrenderCache* const gGlobalRenderCache = makeGlobalRenderCache();

} // namespace

TrenderCache* theGlobalRenderCache() {
    return gGlobalRenderCache;
}

TrenderCache* theGlobalRenderCache(size_t size) {
    displayGlobalRenderCacheFootPrint();
    if (!gGlobalRenderCache)
        return nullptr;
    gGlobalRenderCache->setMaximumMemorySize(size);
    gGlobalTrace.printf("Warning: setting global cache maximum memory size to {}", size);
    return gGlobalRenderCache;
}

void displayGlobalRenderCacheFootPrint() {
    TdbTraceSection section(gGlobalTrace);
    if (!section || !gGlobalRenderCache)
        return;
    section.printf("TrenderCache \"{}\": footprint {} bytes, used {} bytes, maximum {} bytes",
                   gGlobalRenderCache->name(), gGlobalRenderCache->footprint(),
                   gGlobalRenderCache->usedSize(), gGlobalRenderCache->maximumMemorySize());
}
