#include "cache/cache.h"

#include <cassert>

#include "host/env.h"

TcacheEntry::~TcacheEntry() = default;

int TcacheEntry::enterCache(void*) {
    return 0;
}

int TcacheEntry::leaveCache(void*) {
    return 0;
}

// ---------------------------------------------------------------------------

void TlruOfTcacheProxy::add(TcacheProxy& proxy) {
    proxy.fLruPrevious = nullptr;
    proxy.fLruNext = fMru;
    if (fMru)
        fMru->fLruPrevious = &proxy;
    else
        fLru = &proxy;
    fMru = &proxy;
}

void TlruOfTcacheProxy::remove(TcacheProxy& proxy) {
    if (proxy.fLruPrevious)
        proxy.fLruPrevious->fLruNext = proxy.fLruNext;
    else
        fMru = proxy.fLruNext;
    if (proxy.fLruNext)
        proxy.fLruNext->fLruPrevious = proxy.fLruPrevious;
    else
        fLru = proxy.fLruPrevious;
    proxy.fLruNext = nullptr;
    proxy.fLruPrevious = nullptr;
}

// ---------------------------------------------------------------------------

namespace {

uint64_t maxEntriesFromEnvironment() {
    // -1 and other negative values wrap to a count no cache reaches.
    return static_cast<uint64_t>(OrvoGetEnvInt("LIMIT_CACHE_SIZE", -1));
}

bool isMoving(TcacheEntry::eState state) {
    return state == TcacheEntry::kEntering || state == TcacheEntry::kLeaving;
}

} // namespace

uint64_t Tcache::sDefaultMaxEntryCount = maxEntriesFromEnvironment();

void Tcache::readSettings() {
    sDefaultMaxEntryCount = maxEntriesFromEnvironment();
}

Tcache::Tcache() : fMaxEntries(sDefaultMaxEntryCount) {}

Tcache::~Tcache() = default;

int Tcache::lock(TcacheProxy& proxy, void* context) {
    beginMutex();
    for (;;) {
        switch (proxy.state()) {
        case TcacheEntry::kOut: {
            proxy.addToLockCount(1);
            proxy.setState(TcacheEntry::kEntering);
            endMutex();
            const int result = proxy.enterCache(context);
            beginMutex();
            const TcacheEntry::eState was = proxy.state();
            if (result == 0) {
                proxy.setState(TcacheEntry::kLocked);
            } else {
                // The entry did not come in: this caller holds nothing, and a
                // hold counted for it would keep the entry off the list for
                // good once it does come in.
                proxy.addToLockCount(-1);
                proxy.setState(TcacheEntry::kOut);
            }
            if (isMoving(was))
                broadcast();
            endMutex();
            return result;
        }
        case TcacheEntry::kEntering:
        case TcacheEntry::kLeaving:
            // Another thread is moving the entry: sleep until it is done and
            // look again.
            wait();
            continue;
        case TcacheEntry::kLocked:
            proxy.addToLockCount(1);
            endMutex();
            return 0;
        case TcacheEntry::kUnlocked:
            remove(proxy);
            addToCount(-1);
            proxy.addToLockCount(1);
            proxy.setState(TcacheEntry::kLocked);
            endMutex();
            return 0;
        }
        assert(false && "cache entry in an unknown state");
        endMutex();
        return -1;
    }
}

int Tcache::unlock(TcacheProxy& proxy, void* context) {
    beginMutex();
    if (proxy.lockCount() <= 0) {
        // An unlock without a lock: nothing is held, so nothing changes.
        endMutex();
        return 0;
    }
    if (proxy.addToLockCount(-1) != 0) {
        endMutex();
        return 0;
    }
    add(proxy);
    const TcacheEntry::eState was = proxy.state();
    proxy.setState(TcacheEntry::kUnlocked);
    if (isMoving(was))
        broadcast();
    const uint64_t entries = addToCount(1);
    if (entries >= maxEntries()) {
        unProtectedReclaim(lru(), context);
        return 0;
    }
    endMutex();
    return 0;
}

int Tcache::reclaim(void* context) {
    beginMutex();
    return unProtectedReclaim(lru(), context);
}

int Tcache::removeProxy(TcacheProxy& proxy, void* context) {
    beginMutex();
    if (proxy.lockCount() == 0 && proxy.state() == TcacheEntry::kUnlocked)
        return unProtectedReclaim(&proxy, context);
    endMutex();
    return 0;
}

int Tcache::unProtectedReclaim(TcacheProxy* proxy, void* context) {
    if (!proxy) {
        endMutex();
        return kNothingToReclaim;
    }
    remove(*proxy);
    addToCount(-1);
    const TcacheEntry::eState was = proxy->state();
    proxy->setState(TcacheEntry::kLeaving);
    endMutex();

    // No lock is held across the move: it may write to disk.
    const int result = proxy->leaveCache(context);

    beginMutex();
    if (result == TcacheEntry::kRefuse) {
        add(*proxy);
        addToCount(1);
        if (proxy->state() == TcacheEntry::kLeaving) {
            proxy->setState(was);
            if (!isMoving(was))
                broadcast();
        }
    } else if (proxy->state() == TcacheEntry::kLeaving) {
        proxy->setState(TcacheEntry::kOut);
        broadcast();
    }
    endMutex();
    return result;
}
