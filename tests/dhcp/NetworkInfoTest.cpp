// Choosing the interface, address and hardware address of the DHCPINFORM:
// the choices on plain facts, then GetNetworkInfo as a whole on machines
// described through the network facts seam, one failing call per row.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "FakeNetwork.h"
#include "TestSupport.h"
#include "dhcp/dhcp.h"
#include "trace/tracefunc.h"

namespace {

const uint32_t kDestination = inet_addr("10.9.8.7");
using Macs = std::vector<BYTE>;
using Texts = std::vector<std::string>;

// The texts traced, without scope lines and thread tails.
Texts Said(const ScopedTrace &trace) {
    Texts said;
    for (const std::string &line : trace.lines()) {
        const std::string text = LineText(line);
        if (text.find("Entered (tid=") == std::string::npos &&
            text.find("Exited (delta") == std::string::npos)
            said.push_back(text.substr(0, text.rfind(" (tid=")));
    }
    return said;
}

InterfaceFacts Interface(DWORD type, const char *address, const char *description) {
    InterfaceFacts facts{inet_addr(address), MIB_IFROW{}};
    facts.row.dwType = type;
    facts.row.dwDescrLen = static_cast<DWORD>(std::strlen(description) + 1);
    std::memcpy(facts.row.bDescr, description, facts.row.dwDescrLen);
    return facts;
}

TEST(InterfaceChoice, FirstEthernetElseLastTokenRingOrFddi) {
    struct Case {
        std::vector<InterfaceFacts> interfaces;
        const char *address;  // "" for none chosen
        Texts said;
    };
    const Case cases[] = {
        {{Interface(6, "10.1.0.5", "eth five"), Interface(6, "10.2.0.2", "eth two")}, "10.1.0.5",
         {"Found Ethernet interface:  eth five"}},
        {{Interface(9, "10.1.0.1", "ring"), Interface(6, "10.2.0.2", "eth")}, "10.2.0.2",
         {"Found non-Ethernet interface:  ring", "Found Ethernet interface:  eth"}},
        {{Interface(9, "10.1.0.1", "ring"), Interface(15, "10.3.0.3", "fddi")}, "10.3.0.3",
         {"Found non-Ethernet interface:  ring", "Found non-Ethernet interface:  fddi"}},
        {{Interface(24, "127.0.0.1", "lo"), Interface(23, "10.7.0.7", "ppp"),
          Interface(28, "10.8.0.8", "slip")}, "", {}},
        {{}, "", {}},
    };
    for (const Case &c : cases) {
        TempDir dir;
        ScopedTrace trace(dir.file("t.log"));
        const InterfaceFacts *chosen = nullptr;
        {
            tracefunc tf(__LINE__, "dhcp", "MyGetInterfaceUsingScan");
            chosen = ChooseInterface(c.interfaces, tf);
        }
        EXPECT_EQ(*c.address ? inet_addr(c.address) : 0u, chosen ? chosen->address : 0u)
            << c.address;
        EXPECT_EQ(c.said, Said(trace)) << c.address;
    }
}

TEST(AdapterChoice, TheFirstOfTheSameWholeHardwareAddress) {
    struct Case {
        std::vector<Macs> adapters;
        Macs mac;
        int match;  // the adapter's index, -1 for none
    } cases[] = {
        {{Mac(1), Mac(2), Mac(2)}, Mac(2), 1},
        {{{0, 0x16, 0x3e, 0x10, 0x20, 3, 0}}, Mac(3), -1},  // the lengths differ
        {{Mac(1)}, {0, 0x16, 0x3e, 0x10, 0x20, 1, 0}, -1},
        {{{1, 2, 3, 4, 5, 6, 7, 8}}, {1, 2, 3, 4, 5, 6, 7, 8}, 0},
        {{}, Mac(1), -1},
    };
    for (const Case &c : cases) {
        std::vector<IP_ADAPTER_INFO> list(c.adapters.size());
        for (size_t n = 0; n < list.size(); ++n) {
            list[n].AddressLength = static_cast<UINT>(c.adapters[n].size());
            std::memcpy(list[n].Address, c.adapters[n].data(), c.adapters[n].size());
            list[n].Next = n + 1 < list.size() ? &list[n + 1] : nullptr;
        }
        MIB_IFROW row{};
        row.dwPhysAddrLen = static_cast<DWORD>(c.mac.size());
        std::memcpy(row.bPhysAddr, c.mac.data(), c.mac.size());
        const IP_ADAPTER_INFO *found = MatchingAdapter(list.empty() ? nullptr : &list[0], row);
        EXPECT_EQ(c.match, found ? static_cast<int>(found - &list[0]) : -1) << c.mac.size();
    }
}

// The address and hardware address a packet took: "dotted/hlen/chaddr in
// hex", or "" when GetNetworkInfo refused.
std::string Taken(bool ok, const DHCPPacket &p) {
    if (!ok) return "";
    char text[80];
    int n = std::snprintf(text, sizeof text, "%u.%u.%u.%u/%u/", p.ciaddr >> 24,
                          (p.ciaddr >> 16) & 255, (p.ciaddr >> 8) & 255, p.ciaddr & 255, p.hlen);
    for (unsigned char b : p.chaddr) n += std::snprintf(text + n, sizeof text - n, "%02x", b);
    return text;
}

// The host name's address as a packet takes it: what the fallback puts in
// ciaddr, looked up here the same way.
std::string HostNameAddress() {
    WinsockSession winsock;
    char name[256] = {};
    const hostent *entry = gethostname(name, sizeof name) == 0 ? gethostbyname(name) : nullptr;
    if (!entry || !entry->h_addr_list[0]) return "(no address)";
    return inet_ntoa(*reinterpret_cast<const in_addr *>(entry->h_addr_list[0]));
}

const char kRouted[] = "GetBestRoute worked...using routing table to determine interface";
const char kEnabled[] = "Found matching adapter DHCP enabled";
const char kNoIphlpapi[] = "Unable to locate iphlpapi.dll:  126";
const char kEth[] = "172.16.0.9/6/00163e10200400000000000000000000";
const char kNetbiosMac[] = "/6/020406080a0c00000000000000000000";  // after the host's address

// No address of IP Helper's: the host name's and NetBIOS's, forced only.
void LoopbackOnly(FakeNetwork &n) {
    n.interfaces.pop_back();
    n.routeInterface = 1;
    n.netbiosAdapters.push_back({5, {5, 5, 5, 5, 5, 5}});
}

void Nt4(FakeNetwork &n) {
    n.adapters.clear();
    n.major = 4;
    n.minor = 0;
}

// The machine of every row before its own change: a loopback interface, an
// Ethernet card the route leads to, DHCP on; NT 6.1 with a DHCP client
// service; one NetBIOS adapter.
TEST(NetworkInfo, Machines) {
    struct Case {
        const char *name;
        void (*arrange)(FakeNetwork &);
        bool force;
        std::string taken;  // Taken's text, "" for refused
        Texts said;
    };
    const std::string host = HostNameAddress() + kNetbiosMac;
    const Case cases[] = {
        {"route to the card", [](FakeNetwork &) {}, false, kEth, {kRouted, kEnabled}},
        {"an 8-byte address", [](FakeNetwork &n) {
             n.interfaces[1].mac = n.adapters[0].mac = {1, 2, 3, 4, 5, 6, 7, 8};
         }, false, "172.16.0.9/8/01020304050607080000000000000000", {kRouted, kEnabled}},
        {"route through loopback: the scan", [](FakeNetwork &n) { n.routeInterface = 1; }, false,
         kEth, {kRouted, "Found Ethernet interface:  if4", kEnabled}},
        {"DHCP off", [](FakeNetwork &n) { n.adapters[0].dhcpEnabled = false; }, false, "",
         {kRouted, "Found matching adapter DHCP not enabled"}},
        {"DHCP off, forced", [](FakeNetwork &n) { n.adapters[0].dhcpEnabled = false; }, true, kEth,
         {kRouted, "Found matching adapter DHCP not enabled"}},
        {"no adapter, not NT 4.0", [](FakeNetwork &n) { n.adapters.clear(); }, false, "",
         {kRouted, "Not running NT 4.0:  6.1:2"}},
        {"no adapter, forced", [](FakeNetwork &n) { n.adapters.clear(); }, true, kEth,
         {kRouted, "Not running NT 4.0:  6.1:2"}},
        {"NT 4.0, client running", Nt4, false, kEth,
         {kRouted, "Found DHCP Client service", "It is enabled"}},
        {"NT 4.0, client stopped", [](FakeNetwork &n) { Nt4(n); n.services = {{"dhcp", 1}}; },
         false, "", {kRouted, "Found DHCP Client service", "It is not enabled:  1"}},
        {"NT 4.0, no client", [](FakeNetwork &n) { Nt4(n); n.services = {{"DHCPServer", 4}}; },
         false, "", {kRouted, "Didn't find DHCP Client service"}},
        {"NT 3.51", [](FakeNetwork &n) { Nt4(n); n.major = 3; n.minor = 51; }, false, "",
         {kRouted, "Not running NT 4.0:  3.51:2"}},
        {"Windows 4.0", [](FakeNetwork &n) { Nt4(n); n.platform = VER_PLATFORM_WIN32_WINDOWS; },
         false, "", {kRouted, "Not running NT 4.0:  4.0:1"}},
        {"loopback only", LoopbackOnly, true, host, {kRouted, "Using adapter 2:4:6:8:10:12"}},
        {"NetBIOS: zero and dial-up skipped", [](FakeNetwork &n) {
             LoopbackOnly(n);
             n.netbiosAdapters = {{3, {}}, {1, {'D', 'E', 'S', 'T', 0, 0}},
                                  {2, {1, 2, 3, 4, 5, 6}}};
         }, true, HostNameAddress() + "/6/01020304050600000000000000000000",
         {kRouted, "Found zero address...continuing", "Found dialup adapter",
          "Using adapter 1:2:3:4:5:6"}},
    };
    // One failing call per row.
    const struct {
        const char *call;
        DWORD error;
        bool force;
        std::string taken;
        Texts said;
        void (*arrange)(FakeNetwork &) = nullptr;
    } failures[] = {
        {"LoadLibraryA", 126, false, "", {kNoIphlpapi}},
        {"LoadLibraryA", 126, true, host, {kNoIphlpapi, "Using adapter 2:4:6:8:10:12"}},
        {"GetIpAddrTable sizing", 87, true, host,
         {"GetIpAddrTable failed:  87", "Using adapter 2:4:6:8:10:12"}},
        {"GetIpAddrTable", 50, true, host,
         {"GetIpAddrTable (second call) failed:  50", "Using adapter 2:4:6:8:10:12"}},
        {"GetBestRoute", 1168, false, kEth,
         {"GetBestRoute failed:  1168", "Found Ethernet interface:  if4", kEnabled}},
        {"GetIfEntry", 50, true, host,
         {kRouted, "GetIfEntry failed:  50", "Using adapter 2:4:6:8:10:12"}},
        {"GetAdaptersInfo sizing", 232, false, "",
         {kRouted, "GetAdaptersInfo failed:  232", "Not running NT 4.0:  6.1:2"}},
        {"GetAdaptersInfo", 13, false, "",
         {kRouted, "GetAdaptersInfo (second call) failed:  13", "Not running NT 4.0:  6.1:2"}},
        {"GetVersionExA", 87, false, "", {kRouted, "GetVersionEx failed:  87"}, Nt4},
        {"OpenSCManagerA", 5, false, "", {kRouted, "OpenSCManager failed:  5"}, Nt4},
        {"EnumServicesStatusA sizing", 5, false, "", {kRouted, "EnumServicesStatus failed:  5"},
         Nt4},
        {"EnumServicesStatusA", 8, false, "", {kRouted, "EnumServicesStatus failed:  8"}, Nt4},
        {"NCBENUM", 0, true, "", {kRouted}, LoopbackOnly},
        {"NCBRESET", 0, true, "",
         {kRouted, "Netbios function failed...continuing", "Netbios function failed...continuing",
          "Didn't find an adapter"}, LoopbackOnly},
        {"NCBASTAT", 0, true, "",
         {kRouted, "Netbios function failed...continuing", "Netbios function failed...continuing",
          "Didn't find an adapter"}, LoopbackOnly},
    };
    auto run = [](const std::string &name, void (*arrange)(FakeNetwork &), const char *failing,
                  DWORD error, bool force, const std::string &taken, const Texts &said) {
        TempDir dir;
        ScopedTrace trace(dir.file("t.log"));
        FakeNetwork net;
        net.interfaces = {{1, 24, "127.0.0.1", {}}, {4, 6, "172.16.0.9", Mac(4)}};
        net.adapters = {{Mac(4), true}};
        net.routeInterface = 4;
        net.netbiosAdapters = {{0, {2, 4, 6, 8, 10, 12}}};
        net.services = {{"Alerter", 1}, {"Dhcp", 4}, {"DHCP", 1}};
        if (arrange) arrange(net);
        if (failing) net.failing = failing;
        net.error = error;
        DHCPPacket p;
        const bool ok = GetNetworkInfo(p, force, kDestination);
        EXPECT_EQ(taken, Taken(ok, p)) << name;
        EXPECT_EQ(said, Said(trace)) << name;
        EXPECT_TRUE(!net.routeDestination || net.routeDestination == kDestination) << name;
        EXPECT_EQ(net.openedServiceHandles, net.closedServiceHandles) << name;
    };
    for (const Case &c : cases) run(c.name, c.arrange, nullptr, 0, c.force, c.taken, c.said);
    for (const auto &f : failures)
        run(f.call, f.arrange, f.call, f.error, f.force, f.taken, f.said);
}

}  // namespace
