#include "trace/Clock.h"

namespace {

// The same seconds-since-1970 value as the C library's time(). That one asks
// for the time-zone information on every call in some runtimes, which made
// a disabled trace statement cost microseconds.
time_t RealTime(time_t *out) {
    FILETIME ft;
    ::GetSystemTimeAsFileTime(&ft);
    ULARGE_INTEGER ticks;
    ticks.LowPart = ft.dwLowDateTime;
    ticks.HighPart = ft.dwHighDateTime;
    const time_t now = static_cast<time_t>((ticks.QuadPart - 116444736000000000ULL) / 10000000ULL);
    if (out) *out = now;
    return now;
}

bool RealLocaltime(time_t t, struct tm *out) {
    // msvcrt's localtime keeps its result in thread-local storage, so the
    // copy is taken before anything else on this thread can overwrite it.
    const struct tm *p = ::localtime(&t);
    if (!p) return false;
    *out = *p;
    return true;
}

bool RealGmtime(time_t t, struct tm *out) {
    const struct tm *p = ::gmtime(&t);
    if (!p) return false;
    *out = *p;
    return true;
}

void RealGetSystemTime(SYSTEMTIME *out) { ::GetSystemTime(out); }

DWORD RealGetTickCount() { return ::GetTickCount(); }

const ClockApi kReal = {RealTime, RealLocaltime, RealGmtime, RealGetSystemTime, RealGetTickCount};

ClockApi g_current = kReal;

}  // namespace

ClockApi &Clock() { return g_current; }

const ClockApi &RealClock() { return kReal; }
