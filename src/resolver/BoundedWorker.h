// Work the caller must not wait for without bound: a download from a server
// that may never answer, a script that may never return. Neither WinINet
// nor the script engine can be stopped from outside a blocked call, so the
// work runs on a thread of its own and the caller waits for it against two
// deadlines: one since the work last made progress, one since it began.
// When a deadline passes the caller goes on without it; the worker is
// abandoned and ends by itself whenever its call lets go.
#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <functional>

class tracefunc;

// No deadline of that kind.
const DWORD kNoBound = INFINITE;

// Seconds of a registry value as milliseconds, short of "no bound".
inline DWORD BoundFromSeconds(uint32_t seconds) {
    const uint64_t ms = static_cast<uint64_t>(seconds) * 1000;
    return ms < kNoBound ? static_cast<DWORD>(ms) : kNoBound - 1;
}

struct WaitBounds {
    DWORD progressMs;  // since the last progress (the start counts as one)
    DWORD totalMs;     // since the start
};

enum class WaitVerdict { Wait, Stalled, TimedOut };

struct WaitDecision {
    WaitVerdict verdict;
    DWORD waitMs;  // how long to wait before deciding again (Wait only)
};

// The decision of the waiting caller from three tick readings; wraps of the
// 32-bit tick counter are harmless. The total bound is named first when
// both have passed.
WaitDecision NextWait(DWORD now, DWORD lastProgress, DWORD start, const WaitBounds &bounds);

// What the work reports: each call marks progress now.
class WorkProgress {
public:
    explicit WorkProgress(DWORD start) : lastTick_(start) {}
    void Mark() { lastTick_.store(GetTickCount()); }
    DWORD lastTick() const { return lastTick_.load(); }

private:
    std::atomic<DWORD> lastTick_;
};

enum class BoundedOutcome {
    Done,      // the work finished within both bounds
    Stalled,   // no progress within the progress bound: abandoned
    TimedOut,  // the total bound passed: abandoned
    Refused,   // too many abandoned workers still run; the work never started
    NoThread,  // no thread could be made; the work never started
};

// At most this many abandoned workers at once, so that a hostile server
// cannot make the process pile up threads.
const long kMaxAbandonedWorkers = 8;

struct BoundedRun {
    BoundedOutcome outcome;
    DWORD threadId;  // the worker's, when one started
};

// Runs work on a new thread and waits for it within the bounds. The work
// must own everything it touches (capture shared state by value, nothing
// of the caller's stack or objects): an abandoned worker outlives the call.
// onStart runs on the caller's thread once the worker exists, onExpiry
// when a bound has passed, before the caller goes on. The worker keeps the
// module loaded and the module's lock count up while it runs, and runs
// under the caller's impersonation token when there is one. Nothing the
// work throws leaves the worker.
BoundedRun RunBounded(std::function<void(WorkProgress &)> work, const WaitBounds &bounds,
                      const std::function<void(DWORD threadId)> &onStart,
                      const std::function<void()> &onExpiry);

// The one trace line of a worker that never started (Refused or NoThread),
// its first word naming the work ("Download", "Script"). Called straight
// after RunBounded: a failed start's error is still the last error.
void TraceNeverStarted(BoundedOutcome outcome, const char *work, tracefunc &tf);

// Abandoned workers still running.
long AbandonedWorkers();
// Waits up to ms for every abandoned worker to end; true when none runs.
bool WaitForAbandonedWorkers(DWORD ms);
