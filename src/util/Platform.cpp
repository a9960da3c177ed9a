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

HINTERNET RealInternetOpenA(const char *agent, DWORD accessType, const char *proxy,
                            const char *bypass, DWORD flags) {
    using Fn = HINTERNET(WINAPI *)(LPCSTR, DWORD, LPCSTR, LPCSTR, DWORD);
    static Fn fn = WininetFunction<Fn>("InternetOpenA");
    if (!fn) {
        ::SetLastError(ERROR_PROC_NOT_FOUND);
        return nullptr;
    }
    return fn(agent, accessType, proxy, bypass, flags);
}

BOOL RealInternetSetOptionA(HINTERNET handle, DWORD option, void *buffer, DWORD length) {
    using Fn = BOOL(WINAPI *)(HINTERNET, DWORD, LPVOID, DWORD);
    static Fn fn = WininetFunction<Fn>("InternetSetOptionA");
    if (!fn) {
        ::SetLastError(ERROR_PROC_NOT_FOUND);
        return FALSE;
    }
    return fn(handle, option, buffer, length);
}

HINTERNET RealInternetOpenUrlA(HINTERNET session, const char *url, const char *headers,
                               DWORD headersLength, DWORD flags, DWORD_PTR context) {
    using Fn = HINTERNET(WINAPI *)(HINTERNET, LPCSTR, LPCSTR, DWORD, DWORD, DWORD_PTR);
    static Fn fn = WininetFunction<Fn>("InternetOpenUrlA");
    if (!fn) {
        ::SetLastError(ERROR_PROC_NOT_FOUND);
        return nullptr;
    }
    return fn(session, url, headers, headersLength, flags, context);
}

BOOL RealInternetReadFile(HINTERNET handle, void *buffer, DWORD size, DWORD *read) {
    using Fn = BOOL(WINAPI *)(HINTERNET, LPVOID, DWORD, LPDWORD);
    static Fn fn = WininetFunction<Fn>("InternetReadFile");
    if (!fn) {
        ::SetLastError(ERROR_PROC_NOT_FOUND);
        return FALSE;
    }
    return fn(handle, buffer, size, read);
}

BOOL RealInternetCloseHandle(HINTERNET handle) {
    using Fn = BOOL(WINAPI *)(HINTERNET);
    static Fn fn = WininetFunction<Fn>("InternetCloseHandle");
    if (!fn) {
        ::SetLastError(ERROR_PROC_NOT_FOUND);
        return FALSE;
    }
    return fn(handle);
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

// IP Helper is bound on first use, so that the library loads where
// iphlpapi.dll is absent; callers test its presence before they get here.
template <class F>
F IphlpapiFunction(const char *name) {
    static HMODULE module = ::LoadLibraryA("iphlpapi.dll");
    return module ? reinterpret_cast<F>(reinterpret_cast<void *>(::GetProcAddress(module, name)))
                  : nullptr;
}

DWORD RealGetIpAddrTable(MIB_IPADDRTABLE *table, ULONG *size, BOOL order) {
    using Fn = DWORD(WINAPI *)(MIB_IPADDRTABLE *, ULONG *, BOOL);
    static Fn fn = IphlpapiFunction<Fn>("GetIpAddrTable");
    return fn ? fn(table, size, order) : ERROR_PROC_NOT_FOUND;
}

DWORD RealGetBestRoute(DWORD destination, DWORD source, MIB_IPFORWARDROW *route) {
    using Fn = DWORD(WINAPI *)(DWORD, DWORD, MIB_IPFORWARDROW *);
    static Fn fn = IphlpapiFunction<Fn>("GetBestRoute");
    return fn ? fn(destination, source, route) : ERROR_PROC_NOT_FOUND;
}

DWORD RealGetIfEntry(MIB_IFROW *row) {
    using Fn = DWORD(WINAPI *)(MIB_IFROW *);
    static Fn fn = IphlpapiFunction<Fn>("GetIfEntry");
    return fn ? fn(row) : ERROR_PROC_NOT_FOUND;
}

DWORD RealGetAdaptersInfo(IP_ADAPTER_INFO *info, ULONG *size) {
    using Fn = DWORD(WINAPI *)(IP_ADAPTER_INFO *, ULONG *);
    static Fn fn = IphlpapiFunction<Fn>("GetAdaptersInfo");
    return fn ? fn(info, size) : ERROR_PROC_NOT_FOUND;
}

UCHAR RealNetbios(NCB *ncb) { return ::Netbios(ncb); }

BOOL RealGetVersionExA(OSVERSIONINFOA *info) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    return ::GetVersionExA(info);
#pragma GCC diagnostic pop
}

SC_HANDLE RealOpenSCManagerA(const char *machine, const char *database, DWORD access) {
    return ::OpenSCManagerA(machine, database, access);
}

BOOL RealEnumServicesStatusA(SC_HANDLE manager, DWORD type, DWORD state,
                             ENUM_SERVICE_STATUSA *services, DWORD size, DWORD *needed,
                             DWORD *returned, DWORD *resume) {
    return ::EnumServicesStatusA(manager, type, state, services, size, needed, returned, resume);
}

BOOL RealCloseServiceHandle(SC_HANDLE handle) { return ::CloseServiceHandle(handle); }

const PlatformApi kReal = {
    RealTime,
    RealLocaltime,
    RealGmtime,
    RealGetSystemTime,
    RealGetTickCount,
    RealLoadLibraryA,
    RealInternetQueryOptionA,
    RealInternetOpenA,
    RealInternetSetOptionA,
    RealInternetOpenUrlA,
    RealInternetReadFile,
    RealInternetCloseHandle,
    RealAllocateAndInitializeSid,
    RealOpenProcessToken,
    RealGetTokenInformation,
    RealGetIpAddrTable,
    RealGetBestRoute,
    RealGetIfEntry,
    RealGetAdaptersInfo,
    RealNetbios,
    RealGetVersionExA,
    RealOpenSCManagerA,
    RealEnumServicesStatusA,
    RealCloseServiceHandle,
};

PlatformApi g_current = kReal;

}  // namespace

PlatformApi &Platform() { return g_current; }

const PlatformApi &RealPlatform() { return kReal; }
