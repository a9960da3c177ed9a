// One machine as IP Helper, NetBIOS, GetVersionExA and the service manager
// report it, in the network facts seam for the life of a FakeNetwork:
// loopback interface 1 (127.0.0.1, "loop") and Ethernet card 4 (172.16.0.9,
// "card", an 8-byte hardware address, so that the whole length shows) the
// route leads to, its adapter DHCP enabled; NT 4.0 with the
// services "Alerter" (stopped) and "Dhcp" (running); NetBIOS LAN adapters 3
// and 5, the status of adapter n opening with n, 2n ... 6n. One call can be
// made to fail.
#pragma once

#include <string>
#include <vector>

#include "dhcp/NetworkFacts.h"

struct FakeNetwork {
    FakeNetwork();
    ~FakeNetwork();

    bool dhcpEnabled = true;

    // The call that fails with error: a function's name, "<name> sizing" for
    // the first of a pair of calls, or a Netbios command ("NCBRESET"), which
    // fails on the first adapter only.
    std::string failing;
    DWORD error = 0;

    // What the code asked for.
    DWORD routeDestination = 0;
    int openServiceHandles = 0;  // opened and not closed

    ScopedNetworkFacts platform;
};
