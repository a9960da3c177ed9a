// The one seam between the library and the platform calls whose answers a
// test cannot arrange through real Wine components: the clock now, and the
// WinINet settings, IP Helper, NetBIOS, service manager and token queries as
// the subsystems that use them arrive. Production binds every entry to the
// real API; a test swaps entries through ScopedPlatform and gets the real
// table back when the scope ends.
#pragma once

#include <windows.h>
#include <wininet.h>

#include <ctime>

struct PlatformApi {
    // Clock.
    time_t (*time)(time_t *out);
    bool (*localtime)(time_t t, struct tm *out);
    bool (*gmtime)(time_t t, struct tm *out);
    void (*GetSystemTime)(SYSTEMTIME *out);
    DWORD (*GetTickCount)();

    // Presence tests of optional system libraries ("wininet.dll",
    // "iphlpapi.dll"); null means absent.
    HMODULE (*LoadLibraryA)(const char *name);

    // WinINet settings queries, bound to wininet.dll on first use.
    BOOL (*InternetQueryOptionA)(HINTERNET session, DWORD option, void *buffer, DWORD *length);

    // The process token, for the local-system test.
    BOOL (*AllocateAndInitializeSid)(PSID_IDENTIFIER_AUTHORITY authority, BYTE count, DWORD s0,
                                     DWORD s1, DWORD s2, DWORD s3, DWORD s4, DWORD s5, DWORD s6,
                                     DWORD s7, PSID *sid);
    BOOL (*OpenProcessToken)(HANDLE process, DWORD access, HANDLE *token);
    BOOL (*GetTokenInformation)(HANDLE token, TOKEN_INFORMATION_CLASS kind, void *buffer,
                                DWORD size, DWORD *needed);
};

// The table in force; callers read it on every call so that a swap takes
// effect at once.
PlatformApi &Platform();

// The production bindings.
const PlatformApi &RealPlatform();

// Restores the table it found when it goes out of scope.
class ScopedPlatform {
public:
    ScopedPlatform() : saved_(Platform()) {}
    ~ScopedPlatform() { Platform() = saved_; }
    ScopedPlatform(const ScopedPlatform &) = delete;
    ScopedPlatform &operator=(const ScopedPlatform &) = delete;
    PlatformApi *operator->() { return &Platform(); }

private:
    PlatformApi saved_;
};
