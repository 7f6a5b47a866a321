#pragma once

// TpyramidInventory: one pyramid per identifier, so that textures reading
// the same file share its pixels.
//
// Two arrays, one for render pyramids and one for swatch pyramids, are
// searched by identifier under one lock. Loading a file takes much longer
// than a search, so findPyramid also takes a lock of the identifier alone
// (from the mutex manager) and keeps it in the result it returns: a thread
// that finds nothing builds the pyramid and registers it before it lets the
// result go, while others asking for the same identifier wait for it and
// threads asking for other files go on.
//
// The inventory owns what is registered. freeUnusedPyramids gives a
// pyramid a frame of grace: it clears the needed flag of those that have it
// and deletes those that did not.

#include <cstddef>
#include <map>
#include <memory>
#include <mutex>

#include "host/mt.h"
#include "host/types.h"

class Tpyramid;
class TrenderCache;

// Locks by identifier, made on demand and dropped when nobody holds or
// waits for them.
class TpyramidMutexMgr {
public:
    void lock(const Tstring& identifier);
    void unlock(const Tstring& identifier);
    // Identifiers with a lock held or waited for.
    size_t activeCount();

private:
    struct Entry {
        std::mutex mutex;
        unsigned users = 0;
    };
    std::mutex fGuard;
    std::map<Tstring, std::unique_ptr<Entry>> fLocks;
};

class TpyramidInventory {
public:
    // What findPyramid found. When no pyramid was found the result holds
    // the identifier's lock until it is destroyed or released: register the
    // new pyramid first.
    class TfindResult {
    public:
        TfindResult() = default;
        TfindResult(TfindResult&& other) noexcept;
        TfindResult& operator=(TfindResult&& other) noexcept;
        ~TfindResult();

        Tpyramid* pyramid() const { return fPyramid; }
        bool found() const { return fPyramid != nullptr; }
        // Lets the identifier's lock go.
        void release();

    private:
        friend class TpyramidInventory;
        Tpyramid* fPyramid = nullptr;
        Tstring fIdentifier;
        bool fLocked = false;
    };

    // The render cache that memory pyramids allocate from. Null: the global
    // one, or a private one when there is no global cache.
    static void init(TrenderCache* cache);
    static TrenderCache* renderCache();
    static void* allocate(size_t bytes);
    static void deallocate(void* block);

    // The pyramid registered under `identifier` among the swatch or the
    // render pyramids, marked needed.
    static TfindResult findPyramid(const Tstring& identifier, bool swatch);
    // Takes ownership; the pyramid enters the array of its kind.
    static void registerPyramid(Tpyramid* pyramid);
    // Takes the pyramid out of the inventory and deletes it. False when it
    // was not registered (it is not deleted then).
    static bool unregisterPyramid(Tpyramid* pyramid);
    // Deletes the render pyramids not needed since the last call; clears
    // the needed flag of the others.
    static void freeUnusedPyramids();
    // Deletes every pyramid of both arrays.
    static void freeAllPyramids();
    static size_t count(bool swatch);

private:
    static TmtCriticalSection fsSharedStorage;
    static TpyramidMutexMgr fsMutexMgr;
};
