#include "resolver/WinInetDownload.h"

namespace {

// Each entry fails as a missing function would where wininet.dll is absent.
template <class Fn>
Fn Bound(const char *name) {
    return OptionalFunction<Fn>("wininet.dll", name);
}

HINTERNET RealInternetOpenA(const char *agent, DWORD accessType, const char *proxy,
                            const char *bypass, DWORD flags) {
    using Fn = HINTERNET(WINAPI *)(LPCSTR, DWORD, LPCSTR, LPCSTR, DWORD);
    static Fn fn = Bound<Fn>("InternetOpenA");
    return CallOptional<HINTERNET>(fn, nullptr, agent, accessType, proxy, bypass, flags);
}

BOOL RealInternetSetOptionA(HINTERNET handle, DWORD option, void *buffer, DWORD length) {
    using Fn = BOOL(WINAPI *)(HINTERNET, DWORD, LPVOID, DWORD);
    static Fn fn = Bound<Fn>("InternetSetOptionA");
    return CallOptional(fn, FALSE, handle, option, buffer, length);
}

HINTERNET RealInternetOpenUrlA(HINTERNET session, const char *url, const char *headers,
                               DWORD headersLength, DWORD flags, DWORD_PTR context) {
    using Fn = HINTERNET(WINAPI *)(HINTERNET, LPCSTR, LPCSTR, DWORD, DWORD, DWORD_PTR);
    static Fn fn = Bound<Fn>("InternetOpenUrlA");
    return CallOptional<HINTERNET>(fn, nullptr, session, url, headers, headersLength, flags,
                                   context);
}

BOOL RealInternetReadFile(HINTERNET handle, void *buffer, DWORD size, DWORD *read) {
    using Fn = BOOL(WINAPI *)(HINTERNET, LPVOID, DWORD, LPDWORD);
    static Fn fn = Bound<Fn>("InternetReadFile");
    return CallOptional(fn, FALSE, handle, buffer, size, read);
}

const WinInetDownloadApi kReal = {RealInternetOpenA, RealInternetSetOptionA, RealInternetOpenUrlA,
                                  RealInternetReadFile, CloseInternetHandle};
WinInetDownloadApi g_current = kReal;

}  // namespace

WinInetDownloadApi &WinInetDownload() { return g_current; }

const WinInetDownloadApi &RealWinInetDownload() { return kReal; }
