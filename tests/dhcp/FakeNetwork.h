// A machine's interfaces, adapters, NetBIOS adapters and services as IP
// Helper, NetBIOS, GetVersionExA and the service manager would report them,
// installed in the network facts seam for the life of a FakeNetwork. One
// call can be made to fail.
#pragma once

#include <winsock2.h>
#include <windows.h>
#include <iphlpapi.h>
#include <nb30.h>

#include <array>
#include <string>
#include <vector>

#include "dhcp/NetworkFacts.h"

struct FakeInterface {
    DWORD index;
    DWORD type;           // 6 Ethernet, 24 loopback
    std::string address;  // dotted
    std::vector<BYTE> mac;
};

struct FakeAdapter {
    std::vector<BYTE> mac;
    bool dhcpEnabled;
};

class FakeNetwork {
public:
    FakeNetwork();
    ~FakeNetwork();
    FakeNetwork(const FakeNetwork &) = delete;
    FakeNetwork &operator=(const FakeNetwork &) = delete;

    std::vector<FakeInterface> interfaces;  // each described "if<index>"
    std::vector<FakeAdapter> adapters;
    DWORD routeInterface = 0;
    std::vector<std::pair<UCHAR, std::array<BYTE, 6>>> netbiosAdapters;  // lana, address
    DWORD major = 6, minor = 1, platform = VER_PLATFORM_WIN32_NT;
    std::vector<std::pair<std::string, DWORD>> services;  // name, state (4 running)

    // The call that fails with error: a function's name, "<name> sizing" for
    // the first of a pair of calls, or a Netbios command ("NCBRESET").
    std::string failing;
    DWORD error = 0;

    // What the code asked for.
    DWORD routeDestination = 0;
    int openedServiceHandles = 0, closedServiceHandles = 0;

    static FakeNetwork *current;

private:
    ScopedNetworkFacts platform_;
};

std::vector<BYTE> Mac(BYTE last);
