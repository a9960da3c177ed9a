#include "util/Owners.h"

#include "util/Seam.h"

WinsockSession::WinsockSession() {
    static const WORD kVersions[] = {MAKEWORD(2, 2), MAKEWORD(2, 0), MAKEWORD(1, 1)};
    for (WORD version : kVersions) {
        WSADATA data;
        if (WSAStartup(version, &data) == 0) {
            reset(version);
            return;
        }
    }
}

BOOL CloseServiceManager(SC_HANDLE manager) { return ::CloseServiceHandle(manager); }

BOOL CloseInternetHandle(void *handle) {
    using Fn = BOOL(WINAPI *)(void *);
    static Fn fn = OptionalFunction<Fn>("wininet.dll", "InternetCloseHandle");
    return CallOptional(fn, FALSE, handle);
}
