// The WinINet download seam of PAC retrieval, bound to wininet.dll on first
// use. In a seam because Wine's WinINet accepts
// INTERNET_OPTION_CONNECT_TIMEOUT but does not bound its connects by it, so
// only the call itself shows the time-out given.
#pragma once

#include <windows.h>
#include <wininet.h>

#include "util/Owners.h"
#include "util/Seam.h"

struct WinInetDownloadApi {
    HINTERNET (*InternetOpenA)(const char *agent, DWORD accessType, const char *proxy,
                               const char *bypass, DWORD flags);
    BOOL (*InternetSetOptionA)(HINTERNET handle, DWORD option, void *buffer, DWORD length);
    HINTERNET (*InternetOpenUrlA)(HINTERNET session, const char *url, const char *headers,
                                  DWORD headersLength, DWORD flags, DWORD_PTR context);
    BOOL (*InternetReadFile)(HINTERNET handle, void *buffer, DWORD size, DWORD *read);
    BOOL (*closeInternet)(HINTERNET handle);
};

WinInetDownloadApi &WinInetDownload();
const WinInetDownloadApi &RealWinInetDownload();
using ScopedWinInetDownload = ScopedSeam<WinInetDownloadApi, WinInetDownload>;

// One owner for a WinINet handle (session or URL), closed through the seam.
struct InternetHandleTraits : NullTraits<HINTERNET> {
    static void close(HINTERNET handle) { WinInetDownload().closeInternet(handle); }
};
using InternetHandle = UniqueOwner<InternetHandleTraits>;

// A WinINet handle that closes through the table it was opened with, not
// the table in force when it goes: a download's worker may outlive a test's
// table, and must not hand a handle of the real WinINet to a fake or the
// reverse.
struct TabledInternetHandleTraits {
    struct type {
        HINTERNET handle;
        BOOL (*close)(HINTERNET handle);
        bool operator==(const type &other) const { return handle == other.handle; }
    };
    static type invalid() { return type{nullptr, nullptr}; }
    static void close(const type &owned) { owned.close(owned.handle); }
};
using TabledInternetHandle = UniqueOwner<TabledInternetHandleTraits>;
