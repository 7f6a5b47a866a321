#include "textures/pyramid_inventory.h"

#include <algorithm>
#include <atomic>
#include <vector>

#include "cache/render_cache.h"
#include "textures/pyramid.h"

TmtCriticalSection TpyramidInventory::fsSharedStorage;
TpyramidMutexMgr TpyramidInventory::fsMutexMgr;

namespace {

// Never destroyed: what is registered when the process ends stays owned
// (and reachable) to the end, rather than freed by static destructors that
// run in no set order with the caches the pyramids use.
std::vector<Tpyramid*>& fsPyramidArray = *new std::vector<Tpyramid*>;
std::vector<Tpyramid*>& fsSwatchPyramidArray = *new std::vector<Tpyramid*>;

std::atomic<TrenderCache*> gCache{nullptr};

std::vector<Tpyramid*>& arrayOf(bool swatch) {
    return swatch ? fsSwatchPyramidArray : fsPyramidArray;
}

} // namespace

// ---- per-identifier locks

void TpyramidMutexMgr::lock(const Tstring& identifier) {
    Entry* entry;
    {
        std::lock_guard guard(fGuard);
        auto& slot = fLocks[identifier];
        if (!slot)
            slot = std::make_unique<Entry>();
        entry = slot.get();
        ++entry->users;
    }
    entry->mutex.lock();
}

void TpyramidMutexMgr::unlock(const Tstring& identifier) {
    std::lock_guard guard(fGuard);
    auto it = fLocks.find(identifier);
    if (it == fLocks.end())
        return;
    it->second->mutex.unlock();
    if (--it->second->users == 0)
        fLocks.erase(it);
}

size_t TpyramidMutexMgr::activeCount() {
    std::lock_guard guard(fGuard);
    return fLocks.size();
}

// ---- the find result

TpyramidInventory::TfindResult::TfindResult(TfindResult&& other) noexcept
    : fPyramid(other.fPyramid), fIdentifier(std::move(other.fIdentifier)), fLocked(other.fLocked) {
    other.fLocked = false;
    other.fPyramid = nullptr;
}

TpyramidInventory::TfindResult&
TpyramidInventory::TfindResult::operator=(TfindResult&& other) noexcept {
    if (this != &other) {
        release();
        fPyramid = other.fPyramid;
        fIdentifier = std::move(other.fIdentifier);
        fLocked = other.fLocked;
        other.fLocked = false;
        other.fPyramid = nullptr;
    }
    return *this;
}

TpyramidInventory::TfindResult::~TfindResult() {
    release();
}

void TpyramidInventory::TfindResult::release() {
    if (fLocked)
        fsMutexMgr.unlock(fIdentifier);
    fLocked = false;
}

// ---- storage

void TpyramidInventory::init(TrenderCache* cache) {
    gCache.store(cache);
}

TrenderCache* TpyramidInventory::renderCache() {
    if (TrenderCache* cache = gCache.load())
        return cache;
    if (TrenderCache* global = theGlobalRenderCache())
        return global;
    // No global cache: a private one, made once and kept.
    static TrenderCache* const privateCache =
        new TrenderCache(TrenderCache::kPrivateCacheSize, theMallocAllocator());
    return privateCache;
}

void* TpyramidInventory::allocate(size_t bytes) {
    return renderCache()->allocate(bytes);
}

void TpyramidInventory::deallocate(void* block) {
    renderCache()->deallocate(block);
}

// ---- the arrays

TpyramidInventory::TfindResult TpyramidInventory::findPyramid(const Tstring& identifier,
                                                              bool swatch) {
    TfindResult result;
    // The identifier's lock first, holding no array lock: a thread loading
    // another file never waits here.
    fsMutexMgr.lock(identifier);
    result.fIdentifier = identifier;
    result.fLocked = true;
    {
        std::lock_guard lock(fsSharedStorage);
        for (Tpyramid* pyramid : arrayOf(swatch))
            if (pyramid->identifier() == identifier) {
                pyramid->setNeeded(true);
                result.fPyramid = pyramid;
                break;
            }
    }
    if (result.fPyramid)
        result.release();
    return result;
}

void TpyramidInventory::registerPyramid(Tpyramid* pyramid) {
    if (!pyramid)
        return;
    std::lock_guard lock(fsSharedStorage);
    std::vector<Tpyramid*>& array = arrayOf(pyramid->isSwatch());
    if (std::find(array.begin(), array.end(), pyramid) == array.end()) {
        pyramid->setNeeded(true);
        array.push_back(pyramid);
    }
}

bool TpyramidInventory::unregisterPyramid(Tpyramid* pyramid) {
    if (!pyramid)
        return false;
    {
        std::lock_guard lock(fsSharedStorage);
        std::vector<Tpyramid*>& array = arrayOf(pyramid->isSwatch());
        const auto it = std::find(array.begin(), array.end(), pyramid);
        if (it == array.end())
            return false;
        array.erase(it);
    }
    delete pyramid;
    return true;
}

void TpyramidInventory::freeUnusedPyramids() {
    std::vector<Tpyramid*> unused;
    {
        std::lock_guard lock(fsSharedStorage);
        auto kept = std::stable_partition(fsPyramidArray.begin(), fsPyramidArray.end(),
                                          [](Tpyramid* p) { return p->needed(); });
        unused.assign(kept, fsPyramidArray.end());
        fsPyramidArray.erase(kept, fsPyramidArray.end());
        for (Tpyramid* p : fsPyramidArray)
            p->setNeeded(false);
    }
    for (Tpyramid* p : unused)
        delete p;
}

void TpyramidInventory::freeAllPyramids() {
    std::vector<Tpyramid*> all;
    {
        std::lock_guard lock(fsSharedStorage);
        all.swap(fsPyramidArray);
        all.insert(all.end(), fsSwatchPyramidArray.begin(), fsSwatchPyramidArray.end());
        fsSwatchPyramidArray.clear();
    }
    for (Tpyramid* p : all)
        delete p;
}

size_t TpyramidInventory::count(bool swatch) {
    std::lock_guard lock(fsSharedStorage);
    return arrayOf(swatch).size();
}
