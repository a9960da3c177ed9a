// Choosing the interface, address and hardware address of the DHCPINFORM,
// on machines described through the platform table.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "FakeNetwork.h"
#include "TestSupport.h"
#include "dhcp/dhcp.h"

namespace {

const uint32_t kDestination = inet_addr("10.9.8.7");

std::vector<BYTE> Chaddr(const DHCPPacket &p, size_t n) {
    return std::vector<BYTE>(p.chaddr, p.chaddr + n);
}

class NetworkInfoTest : public testing::Test {
protected:
    NetworkInfoTest() : trace(dir.file("t.log")) {}
    size_t count(const std::string &text) const { return trace.linesWith(text).size(); }
    TempDir dir;
    ScopedTrace trace;
    FakeNetwork net;
};

TEST_F(NetworkInfoTest, BestRouteInterfaceWithDhcp) {
    net.AddEthernet(1, "192.168.1.10", Mac(1));
    net.AddEthernet(2, "10.0.0.5", Mac(2));
    net.bestRouteInterface = 2;
    DHCPPacket p;
    ASSERT_TRUE(GetNetworkInfo(p, false, kDestination));
    EXPECT_EQ(kDestination, net.lastBestRouteDestination);
    EXPECT_EQ(0x0A000005u, p.ciaddr);
    EXPECT_EQ(6, p.hlen);
    EXPECT_EQ(Mac(2), Chaddr(p, 6));
    EXPECT_EQ(std::vector<BYTE>(10, 0), std::vector<BYTE>(p.chaddr + 6, p.chaddr + 16));
    EXPECT_EQ(1u, count("GetBestRoute worked...using routing table to determine interface"));
    EXPECT_EQ(1u, count("Found matching adapter DHCP enabled"));
}

TEST_F(NetworkInfoTest, DhcpDisabledRefusesUnlessForced) {
    net.AddEthernet(1, "192.168.1.10", Mac(1), false);
    net.bestRouteInterface = 1;
    DHCPPacket p;
    EXPECT_FALSE(GetNetworkInfo(p, false, kDestination));
    EXPECT_EQ(0u, p.ciaddr);
    EXPECT_EQ(1u, count("Found matching adapter DHCP not enabled"));
    ASSERT_TRUE(GetNetworkInfo(p, true, kDestination));
    EXPECT_EQ(0xC0A8010Au, p.ciaddr);
    EXPECT_EQ(Mac(1), Chaddr(p, 6));
}

TEST_F(NetworkInfoTest, NoMatchingAdapterAsksNt4AndStaysDisabledElsewhere) {
    net.AddEthernet(1, "192.168.1.10", Mac(1));
    net.adapters[0].mac = Mac(9);
    net.bestRouteInterface = 1;
    DHCPPacket p;
    EXPECT_FALSE(GetNetworkInfo(p, false, kDestination));
    EXPECT_EQ(1u, count("Not running NT 4.0:  6.1:2"));
    EXPECT_TRUE(GetNetworkInfo(p, true, kDestination));
}

TEST_F(NetworkInfoTest, AdapterOfAnotherLengthDoesNotMatch) {
    net.AddEthernet(1, "192.168.1.10", Mac(1));
    net.adapters[0].mac.push_back(0);  // same bytes, length 7
    net.bestRouteInterface = 1;
    bool enabled = false;
    MIB_IFROW row{};
    row.dwPhysAddrLen = 6;
    std::memcpy(row.bPhysAddr, Mac(1).data(), 6);
    EXPECT_FALSE(IsDHCPEnabledForInterface(row, enabled));
    EXPECT_EQ(0u, count("Found matching adapter"));
}

TEST_F(NetworkInfoTest, RouteThroughLoopbackLetsTheScanDecide) {
    net.interfaces.push_back({1, 24, "127.0.0.1", {}, "Loopback"});
    net.AddEthernet(4, "172.16.0.9", Mac(4), true, "Fast Ethernet card");
    net.bestRouteInterface = 1;
    DHCPPacket p;
    ASSERT_TRUE(GetNetworkInfo(p, false, kDestination));
    EXPECT_EQ(0xAC100009u, p.ciaddr);
    EXPECT_EQ(1u, count("Found Ethernet interface:  Fast Ethernet card"));
}

TEST_F(NetworkInfoTest, BestRouteFailuresFallBackToTheScan) {
    struct Case {
        DWORD routeError;
        DWORD routeInterface;
        const char *message;
    };
    const Case cases[] = {
        {ERROR_NOT_FOUND, 1, "GetBestRoute failed:  1168"},
        {NO_ERROR, 99, "GetIfEntry failed:  87"},
    };
    net.AddEthernet(3, "192.168.3.3", Mac(3));
    for (const Case &c : cases) {
        net.bestRouteError = c.routeError;
        net.bestRouteInterface = c.routeInterface;
        DHCPPacket p;
        ASSERT_TRUE(GetNetworkInfo(p, false, kDestination)) << c.message;
        EXPECT_EQ(0xC0A80303u, p.ciaddr);
        EXPECT_EQ(1u, count(c.message));
    }
}

struct ScanCase {
    const char *name;
    std::vector<FakeInterface> interfaces;
    bool found;
    std::string address;
    std::vector<std::string> messages;
};

class ScanTest : public testing::TestWithParam<ScanCase> {};

TEST_P(ScanTest, ChoosesByInterfaceType) {
    const ScanCase &c = GetParam();
    TempDir dir;
    ScopedTrace trace(dir.file("t.log"));
    FakeNetwork net;
    net.interfaces = c.interfaces;
    IpAddrTablePtr table = MyGetIpAddrTable();
    ASSERT_TRUE(table);
    uint32_t address = 0xFFFFFFFF;
    MIB_IFROW row{};
    EXPECT_EQ(c.found, MyGetInterfaceUsingScan(table.get(), address, &row, sizeof row));
    EXPECT_EQ(c.address.empty() ? 0u : inet_addr(c.address.c_str()), address);
    std::vector<std::string> seen;
    for (const std::string &line : trace.linesWith("Found ")) {
        std::string text = LineText(line);
        seen.push_back(text.substr(0, text.rfind(" (tid=")));
    }
    EXPECT_EQ(c.messages, seen);
    if (c.found) {
        for (const FakeInterface &i : c.interfaces) {
            if (i.address == c.address) {
                EXPECT_EQ(i.index, row.dwIndex);
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, ScanTest,
    testing::Values(
        ScanCase{"twoEthernetFirstListedWins",
                 {{5, 6, "10.1.0.5", Mac(5), "eth five"}, {2, 6, "10.2.0.2", Mac(2), "eth two"}},
                 true,
                 "10.1.0.5",
                 {"Found Ethernet interface:  eth five"}},
        ScanCase{"tokenRingThenEthernet",
                 {{1, 9, "10.1.0.1", Mac(1), "ring"}, {2, 6, "10.2.0.2", Mac(2), "eth"}},
                 true,
                 "10.2.0.2",
                 {"Found non-Ethernet interface:  ring", "Found Ethernet interface:  eth"}},
        ScanCase{"ethernetStopsTheScan",
                 {{2, 6, "10.2.0.2", Mac(2), "eth"}, {1, 9, "10.1.0.1", Mac(1), "ring"}},
                 true,
                 "10.2.0.2",
                 {"Found Ethernet interface:  eth"}},
        ScanCase{"laterNonEthernetReplaces",
                 {{1, 9, "10.1.0.1", Mac(1), "ring"}, {3, 15, "10.3.0.3", Mac(3), "fddi"}},
                 true,
                 "10.3.0.3",
                 {"Found non-Ethernet interface:  ring", "Found non-Ethernet interface:  fddi"}},
        ScanCase{"othersIgnored",
                 {{1, 24, "127.0.0.1", {}, "lo"}, {7, 23, "10.7.0.7", {}, "ppp"},
                  {8, 28, "10.8.0.8", {}, "slip"}},
                 false,
                 "",
                 {}},
        ScanCase{"empty", {}, false, "", {}}),
    [](const testing::TestParamInfo<ScanCase> &info) { return std::string(info.param.name); });

TEST_F(NetworkInfoTest, ScanSkipsInterfacesWhoseEntryFails) {
    net.AddEthernet(1, "10.1.0.1", Mac(1));
    net.ifEntryError = ERROR_NOT_SUPPORTED;
    IpAddrTablePtr table = MyGetIpAddrTable();
    ASSERT_TRUE(table);
    uint32_t address = 5;
    MIB_IFROW row{};
    EXPECT_FALSE(MyGetInterfaceUsingScan(table.get(), address, &row, sizeof row));
    EXPECT_EQ(0u, address);
}

TEST_F(NetworkInfoTest, AddressTableFailures) {
    struct Case {
        DWORD first, second;
        const char *message;
    };
    const Case cases[] = {
        {ERROR_INVALID_PARAMETER, NO_ERROR, "GetIpAddrTable failed:  87"},
        {NO_ERROR, NO_ERROR, "GetIpAddrTable failed:  0"},
        {ERROR_INSUFFICIENT_BUFFER, ERROR_NOT_SUPPORTED,
         "GetIpAddrTable (second call) failed:  50"},
    };
    net.AddEthernet(1, "10.1.0.1", Mac(1));
    for (const Case &c : cases) {
        net.ipAddrTableFirstAnswer = c.first;
        net.ipAddrTableSecondAnswer = c.second;
        EXPECT_FALSE(MyGetIpAddrTable()) << c.message;
        EXPECT_EQ(1u, count(c.message));
    }
}

TEST_F(NetworkInfoTest, AdapterListFailures) {
    struct Case {
        DWORD first, second;
        const char *message;
    };
    const Case cases[] = {
        {ERROR_NO_DATA, NO_ERROR, "GetAdaptersInfo failed:  232"},
        {ERROR_BUFFER_OVERFLOW, ERROR_INVALID_DATA, "GetAdaptersInfo (second call) failed:  13"},
    };
    net.AddEthernet(1, "10.1.0.1", Mac(1));
    MIB_IFROW row{};
    row.dwPhysAddrLen = 6;
    std::memcpy(row.bPhysAddr, Mac(1).data(), 6);
    for (const Case &c : cases) {
        net.adaptersFirstAnswer = c.first;
        net.adaptersSecondAnswer = c.second;
        bool enabled = true;
        EXPECT_FALSE(IsDHCPEnabledForInterface(row, enabled)) << c.message;
        EXPECT_TRUE(enabled);
        EXPECT_EQ(1u, count(c.message));
    }
}

TEST_F(NetworkInfoTest, SecondAdapterMatches) {
    net.adapters = {{Mac(1), false}, {Mac(2), true}, {Mac(2), false}};
    MIB_IFROW row{};
    row.dwPhysAddrLen = 6;
    std::memcpy(row.bPhysAddr, Mac(2).data(), 6);
    bool enabled = false;
    ASSERT_TRUE(IsDHCPEnabledForInterface(row, enabled));
    EXPECT_TRUE(enabled);
}

struct Nt4Case {
    const char *name;
    void (*arrange)(FakeNetwork &);
    bool known;
    bool enabled;
    std::vector<std::string> messages;
};

class Nt4Test : public testing::TestWithParam<Nt4Case> {};

TEST_P(Nt4Test, AsksTheServiceManager) {
    const Nt4Case &c = GetParam();
    TempDir dir;
    ScopedTrace trace(dir.file("t.log"));
    FakeNetwork net;
    net.major = 4;
    net.minor = 0;
    net.services = {{"Alerter", 1}, {"Browser", 4}, {"Dhcp", 4}, {"DHCP", 1}};
    c.arrange(net);
    bool enabled = !c.enabled;
    EXPECT_EQ(c.known, IsNT4DHCPServiceEnabled(enabled));
    if (c.known) {
        EXPECT_EQ(c.enabled, enabled);
    }
    std::vector<std::string> seen;
    for (const std::string &line : trace.lines()) {
        const std::string text = LineText(line);
        if (line.find("function=IsNT4DHCPServiceEnabled") == std::string::npos ||
            text.find("Entered") != std::string::npos || text.find("Exited") != std::string::npos)
            continue;
        seen.push_back(text.substr(0, text.rfind(" (tid=")));
    }
    EXPECT_EQ(c.messages, seen);
    EXPECT_EQ(net.openedServiceHandles, net.closedServiceHandles);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, Nt4Test,
    testing::Values(
        Nt4Case{"running", [](FakeNetwork &) {}, true, true,
                {"Found DHCP Client service", "It is enabled"}},
        Nt4Case{"stopped", [](FakeNetwork &n) { n.services = {{"dhcp", 1}}; }, true, false,
                {"Found DHCP Client service", "It is not enabled:  1"}},
        Nt4Case{"missing", [](FakeNetwork &n) { n.services = {{"DHCPServer", 4}}; }, false, false,
                {"Didn't find DHCP Client service"}},
        Nt4Case{"noServices", [](FakeNetwork &n) { n.services.clear(); }, false, false,
                {"Didn't find DHCP Client service"}},
        Nt4Case{"versionFails", [](FakeNetwork &n) { n.versionFails = true; }, false, false,
                {"GetVersionEx failed:  87"}},
        Nt4Case{"nt351", [](FakeNetwork &n) { n.major = 3; n.minor = 51; }, false, false,
                {"Not running NT 4.0:  3.51:2"}},
        Nt4Case{"win95", [](FakeNetwork &n) { n.platform = VER_PLATFORM_WIN32_WINDOWS; }, false,
                false, {"Not running NT 4.0:  4.0:1"}},
        Nt4Case{"managerFails", [](FakeNetwork &n) { n.scManagerFails = true; }, false, false,
                {"OpenSCManager failed:  5"}},
        Nt4Case{"firstEnumFails",
                [](FakeNetwork &n) { n.enumFirstError = ERROR_ACCESS_DENIED; }, false, false,
                {"EnumServicesStatus failed:  5"}},
        Nt4Case{"secondEnumFails", [](FakeNetwork &n) { n.enumSecondFails = true; }, false,
                false, {"EnumServicesStatus failed:  8"}}),
    [](const testing::TestParamInfo<Nt4Case> &info) { return std::string(info.param.name); });

TEST_F(NetworkInfoTest, Nt4AnswersWhenNoAdapterMatches) {
    net.AddEthernet(1, "192.168.1.10", Mac(1));
    net.adapters.clear();
    net.bestRouteInterface = 1;
    net.major = 4;
    net.minor = 0;
    net.services = {{"DHCP", 4}};
    DHCPPacket p;
    ASSERT_TRUE(GetNetworkInfo(p, false, kDestination));
    EXPECT_EQ(0xC0A8010Au, p.ciaddr);
    net.services = {{"DHCP", 1}};
    EXPECT_FALSE(GetNetworkInfo(p, false, kDestination));
}

struct MacCase {
    const char *name;
    std::vector<FakeNetbiosAdapter> adapters;
    int size;
    bool found;
    std::vector<BYTE> mac;
    std::vector<std::string> messages;
};

class QueryMacAddrTest : public testing::TestWithParam<MacCase> {};

TEST_P(QueryMacAddrTest, TakesTheFirstRealAdapter) {
    const MacCase &c = GetParam();
    TempDir dir;
    ScopedTrace trace(dir.file("t.log"));
    FakeNetwork net;
    net.netbiosAdapters = c.adapters;
    unsigned char buffer[16] = {};
    uint8_t length = 0;
    EXPECT_EQ(c.found, QueryMacAddr(buffer, c.size, length));
    if (c.found) {
        EXPECT_EQ(6, length);
        EXPECT_EQ(c.mac, std::vector<BYTE>(buffer, buffer + 6));
    } else {
        EXPECT_EQ(0, length);
    }
    std::vector<std::string> seen;
    for (const std::string &line : trace.lines()) {
        const std::string text = LineText(line);
        if (line.find("function=QueryMacAddr") == std::string::npos ||
            text.find("Entered") != std::string::npos || text.find("Exited") != std::string::npos)
            continue;
        seen.push_back(text.substr(0, text.rfind(" (tid=")));
    }
    EXPECT_EQ(c.messages, seen);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, QueryMacAddrTest,
    testing::Values(
        MacCase{"first", {{0, {0, 0x16, 0x3e, 1, 2, 255}}}, 16, true, {0, 0x16, 0x3e, 1, 2, 255},
                {"Using adapter 0:22:62:1:2:255"}},
        MacCase{"skipsZeroAndDialup",
                {{3, {0, 0, 0, 0, 0, 0}}, {1, {'D', 'E', 'S', 'T', 0, 0}}, {2, {1, 2, 3, 4, 5, 6}}},
                6,
                true,
                {1, 2, 3, 4, 5, 6},
                {"Found zero address...continuing", "Found dialup adapter",
                 "Using adapter 1:2:3:4:5:6"}},
        MacCase{"resetAndStatusFailures",
                {{0, {9, 9, 9, 9, 9, 9}, true, false}, {1, {8, 8, 8, 8, 8, 8}, false, true},
                 {2, {7, 7, 7, 7, 7, 7}}},
                16,
                true,
                {7, 7, 7, 7, 7, 7},
                {"Netbios function failed...continuing", "Netbios function failed...continuing",
                 "Using adapter 7:7:7:7:7:7"}},
        MacCase{"tooSmall", {{0, {1, 2, 3, 4, 5, 6}}}, 5, false, {},
                {"Not enough space for MAC address (need 6 bytes)"}},
        MacCase{"none", {{0, {0, 0, 0, 0, 0, 0}}}, 16, false, {},
                {"Found zero address...continuing", "Didn't find an adapter"}},
        MacCase{"noAdapters", {}, 16, false, {}, {"Didn't find an adapter"}}),
    [](const testing::TestParamInfo<MacCase> &info) { return std::string(info.param.name); });

TEST_F(NetworkInfoTest, NoNetbiosIsSilent) {
    net.netbiosPresent = false;
    unsigned char buffer[16] = {};
    uint8_t length = 0;
    EXPECT_FALSE(QueryMacAddr(buffer, 16, length));
    EXPECT_EQ(0u, count("Didn't find an adapter"));
}

// The address the host name resolves to, in host byte order: what the
// fallback must put in ciaddr. Looked up here the same way, on this machine.
uint32_t HostNameAddress() {
    char name[256] = {};
    if (gethostname(name, sizeof name) != 0) return 0;
    const hostent *entry = gethostbyname(name);
    if (!entry || !entry->h_addr_list[0]) return 0;
    uint32_t a = 0;
    std::memcpy(&a, entry->h_addr_list[0], 4);
    return ntohl(a);
}

TEST_F(NetworkInfoTest, WithoutIphlpapiOnlyForceUsesTheHostName) {
    WinsockSession winsock;
    ASSERT_TRUE(winsock.started());
    const uint32_t expected = HostNameAddress();
    ASSERT_NE(0u, expected);
    net.iphlpapiPresent = false;
    net.AddEthernet(1, "10.1.0.1", Mac(1));
    net.netbiosAdapters = {{0, {2, 4, 6, 8, 10, 12}}};

    DHCPPacket p;
    EXPECT_FALSE(GetNetworkInfo(p, false, kDestination));
    EXPECT_EQ(1u, count("Unable to locate iphlpapi.dll:  126"));
    EXPECT_EQ(0, net.ipHelperCalls) << "IP Helper reached without iphlpapi.dll";

    ASSERT_TRUE(GetNetworkInfo(p, true, kDestination));
    EXPECT_EQ(0, net.ipHelperCalls);
    EXPECT_EQ(expected, p.ciaddr);
    EXPECT_EQ(6, p.hlen);
    EXPECT_EQ((std::vector<BYTE>{2, 4, 6, 8, 10, 12}), Chaddr(p, 6));

    net.netbiosPresent = false;
    DHCPPacket q;
    EXPECT_FALSE(GetNetworkInfo(q, true, kDestination));
}

TEST_F(NetworkInfoTest, LoopbackOnlyMachineFallsBackToTheHostName) {
    WinsockSession winsock;
    ASSERT_TRUE(winsock.started());
    net.interfaces.push_back({1, 24, "127.0.0.1", {}, "Loopback"});
    net.bestRouteInterface = 1;
    net.netbiosAdapters = {{0, {1, 1, 1, 1, 1, 1}}};
    DHCPPacket p;
    ASSERT_TRUE(GetNetworkInfo(p, true, kDestination));
    EXPECT_EQ(HostNameAddress(), p.ciaddr);
    EXPECT_EQ((std::vector<BYTE>{1, 1, 1, 1, 1, 1}), Chaddr(p, 6));
}

TEST_F(NetworkInfoTest, LongHardwareAddressIsCutToTheRow) {
    net.AddEthernet(1, "10.1.0.1", {1, 2, 3, 4, 5, 6, 7, 8});
    net.bestRouteInterface = 1;
    DHCPPacket p;
    ASSERT_TRUE(GetNetworkInfo(p, false, kDestination));
    EXPECT_EQ(8, p.hlen);
    EXPECT_EQ((std::vector<BYTE>{1, 2, 3, 4, 5, 6, 7, 8, 0}), Chaddr(p, 9));
}

}  // namespace
