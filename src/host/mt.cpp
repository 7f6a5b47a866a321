#include "host/mt.h"

// The section is already held by the caller: the unique_lock adopts it for
// the wait and lets go of the ownership afterwards, so the caller still holds
// the section when wait returns, exactly as before the call.

void TmtConditionVar::wait(TmtCriticalSection& section) {
    std::unique_lock<std::mutex> held(section.native(), std::adopt_lock);
    fCondition.wait(held);
    held.release();
}

bool TmtConditionVar::waitFor(TmtCriticalSection& section, std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> held(section.native(), std::adopt_lock);
    const bool woken = fCondition.wait_for(held, timeout) == std::cv_status::no_timeout;
    held.release();
    return woken;
}
