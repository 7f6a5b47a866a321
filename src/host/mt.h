#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

// Locks of the host core library. They are thin names over the standard ones
// so that code written against the host's vocabulary (enter/leave, broadcast)
// reads the same everywhere, and so that each also satisfies the standard
// Lockable requirements: std::lock_guard and std::unique_lock work on them.

// A non-recursive critical section. Entering it twice from one thread
// deadlocks, as with std::mutex.
class TmtCriticalSection {
public:
    TmtCriticalSection() = default;
    TmtCriticalSection(const TmtCriticalSection&) = delete;
    TmtCriticalSection& operator=(const TmtCriticalSection&) = delete;

    void enter() { fMutex.lock(); }
    void leave() { fMutex.unlock(); }
    bool tryEnter() { return fMutex.try_lock(); }

    // Lockable
    void lock() { fMutex.lock(); }
    void unlock() { fMutex.unlock(); }
    bool try_lock() { return fMutex.try_lock(); }

    std::mutex& native() { return fMutex; }

private:
    std::mutex fMutex;
};

// A critical section that the thread holding it may enter again; it is free
// once every enter has been matched by a leave.
class TmtRecursiveCS {
public:
    TmtRecursiveCS() = default;
    TmtRecursiveCS(const TmtRecursiveCS&) = delete;
    TmtRecursiveCS& operator=(const TmtRecursiveCS&) = delete;

    void enter() { fMutex.lock(); }
    void leave() { fMutex.unlock(); }
    bool tryEnter() { return fMutex.try_lock(); }

    void lock() { fMutex.lock(); }
    void unlock() { fMutex.unlock(); }
    bool try_lock() { return fMutex.try_lock(); }

private:
    std::recursive_mutex fMutex;
};

// The recursive mutex that nodes and the opus table hold across longer work.
// Same behaviour as TmtRecursiveCS; kept as its own type because callers name
// it separately.
class TmtRecursiveMutex {
public:
    TmtRecursiveMutex() = default;
    TmtRecursiveMutex(const TmtRecursiveMutex&) = delete;
    TmtRecursiveMutex& operator=(const TmtRecursiveMutex&) = delete;

    void lock() { fMutex.lock(); }
    void unlock() { fMutex.unlock(); }
    bool try_lock() { return fMutex.try_lock(); }
    bool tryLock() { return fMutex.try_lock(); }

private:
    std::recursive_mutex fMutex;
};

// A condition variable used together with a TmtCriticalSection. The caller
// holds the section when it calls wait(); wait releases it while sleeping and
// holds it again when it returns. Wake-ups may be spurious: callers re-check
// the state they wait for.
class TmtConditionVar {
public:
    TmtConditionVar() = default;
    TmtConditionVar(const TmtConditionVar&) = delete;
    TmtConditionVar& operator=(const TmtConditionVar&) = delete;

    void wait(TmtCriticalSection& section);

    // As wait(), but gives up after `timeout`. Returns false on time-out.
    bool waitFor(TmtCriticalSection& section, std::chrono::milliseconds timeout);

    // Wakes one waiter.
    void signal() { fCondition.notify_one(); }
    // Wakes every waiter.
    void broadcast() { fCondition.notify_all(); }

private:
    std::condition_variable fCondition;
};
