#include "util/Platform.h"

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

HMODULE RealLoadLibraryA(const char *name) { return ::LoadLibraryA(name); }

// WinINet is bound on first use so that the library loads where
// wininet.dll is absent.
template <class F>
F WininetFunction(const char *name) {
    static HMODULE module = ::LoadLibraryA("wininet.dll");
    return module ? reinterpret_cast<F>(reinterpret_cast<void *>(::GetProcAddress(module, name)))
                  : nullptr;
}

BOOL RealInternetQueryOptionA(HINTERNET session, DWORD option, void *buffer, DWORD *length) {
    using Fn = BOOL(WINAPI *)(HINTERNET, DWORD, void *, DWORD *);
    static Fn fn = WininetFunction<Fn>("InternetQueryOptionA");
    if (!fn) {
        ::SetLastError(ERROR_PROC_NOT_FOUND);
        return FALSE;
    }
    return fn(session, option, buffer, length);
}

BOOL RealAllocateAndInitializeSid(PSID_IDENTIFIER_AUTHORITY authority, BYTE count, DWORD s0,
                                  DWORD s1, DWORD s2, DWORD s3, DWORD s4, DWORD s5, DWORD s6,
                                  DWORD s7, PSID *sid) {
    return ::AllocateAndInitializeSid(authority, count, s0, s1, s2, s3, s4, s5, s6, s7, sid);
}

BOOL RealOpenProcessToken(HANDLE process, DWORD access, HANDLE *token) {
    return ::OpenProcessToken(process, access, token);
}

BOOL RealGetTokenInformation(HANDLE token, TOKEN_INFORMATION_CLASS kind, void *buffer, DWORD size,
                             DWORD *needed) {
    return ::GetTokenInformation(token, kind, buffer, size, needed);
}

const PlatformApi kReal = {
    RealTime,
    RealLocaltime,
    RealGmtime,
    RealGetSystemTime,
    RealGetTickCount,
    RealLoadLibraryA,
    RealInternetQueryOptionA,
    RealAllocateAndInitializeSid,
    RealOpenProcessToken,
    RealGetTokenInformation,
};

PlatformApi g_current = kReal;

}  // namespace

PlatformApi &Platform() { return g_current; }

const PlatformApi &RealPlatform() { return kReal; }
