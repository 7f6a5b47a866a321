#pragma once

#include <iosfwd>

#include "host/mt.h"
#include "host/types.h"

// Timers for render statistics. Times are seconds in a double: fine enough
// for microseconds over years, and plain to add up across threads.
class TrunTime {
public:
    TrunTime() = default;
    explicit TrunTime(double seconds) : fSeconds(seconds) {}

    double seconds() const { return fSeconds; }
    void reset() { fSeconds = 0.0; }

    TrunTime& operator+=(const TrunTime& other) {
        fSeconds += other.fSeconds;
        return *this;
    }
    TrunTime& operator-=(const TrunTime& other) {
        fSeconds -= other.fSeconds;
        return *this;
    }

    // Seconds with three decimals, e.g. "12.345".
    explicit operator Tstring() const;

    // Wall-clock time on a steady clock, from an arbitrary origin: only
    // differences mean anything. Never goes back.
    static TrunTime currentTime();
    // Wall-clock time since the library was loaded.
    static TrunTime applicationTime();
    // Processor time used by the whole process (all threads, user and system).
    static TrunTime processTime();
    // Processor time used by the calling thread.
    static TrunTime threadTime();

private:
    double fSeconds = 0.0;
};

// As the Tstring conversion.
std::ostream& operator<<(std::ostream& out, const TrunTime& time);

// Adds to a TrunTime the time that a scope took, on one clock each: wall
// time, process time, the calling thread's time.
class TscopeRunTime {
public:
    explicit TscopeRunTime(TrunTime& total) : fTotal(total), fStart(TrunTime::currentTime()) {}
    ~TscopeRunTime();
    TscopeRunTime(const TscopeRunTime&) = delete;
    TscopeRunTime& operator=(const TscopeRunTime&) = delete;

private:
    TrunTime& fTotal;
    TrunTime fStart;
};

class TscopeProcessRunTime {
public:
    explicit TscopeProcessRunTime(TrunTime& total)
        : fTotal(total), fStart(TrunTime::processTime()) {}
    ~TscopeProcessRunTime();
    TscopeProcessRunTime(const TscopeProcessRunTime&) = delete;
    TscopeProcessRunTime& operator=(const TscopeProcessRunTime&) = delete;

private:
    TrunTime& fTotal;
    TrunTime fStart;
};

class TscopeThreadRunTime {
public:
    explicit TscopeThreadRunTime(TrunTime& total) : fTotal(total), fStart(TrunTime::threadTime()) {}
    ~TscopeThreadRunTime();
    TscopeThreadRunTime(const TscopeThreadRunTime&) = delete;
    TscopeThreadRunTime& operator=(const TscopeThreadRunTime&) = delete;

private:
    TrunTime& fTotal;
    TrunTime fStart;
};

// Wall time during which at least one thread was inside a stretch of work,
// counted once however many threads were in it together: the elapsed time of
// a parallel phase, where summing each thread's time would count the overlap
// as often as there were threads.
class TmpRunTime {
public:
    TmpRunTime() = default;
    TmpRunTime(const TmpRunTime&) = delete;
    TmpRunTime& operator=(const TmpRunTime&) = delete;

    // The calling thread starts (enter) or ends (leave) its work.
    void enter();
    void leave();

    // The time accumulated so far. While threads are inside, the stretch
    // since the last enter is not in it yet.
    double seconds();
    unsigned threadsInside();
    void reset();

private:
    double fAccumulated = 0.0;
    TmtCriticalSection fSection;
    double fLastStamp = 0.0;
    unsigned fInside = 0;
};

// Enters a TmpRunTime for the life of the scope.
class TmpScopeRunTime {
public:
    explicit TmpScopeRunTime(TmpRunTime& time) : fTime(time) { fTime.enter(); }
    ~TmpScopeRunTime() { fTime.leave(); }
    TmpScopeRunTime(const TmpScopeRunTime&) = delete;
    TmpScopeRunTime& operator=(const TmpScopeRunTime&) = delete;

private:
    TmpRunTime& fTime;
};
