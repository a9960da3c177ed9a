// Asks Routvane which proxy a connection to HOST:PORT must go through.
//   resolve HOST PORT
#include <windows.h>
#include <objbase.h>

#include <cstdio>
#include <cstdlib>

#include "routvane.h"

int main(int argc, char **argv) {
    if (argc != 3) return 3;
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    CLSID clsid;
    IRoutvane *resolver = nullptr;
    if (FAILED(CLSIDFromProgID(ROUTVANE_PROGID, &clsid)) ||
        FAILED(CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IRoutvane,
                                reinterpret_cast<void **>(&resolver)))) {
        fprintf(stderr, "routvane.dll is not registered\n");
        return 2;
    }
    const unsigned status =
        resolver->RoutvaneBrowser(0, argv[1], static_cast<unsigned>(atoi(argv[2])));
    if (status == ROUTVANE_PROXY) {
        for (long long i = 0; i < resolver->GetProxyCount(); ++i) {
            bool direct = false;
            char host[256];
            unsigned port = 0;
            resolver->GetProxy(static_cast<int>(i), &direct, host, sizeof host, &port);
            if (direct)
                printf("DIRECT\n");
            else
                printf("PROXY %s:%u\n", host, port);
        }
    } else {
        printf(status == ROUTVANE_DIRECT ? "DIRECT\n" : "FAILED\n");
    }
    resolver->Release();
    CoUninitialize();
    return static_cast<int>(status);
}
