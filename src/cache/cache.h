#pragma once

#include <atomic>
#include <cstdint>

#include "host/mt.h"

// An LRU cache of entries that can leave memory and come back.
//
// An entry is in memory while someone holds it (locked) or while it waits on
// the LRU list to be evicted (unlocked). Bringing data in (enterCache) and
// sending it out (leaveCache) may mean disk work, so the cache never runs
// them inside its critical section: the entry is marked as moving, the
// section is left for the call, and threads that want the entry meanwhile
// sleep on the condition variable until the move is over.

class TcacheEntry {
public:
    enum eState : int32_t {
        kOut = 0,      // not in memory
        kEntering = 1, // enterCache is running
        kLeaving = 2,  // leaveCache is running
        kLocked = 3,   // in memory and held
        kUnlocked = 4, // in memory, on the LRU list, may be evicted
    };

    // What leaveCache returns when the entry declines to leave and stays in
    // memory.
    static constexpr int kRefuse = 1;

    virtual ~TcacheEntry();
    // Brings the entry's data into memory. 0 on success.
    virtual int enterCache(void* context);
    // Moves the entry's data out of memory. 0 on success, kRefuse to stay.
    virtual int leaveCache(void* context);
};

class TlruOfTcacheProxy;
class Tcache;

// A cache entry with the bookkeeping the cache keeps on it. The fields
// change only inside the owning cache's critical section; the queries may be
// asked from anywhere, and tell the state at that moment.
class TcacheProxy : public TcacheEntry {
public:
    TcacheProxy() = default;
    TcacheProxy(const TcacheProxy&) = delete;
    TcacheProxy& operator=(const TcacheProxy&) = delete;

    eState state() const { return fState.load(std::memory_order_relaxed); }
    int32_t lockCount() const { return fLockCount.load(std::memory_order_relaxed); }

    // leaveCache is running.
    bool beingDeleted() const { return state() == kLeaving; }
    // The data is in memory, held or not.
    bool inCache() const { return state() == kLocked || state() == kUnlocked; }
    // On the LRU list, free to be evicted.
    bool inLRU() const { return state() == kUnlocked; }

    TcacheProxy* lruNext() const { return fLruNext; }
    TcacheProxy* lruPrevious() const { return fLruPrevious; }

private:
    friend class TlruOfTcacheProxy;
    friend class Tcache;

    void setState(eState state) { fState.store(state, std::memory_order_relaxed); }
    // Counts change only inside the cache's critical section, so a plain load
    // and store do; they are atomic only so that the queries may read them
    // from outside. Returns the new count.
    int32_t addToLockCount(int32_t delta) {
        const int32_t count = fLockCount.load(std::memory_order_relaxed) + delta;
        fLockCount.store(count, std::memory_order_relaxed);
        return count;
    }

    std::atomic<int32_t> fLockCount{0};
    std::atomic<eState> fState{kOut};
    TcacheProxy* fLruNext = nullptr;     // towards the least recently used end
    TcacheProxy* fLruPrevious = nullptr; // towards the most recently used end
};

// The doubly linked LRU list. Not locked by itself.
class TlruOfTcacheProxy {
public:
    TlruOfTcacheProxy() = default;
    TlruOfTcacheProxy(const TlruOfTcacheProxy&) = delete;
    TlruOfTcacheProxy& operator=(const TlruOfTcacheProxy&) = delete;

    TcacheProxy* mru() const { return fMru; }
    TcacheProxy* lru() const { return fLru; }

    // Puts the proxy at the most recently used end.
    void add(TcacheProxy& proxy);
    // Unlinks the proxy, which must be on this list.
    void remove(TcacheProxy& proxy);

private:
    TcacheProxy* fMru = nullptr;
    TcacheProxy* fLru = nullptr;
};

class Tcache : public TlruOfTcacheProxy {
public:
    // Result of reclaim when there is nothing on the list to evict.
    static constexpr int kNothingToReclaim = 3;

    // The entry count at which unlock evicts at once: LIMIT_CACHE_SIZE, read
    // when the library loads; -1 (no limit in practice) when unset.
    static uint64_t sDefaultMaxEntryCount;
    // Reads LIMIT_CACHE_SIZE again (tests change it).
    static void readSettings();

    Tcache();
    virtual ~Tcache();

    // Makes sure the entry's data is in memory and holds it there. 0 on
    // success, otherwise what enterCache returned; a failed lock holds
    // nothing.
    int lock(TcacheProxy& proxy, void* context);
    // Lets go of one hold. The last one puts the entry on the LRU list. Always 0.
    int unlock(TcacheProxy& proxy, void* context);
    // Evicts the least recently used entry: 0 on success, kNothingToReclaim
    // when the list is empty, otherwise what leaveCache returned.
    int reclaim(void* context);
    // Evicts this entry now if nobody holds it and it is on the list; what
    // leaveCache returned, or 0 when there was nothing to do. An owner calls
    // this before destroying a proxy, and must not destroy it while it is
    // still inLRU() (leaveCache refused).
    int removeProxy(TcacheProxy& proxy, void* context);

    void beginMutex() { fSection.enter(); }
    void endMutex() { fSection.leave(); }
    // Wakes every thread waiting for an entry to finish moving.
    void broadcast() { fCondition.broadcast(); }
    // Sleeps until a broadcast; the caller holds the mutex.
    void wait() { fCondition.wait(fSection); }

    // Entries on the LRU list.
    uint64_t count() const { return fCount.load(std::memory_order_relaxed); }
    uint64_t maxEntries() const { return fMaxEntries.load(std::memory_order_relaxed); }
    void setMaxEntries(uint64_t maxEntries) {
        fMaxEntries.store(maxEntries, std::memory_order_relaxed);
    }

private:
    // Evicts `proxy` (which may be null); called holding the mutex, returns
    // having released it.
    int unProtectedReclaim(TcacheProxy* proxy, void* context);
    // Under the mutex; see TcacheProxy::addToLockCount.
    uint64_t addToCount(int delta) {
        const uint64_t entries =
            fCount.load(std::memory_order_relaxed) + static_cast<uint64_t>(delta);
        fCount.store(entries, std::memory_order_relaxed);
        return entries;
    }

    std::atomic<uint64_t> fCount{0};
    std::atomic<uint64_t> fMaxEntries;
    TmtCriticalSection fSection;
    TmtConditionVar fCondition;
};
