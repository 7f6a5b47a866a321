#include "shading/run_time.h"

#include <chrono>
#include <ctime>
#include <mutex>
#include <ostream>

#include <fmt/format.h>

namespace {

using SteadyClock = std::chrono::steady_clock;

// Taken while the library loads, which is as near the start of the
// application as the render model can see.
const SteadyClock::time_point gApplicationStart = SteadyClock::now();

double secondsOf(SteadyClock::duration duration) {
    return std::chrono::duration<double>(duration).count();
}

// The standard library's one processor clock, std::clock, counts the whole
// process; a thread's own time needs the POSIX clocks, so both use them.
double cpuSeconds(clockid_t clock) {
    timespec now{};
    if (clock_gettime(clock, &now) != 0)
        return 0.0;
    return double(now.tv_sec) + double(now.tv_nsec) * 1e-9;
}

} // namespace

// --- TrunTime

TrunTime::operator Tstring() const {
    return fmt::format("{:.3f}", fSeconds);
}

std::ostream& operator<<(std::ostream& out, const TrunTime& time) {
    return out << Tstring(time);
}

TrunTime TrunTime::currentTime() {
    return TrunTime(secondsOf(SteadyClock::now().time_since_epoch()));
}

TrunTime TrunTime::applicationTime() {
    return TrunTime(secondsOf(SteadyClock::now() - gApplicationStart));
}

TrunTime TrunTime::processTime() {
    return TrunTime(cpuSeconds(CLOCK_PROCESS_CPUTIME_ID));
}

TrunTime TrunTime::threadTime() {
    return TrunTime(cpuSeconds(CLOCK_THREAD_CPUTIME_ID));
}

// --- scopes

TscopeRunTime::~TscopeRunTime() {
    fTotal += TrunTime::currentTime();
    fTotal -= fStart;
}

TscopeProcessRunTime::~TscopeProcessRunTime() {
    fTotal += TrunTime::processTime();
    fTotal -= fStart;
}

TscopeThreadRunTime::~TscopeThreadRunTime() {
    fTotal += TrunTime::threadTime();
    fTotal -= fStart;
}

// --- TmpRunTime

// The stamp marks the last moment up to which the accumulated time is
// complete. While threads are inside, each enter brings the total up to date
// before moving the stamp; the last leave closes the stretch. Leaves that
// are not the last add nothing: the time stays open for those still inside.
void TmpRunTime::enter() {
    std::lock_guard held(fSection);
    const double now = TrunTime::currentTime().seconds();
    if (++fInside > 1)
        fAccumulated += now - fLastStamp;
    fLastStamp = now;
}

void TmpRunTime::leave() {
    std::lock_guard held(fSection);
    if (fInside == 0)
        return; // unmatched: nothing is open
    if (--fInside == 0)
        fAccumulated += TrunTime::currentTime().seconds() - fLastStamp;
}

double TmpRunTime::seconds() {
    std::lock_guard held(fSection);
    return fAccumulated;
}

unsigned TmpRunTime::threadsInside() {
    std::lock_guard held(fSection);
    return fInside;
}

void TmpRunTime::reset() {
    std::lock_guard held(fSection);
    fAccumulated = 0.0;
    fLastStamp = TrunTime::currentTime().seconds();
}
