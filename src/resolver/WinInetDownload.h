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
