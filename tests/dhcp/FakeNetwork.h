// A machine's interfaces, routes, adapters, NetBIOS adapters and services as
// IP Helper, NetBIOS, GetVersionExA and the service manager would report
// them, installed in the network facts seam for the life of a FakeNetwork.
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
    DWORD type;           // 6 Ethernet, 9 token ring, 15 FDDI, 24 loopback, 23 PPP
    std::string address;  // dotted; "" for none in the address table
    std::vector<BYTE> mac;
    std::string description;
};

struct FakeAdapter {
    std::vector<BYTE> mac;
    bool dhcpEnabled;
};

struct FakeNetbiosAdapter {
    UCHAR lana;
    std::array<BYTE, 6> address;
    bool resetFails = false;
    bool statusFails = false;
};

class FakeNetwork {
public:
    FakeNetwork();
    ~FakeNetwork();
    FakeNetwork(const FakeNetwork &) = delete;
    FakeNetwork &operator=(const FakeNetwork &) = delete;

    // An Ethernet interface with an adapter of the same address.
    void AddEthernet(DWORD index, const std::string &address, std::vector<BYTE> mac,
                     bool dhcp = true, const std::string &description = "");

    bool iphlpapiPresent = true;
    std::vector<FakeInterface> interfaces;
    DWORD bestRouteInterface = 0, bestRouteError = NO_ERROR;
    DWORD ipAddrTableFirstAnswer = ERROR_INSUFFICIENT_BUFFER, ipAddrTableSecondAnswer = NO_ERROR;
    DWORD ifEntryError = NO_ERROR;  // for every GetIfEntry
    std::vector<FakeAdapter> adapters;
    DWORD adaptersFirstAnswer = ERROR_BUFFER_OVERFLOW, adaptersSecondAnswer = NO_ERROR;
    bool netbiosPresent = true;
    std::vector<FakeNetbiosAdapter> netbiosAdapters;
    bool versionFails = false;
    DWORD major = 6, minor = 1, platform = VER_PLATFORM_WIN32_NT;
    bool scManagerFails = false;
    DWORD enumFirstError = ERROR_MORE_DATA;
    bool enumSecondFails = false;
    std::vector<std::pair<std::string, DWORD>> services;  // name, state (4 running)

    // What the code asked for.
    int ipHelperCalls = 0;
    DWORD lastBestRouteDestination = 0;
    int openedServiceHandles = 0, closedServiceHandles = 0;

    static FakeNetwork *current;

private:
    ScopedNetworkFacts platform_;
};

std::vector<BYTE> Mac(BYTE last);
