// Choosing the interface, address and hardware address of the DHCPINFORM:
// each choice on plain facts, then the platform asked through the fake
// machine, one failing call per row.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "FakeNetwork.h"
#include "TestSupport.h"
#include "dhcp/dhcp.h"
#include "trace/tracefunc.h"

namespace {

using Texts = std::vector<std::string>;
using Decide = std::function<std::string(tracefunc &)>;
struct Row {
    const char *what;
    Decide decide;
    Texts expected;  // the answer, then the texts traced
};

// Each row decided in a trace scope of its own; the texts come without
// scope lines and thread tails.
void Check(const std::vector<Row> &rows) {
    for (const Row &row : rows) {
        TempDir dir;
        ScopedTrace trace(dir.file("t.log"));
        Texts said;
        {
            tracefunc tf(__LINE__, "dhcp", "Decide");
            said.push_back(row.decide(tf));
        }
        for (const std::string &line : trace.lines()) {
            const std::string text = LineText(line);
            if (text.find("Entered (tid=") == std::string::npos &&
                text.find("Exited (delta") == std::string::npos)
                said.push_back(text.substr(0, text.rfind(" (tid=")));
        }
        EXPECT_EQ(row.expected, said) << row.what;
    }
}

std::string Dotted(uint32_t address) {
    in_addr a;
    a.s_addr = address;
    return inet_ntoa(a);
}

const char kRouted[] = "GetBestRoute worked...using routing table to determine interface";

TEST(Choices, FirstEthernetElseLastTokenRingOrFddi) {
    auto scan = [](std::vector<std::pair<DWORD, const char *>> interfaces) -> Decide {
        return [=](tracefunc &tf) {
            std::vector<InterfaceFacts> facts;
            for (const auto &i : interfaces) {  // each described by its address
                facts.push_back({inet_addr(i.second), MIB_IFROW{}});
                facts.back().row.dwType = i.first;
                facts.back().row.dwDescrLen = static_cast<DWORD>(std::strlen(i.second) + 1);
                std::memcpy(facts.back().row.bDescr, i.second, facts.back().row.dwDescrLen);
            }
            const InterfaceFacts *chosen = ChooseInterface(facts, tf);
            return chosen ? Dotted(chosen->address) : "";
        };
    };
    const char kEth[] = "Found Ethernet interface:  ", kOther[] = "Found non-Ethernet interface:  ";
    Check({
        {"the first Ethernet", scan({{6, "10.0.0.6"}, {6, "10.0.1.6"}}),
         {"10.0.0.6", kEth + std::string("10.0.0.6")}},
        {"Ethernet after token ring", scan({{9, "10.0.0.9"}, {6, "10.0.0.6"}}),
         {"10.0.0.6", kOther + std::string("10.0.0.9"), kEth + std::string("10.0.0.6")}},
        {"the last of token ring and FDDI", scan({{9, "10.0.0.9"}, {15, "10.0.0.15"}}),
         {"10.0.0.15", kOther + std::string("10.0.0.9"), kOther + std::string("10.0.0.15")}},
        {"loopback, PPP, SLIP", scan({{24, "127.0.0.1"}, {23, "10.0.0.23"}, {28, "10.0.0.28"}}),
         {""}},
    });
}

TEST(Choices, AdapterOfTheSameWholeHardwareAddress) {
    using Bytes = std::vector<BYTE>;
    auto match = [](std::vector<Bytes> adapters, Bytes mac) -> Decide {
        return [=](tracefunc &) {
            std::vector<IP_ADAPTER_INFO> list(adapters.size());
            for (size_t n = 0; n < list.size(); ++n) {
                list[n].AddressLength = static_cast<UINT>(adapters[n].size());
                std::memcpy(list[n].Address, adapters[n].data(), adapters[n].size());
                list[n].Next = n + 1 < list.size() ? &list[n + 1] : nullptr;
            }
            MIB_IFROW row{};
            row.dwPhysAddrLen = static_cast<DWORD>(mac.size());
            std::memcpy(row.bPhysAddr, mac.data(), mac.size());
            const IP_ADAPTER_INFO *found = MatchingAdapter(list.empty() ? nullptr : &list[0], row);
            return found ? std::to_string(found - &list[0]) : "none";
        };
    };
    Check({
        {"the first of two", match({{1, 2}, {1, 3}, {1, 3}}, {1, 3}), {"1"}},
        {"a longer adapter's", match({{1, 2, 0}}, {1, 2}), {"none"}},
        {"a shorter adapter's", match({{1, 2}}, {1, 2, 0}), {"none"}},
        {"no adapter", match({}, {1, 2}), {"none"}},
    });
}

TEST(Choices, RouteInterfaceUnlessLoopback) {
    auto route = [](DWORD index) -> Decide {
        return [=](tracefunc &tf) {
            const MIB_IPADDRROW rows[] = {{inet_addr("127.0.0.1"), 1, 0, 0, 0, 0, 0},
                                          {inet_addr("10.0.0.4"), 4, 0, 0, 0, 0, 0},
                                          {inet_addr("10.0.1.4"), 4, 0, 0, 0, 0, 0}};
            RouteFacts facts{RouteFacts::kNone, NO_ERROR, MIB_IFROW{}};
            facts.row.dwIndex = index;
            uint32_t address = 0;
            return ChooseRouteInterface(facts, rows, 3, address, tf) ? Dotted(address) : "";
        };
    };
    Check({{"the interface's first address", route(4), {"10.0.0.4", kRouted}},
           {"loopback", route(1), {"", kRouted}},
           {"not in the table", route(9), {"", kRouted}}});
}

TEST(Choices, RunningDhcpClientServiceOnNt40) {
    auto version = [](DWORD major, DWORD minor, DWORD platform) -> Decide {
        return [=](tracefunc &tf) {
            return RunsNt40({true, NO_ERROR, major, minor, platform}, tf) ? "NT 4.0" : "";
        };
    };
    auto service = [](std::vector<std::pair<std::string, DWORD>> services) -> Decide {
        return [=](tracefunc &tf) {
            bool enabled = false;
            if (!DhcpServiceRunning({ServiceFacts::kNone, NO_ERROR, services}, enabled, tf))
                return "";
            return enabled ? "enabled" : "not enabled";
        };
    };
    Check({
        {"NT 4.0", version(4, 0, VER_PLATFORM_WIN32_NT), {"NT 4.0"}},
        {"NT 4.1", version(4, 1, VER_PLATFORM_WIN32_NT), {"", "Not running NT 4.0:  4.1:2"}},
        {"NT 3.51", version(3, 51, VER_PLATFORM_WIN32_NT), {"", "Not running NT 4.0:  3.51:2"}},
        {"Windows 4.0", version(4, 0, VER_PLATFORM_WIN32_WINDOWS),
         {"", "Not running NT 4.0:  4.0:1"}},
        {"the first so named, any case", service({{"Alerter", 1}, {"Dhcp", 4}, {"DHCP", 1}}),
         {"enabled", "Found DHCP Client service", "It is enabled"}},
        {"stopped", service({{"dhcp", 1}}),
         {"not enabled", "Found DHCP Client service", "It is not enabled:  1"}},
        {"none", service({{"DHCPServer", 4}}), {"", "Didn't find DHCP Client service"}},
    });
}

TEST(Choices, NetbiosAdapterWithAHardwareAddress) {
    auto use = [](NetbiosAdapterFacts adapter, int size) -> Decide {
        return [=](tracefunc &tf) {
            static const char *const kUse[] = {"skip", "taken", "no room"};
            unsigned char buffer[6] = {};
            uint8_t length = 0;
            const AdapterUse use = UseNetbiosAdapter(adapter, buffer, size, length, tf);
            return kUse[static_cast<int>(use)] + (length ? " " + DhcpHexDump(buffer, length) : "");
        };
    };
    const NetbiosAdapterFacts card{true, {1, 2, 3, 4, 5, 6}};
    Check({
        {"taken", use(card, 6), {"taken 01 02 03 04 05 06", "Using adapter 1:2:3:4:5:6"}},
        {"no room", use(card, 5), {"no room", "Not enough space for MAC address (need 6 bytes)"}},
        {"zero", use({true, {}}, 6), {"skip", "Found zero address...continuing"}},
        {"dial-up", use({true, {'D', 'E', 'S', 'T'}}, 6), {"skip", "Found dialup adapter"}},
    });
}

// GetNetworkInfo's answer: "dotted ciaddr/hlen/chaddr in hex", or "" when
// it refused.
Decide Taken(bool force) {
    return [=](tracefunc &) {
        DHCPPacket p;
        if (!GetNetworkInfo(p, force, inet_addr("10.9.8.7"))) return std::string();
        std::string text = Dotted(htonl(p.ciaddr)) + "/" + std::to_string(p.hlen) + "/";
        for (unsigned char b : p.chaddr) text += DhcpHexDump(&b, 1);
        return text;
    };
}

std::string NtService(tracefunc &) {
    bool enabled = false;
    return IsNT4DHCPServiceEnabled(enabled) ? (enabled ? "enabled" : "not enabled") : "";
}

std::string NetbiosAddress(tracefunc &) {
    unsigned char address[6];
    uint8_t length = 0;
    return QueryMacAddr(address, sizeof address, length) ? DhcpHexDump(address, length) : "";
}

// The host name's address, which the fallback puts in ciaddr.
std::string HostNameAddress() {
    WinsockSession winsock;
    char name[256] = {};
    const hostent *entry = gethostname(name, sizeof name) == 0 ? gethostbyname(name) : nullptr;
    if (!entry || !entry->h_addr_list[0]) return "(no address)";
    return inet_ntoa(*reinterpret_cast<const in_addr *>(entry->h_addr_list[0]));
}

// The fake machine with its adapter's DHCP disabled, so that force counts;
// then one failing call per row on the machine as it is.
TEST(NetworkInfo, OneFailingCallPerRow) {
    const std::string eth = "172.16.0.9/8/00163e10200407080000000000000000";
    const std::string lana3 = HostNameAddress() + "/6/0306090c0f1200000000000000000000";
    const char kUsing[] = "Using adapter 3:6:9:12:15:18";
    const char kUsing5[] = "Using adapter 5:10:15:20:25:30";
    const char kNext[] = "Netbios function failed...continuing";
    const struct {
        const char *failing;
        DWORD error;
        Decide decide;
        Texts expected;  // the answer, then the texts traced
        bool dhcpEnabled = true;
    } rows[] = {
        {"", 0, Taken(true), {eth, kRouted, "Found matching adapter DHCP not enabled"}, false},
        {"LoadLibraryA", 126, Taken(true), {lana3, "Unable to locate iphlpapi.dll:  126", kUsing}},
        {"GetIpAddrTable sizing", 87, Taken(true), {lana3, "GetIpAddrTable failed:  87", kUsing}},
        {"GetIpAddrTable", 50, Taken(true),
         {lana3, "GetIpAddrTable (second call) failed:  50", kUsing}},
        {"GetBestRoute", 1168, Taken(false), {eth, "GetBestRoute failed:  1168",
                                              "Found Ethernet interface:  card",
                                              "Found matching adapter DHCP enabled"}},
        {"GetIfEntry", 50, Taken(true), {lana3, kRouted, "GetIfEntry failed:  50", kUsing}},
        {"GetAdaptersInfo sizing", 232, Taken(false),
         {eth, kRouted, "GetAdaptersInfo failed:  232", "Found DHCP Client service",
          "It is enabled"}},
        {"GetAdaptersInfo", 13, Taken(false),
         {eth, kRouted, "GetAdaptersInfo (second call) failed:  13", "Found DHCP Client service",
          "It is enabled"}},
        {"GetVersionExA", 87, NtService, {"", "GetVersionEx failed:  87"}},
        {"OpenSCManagerA", 5, NtService, {"", "OpenSCManager failed:  5"}},
        {"EnumServicesStatusA sizing", 5, NtService, {"", "EnumServicesStatus failed:  5"}},
        {"EnumServicesStatusA", 8, NtService, {"", "EnumServicesStatus failed:  8"}},
        {"NCBENUM", 0, NetbiosAddress, {""}},
        {"NCBRESET", 0, NetbiosAddress, {"05 0a 0f 14 19 1e", kNext, kUsing5}},
        {"NCBASTAT", 0, NetbiosAddress, {"05 0a 0f 14 19 1e", kNext, kUsing5}},
    };
    for (const auto &r : rows) {
        FakeNetwork net;
        net.dhcpEnabled = r.dhcpEnabled;
        net.failing = r.failing;
        net.error = r.error;
        const char *what = *r.failing ? r.failing : "no call failing";
        Check({{what, r.decide, r.expected}});
        EXPECT_EQ(0, net.openServiceHandles) << what;
    }
}

}  // namespace
