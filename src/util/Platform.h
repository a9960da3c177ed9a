// The one seam between the library and the platform calls whose answers a
// test cannot arrange through real Wine components: the clock, the WinINet
// settings and download calls, the process token, IP Helper, NetBIOS, the
// system version and the service manager. Production binds every entry to
// the real API (the optional libraries lazily, on first use); a test swaps
// entries through ScopedPlatform and gets the real table back when the scope
// ends.
#pragma once

#include <winsock2.h>
#include <windows.h>
#include <iphlpapi.h>
#include <nb30.h>
#include <wininet.h>
#include <winsvc.h>

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

    // WinINet downloads, bound the same way. In the seam because Wine's
    // WinINet accepts INTERNET_OPTION_CONNECT_TIMEOUT but does not bound its
    // connects by it, so only the call itself shows the time-out given.
    HINTERNET (*InternetOpenA)(const char *agent, DWORD accessType, const char *proxy,
                               const char *bypass, DWORD flags);
    BOOL (*InternetSetOptionA)(HINTERNET handle, DWORD option, void *buffer, DWORD length);
    HINTERNET (*InternetOpenUrlA)(HINTERNET session, const char *url, const char *headers,
                                  DWORD headersLength, DWORD flags, DWORD_PTR context);
    BOOL (*InternetReadFile)(HINTERNET handle, void *buffer, DWORD size, DWORD *read);
    BOOL (*InternetCloseHandle)(HINTERNET handle);

    // The process token, for the local-system test.
    BOOL (*AllocateAndInitializeSid)(PSID_IDENTIFIER_AUTHORITY authority, BYTE count, DWORD s0,
                                     DWORD s1, DWORD s2, DWORD s3, DWORD s4, DWORD s5, DWORD s6,
                                     DWORD s7, PSID *sid);
    BOOL (*OpenProcessToken)(HANDLE process, DWORD access, HANDLE *token);
    BOOL (*GetTokenInformation)(HANDLE token, TOKEN_INFORMATION_CLASS kind, void *buffer,
                                DWORD size, DWORD *needed);

    // IP Helper, bound on first use; reached only after the presence test
    // LoadLibraryA("iphlpapi.dll") has succeeded.
    DWORD (*GetIpAddrTable)(MIB_IPADDRTABLE *table, ULONG *size, BOOL order);
    DWORD (*GetBestRoute)(DWORD destination, DWORD source, MIB_IPFORWARDROW *route);
    DWORD (*GetIfEntry)(MIB_IFROW *row);
    DWORD (*GetAdaptersInfo)(IP_ADAPTER_INFO *info, ULONG *size);

    // NetBIOS adapter status, for the hardware address.
    UCHAR (*Netbios)(NCB *ncb);

    // The system version and the service manager, for the NT 4.0 DHCP
    // client service.
    BOOL (*GetVersionExA)(OSVERSIONINFOA *info);
    SC_HANDLE (*OpenSCManagerA)(const char *machine, const char *database, DWORD access);
    BOOL (*EnumServicesStatusA)(SC_HANDLE manager, DWORD type, DWORD state,
                                ENUM_SERVICE_STATUSA *services, DWORD size, DWORD *needed,
                                DWORD *returned, DWORD *resume);
    BOOL (*CloseServiceHandle)(SC_HANDLE handle);
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
