// Choosing the interface, address and hardware address of the DHCPINFORM,
// on machines described through the network facts seam, and the choice
// itself on plain facts.
#include <gtest/gtest.h>

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

Macs Chaddr(const DHCPPacket &p, size_t n) { return Macs(p.chaddr, p.chaddr + n); }

// The texts a function traced, without its entry and exit lines.
std::vector<std::string> Said(const ScopedTrace &trace, const std::string &function) {
    std::vector<std::string> said;
    for (const std::string &line : trace.lines()) {
        const std::string text = LineText(line);
        if (line.find("function=" + function) == std::string::npos ||
            text.find("Entered") != std::string::npos || text.find("Exited") != std::string::npos)
            continue;
        said.push_back(text.substr(0, text.rfind(" (tid=")));
    }
    return said;
}

MIB_IFROW RowWithMac(const Macs &mac) {
    MIB_IFROW row{};
    row.dwPhysAddrLen = static_cast<DWORD>(mac.size());
    std::memcpy(row.bPhysAddr, mac.data(), mac.size());
    return row;
}

class NetworkInfoTest : public testing::Test {
protected:
    size_t count(const std::string &text) const { return trace.linesWith(text).size(); }
    TempDir dir;
    ScopedTrace trace{dir.file("t.log")};
    FakeNetwork net;
    DHCPPacket p;
};

TEST_F(NetworkInfoTest, BestRouteInterfaceOfTwoEthernetCards) {
    net.AddEthernet(1, "192.168.1.10", Mac(1));
    net.AddEthernet(2, "10.0.0.5", {1, 2, 3, 4, 5, 6, 7, 8});  // the whole row's length
    net.bestRouteInterface = 2;
    ASSERT_TRUE(GetNetworkInfo(p, false, kDestination));
    EXPECT_EQ(kDestination, net.lastBestRouteDestination);
    EXPECT_EQ(0x0A000005u, p.ciaddr);
    EXPECT_EQ(8, p.hlen);
    EXPECT_EQ((Macs{1, 2, 3, 4, 5, 6, 7, 8, 0, 0, 0, 0, 0, 0, 0, 0}), Chaddr(p, 16));
    EXPECT_EQ(1u, count("GetBestRoute worked...using routing table to determine interface"));
    EXPECT_EQ(1u, count("Found matching adapter DHCP enabled"));
}

TEST_F(NetworkInfoTest, DhcpDisabledOrUnknownRefusesUnlessForced) {
    net.AddEthernet(1, "192.168.1.10", Mac(1), false);
    net.bestRouteInterface = 1;
    EXPECT_FALSE(GetNetworkInfo(p, false, kDestination));
    EXPECT_EQ(0u, p.ciaddr);
    EXPECT_EQ(1u, count("Found matching adapter DHCP not enabled"));
    ASSERT_TRUE(GetNetworkInfo(p, true, kDestination));
    EXPECT_EQ(0xC0A8010Au, p.ciaddr);
    EXPECT_EQ(Mac(1), Chaddr(p, 6));

    // No adapter matches: only the DHCP client service of NT 4.0 can say.
    net.adapters[0].mac = Mac(9);
    DHCPPacket q;
    EXPECT_FALSE(GetNetworkInfo(q, false, kDestination));
    EXPECT_EQ(1u, count("Not running NT 4.0:  6.1:2"));
    EXPECT_TRUE(GetNetworkInfo(q, true, kDestination));
    net.major = 4;
    net.minor = 0;
    net.services = {{"DHCP", 1}};
    EXPECT_FALSE(GetNetworkInfo(q, false, kDestination));
    net.services = {{"DHCP", 4}};
    EXPECT_TRUE(GetNetworkInfo(q, false, kDestination));
    EXPECT_EQ(0xC0A8010Au, q.ciaddr);
}

TEST_F(NetworkInfoTest, RoutesThroughLoopbackOrFailingLetTheScanDecide) {
    struct Case {
        DWORD routeError, routeInterface;
        const char *message;
    };
    const Case cases[] = {
        {NO_ERROR, 1, "Found Ethernet interface:  Fast Ethernet card"},
        {ERROR_NOT_FOUND, 1, "GetBestRoute failed:  1168"},
        {NO_ERROR, 99, "GetIfEntry failed:  87"},
    };
    net.interfaces.push_back({1, 24, "127.0.0.1", {}, "Loopback"});
    net.AddEthernet(4, "172.16.0.9", Mac(4), true, "Fast Ethernet card");
    for (const Case &c : cases) {
        net.bestRouteError = c.routeError;
        net.bestRouteInterface = c.routeInterface;
        DHCPPacket q;
        ASSERT_TRUE(GetNetworkInfo(q, false, kDestination)) << c.message;
        EXPECT_EQ(0xAC100009u, q.ciaddr);
        EXPECT_EQ(1u, count(c.message));
    }
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
        std::vector<std::string> said;
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
        EXPECT_EQ(c.said, Said(trace, "MyGetInterfaceUsingScan")) << c.address;
    }
}

TEST_F(NetworkInfoTest, IpHelperFailures) {
    const std::pair<DWORD, DWORD> tableAnswers[] = {
        {ERROR_INVALID_PARAMETER, NO_ERROR}, {NO_ERROR, NO_ERROR},
        {ERROR_INSUFFICIENT_BUFFER, ERROR_NOT_SUPPORTED}};
    for (const auto &a : tableAnswers) {
        net.ipAddrTableFirstAnswer = a.first;
        net.ipAddrTableSecondAnswer = a.second;
        EXPECT_FALSE(MyGetIpAddrTable()) << a.first;
    }
    EXPECT_EQ(1u, count("GetIpAddrTable failed:  87"));
    EXPECT_EQ(1u, count("GetIpAddrTable failed:  0"));
    EXPECT_EQ(1u, count("GetIpAddrTable (second call) failed:  50"));

    const std::pair<DWORD, DWORD> adapterAnswers[] = {{ERROR_NO_DATA, NO_ERROR},
                                                      {ERROR_BUFFER_OVERFLOW, ERROR_INVALID_DATA}};
    net.AddEthernet(1, "10.1.0.1", Mac(1));
    for (const auto &a : adapterAnswers) {
        net.adaptersFirstAnswer = a.first;
        net.adaptersSecondAnswer = a.second;
        bool enabled = true;
        EXPECT_FALSE(IsDHCPEnabledForInterface(RowWithMac(Mac(1)), enabled)) << a.first;
        EXPECT_TRUE(enabled);
    }
    EXPECT_EQ(1u, count("GetAdaptersInfo failed:  232"));
    EXPECT_EQ(1u, count("GetAdaptersInfo (second call) failed:  13"));
    // The scan leaves out an interface GetIfEntry does not describe.
    net.ipAddrTableFirstAnswer = ERROR_INSUFFICIENT_BUFFER;
    net.ipAddrTableSecondAnswer = NO_ERROR;
    net.ifEntryError = ERROR_NOT_SUPPORTED;
    EXPECT_TRUE(CollectInterfaceFacts(MyGetIpAddrTable().get()).empty());
}

TEST_F(NetworkInfoTest, AdapterMatchesByWholeHardwareAddress) {
    net.adapters = {{Mac(1), false}, {{0, 0x16, 0x3e, 0x10, 0x20, 3, 0}, true}, {Mac(2), true},
                    {Mac(2), false}};
    bool enabled = false;
    EXPECT_FALSE(IsDHCPEnabledForInterface(RowWithMac(Mac(3)), enabled));  // length 7 differs
    EXPECT_EQ(0u, count("Found matching adapter"));
    ASSERT_TRUE(IsDHCPEnabledForInterface(RowWithMac(Mac(2)), enabled));
    EXPECT_TRUE(enabled);
}

TEST(Nt4Service, AsksTheServiceManager) {
    struct Case {
        void (*arrange)(FakeNetwork &);
        bool known, enabled;
        std::vector<std::string> said;
    };
    const Case cases[] = {
        {[](FakeNetwork &) {}, true, true, {"Found DHCP Client service", "It is enabled"}},
        {[](FakeNetwork &n) { n.services = {{"dhcp", 1}}; }, true, false,
         {"Found DHCP Client service", "It is not enabled:  1"}},
        {[](FakeNetwork &n) { n.services = {{"DHCPServer", 4}}; }, false, false,
         {"Didn't find DHCP Client service"}},
        {[](FakeNetwork &n) { n.versionFails = true; }, false, false, {"GetVersionEx failed:  87"}},
        {[](FakeNetwork &n) { n.major = 3; n.minor = 51; }, false, false,
         {"Not running NT 4.0:  3.51:2"}},
        {[](FakeNetwork &n) { n.platform = VER_PLATFORM_WIN32_WINDOWS; }, false, false,
         {"Not running NT 4.0:  4.0:1"}},
        {[](FakeNetwork &n) { n.scManagerFails = true; }, false, false,
         {"OpenSCManager failed:  5"}},
        {[](FakeNetwork &n) { n.enumFirstError = ERROR_ACCESS_DENIED; }, false, false,
         {"EnumServicesStatus failed:  5"}},
        {[](FakeNetwork &n) { n.enumSecondFails = true; }, false, false,
         {"EnumServicesStatus failed:  8"}},
    };
    for (const Case &c : cases) {
        TempDir dir;
        ScopedTrace trace(dir.file("t.log"));
        FakeNetwork net;
        net.major = 4;
        net.minor = 0;
        net.services = {{"Alerter", 1}, {"Browser", 4}, {"Dhcp", 4}, {"DHCP", 1}};
        c.arrange(net);
        bool enabled = !c.enabled;
        EXPECT_EQ(c.known, IsNT4DHCPServiceEnabled(enabled)) << c.said[0];
        EXPECT_TRUE(!c.known || c.enabled == enabled) << c.said[0];
        EXPECT_EQ(c.said, Said(trace, "IsNT4DHCPServiceEnabled"));
        EXPECT_EQ(net.openedServiceHandles, net.closedServiceHandles) << c.said[0];
    }
}

TEST(NetbiosMac, TakesTheFirstRealAdapter) {
    struct Case {
        std::vector<FakeNetbiosAdapter> adapters;
        int size;
        Macs mac;  // empty for none found
        std::vector<std::string> said;
    };
    const Case cases[] = {
        {{{0, {0, 0x16, 0x3e, 1, 2, 255}}}, 16, {0, 0x16, 0x3e, 1, 2, 255},
         {"Using adapter 0:22:62:1:2:255"}},
        {{{3, {0, 0, 0, 0, 0, 0}}, {1, {'D', 'E', 'S', 'T', 0, 0}}, {2, {1, 2, 3, 4, 5, 6}}}, 6,
         {1, 2, 3, 4, 5, 6},
         {"Found zero address...continuing", "Found dialup adapter", "Using adapter 1:2:3:4:5:6"}},
        {{{0, {9, 9, 9, 9, 9, 9}, true, false}, {1, {8, 8, 8, 8, 8, 8}, false, true},
          {2, {7, 7, 7, 7, 7, 7}}},
         16, {7, 7, 7, 7, 7, 7},
         {"Netbios function failed...continuing", "Netbios function failed...continuing",
          "Using adapter 7:7:7:7:7:7"}},
        {{{0, {1, 2, 3, 4, 5, 6}}}, 5, {}, {"Not enough space for MAC address (need 6 bytes)"}},
        {{{0, {0, 0, 0, 0, 0, 0}}}, 16, {}, {"Found zero address...continuing", "Didn't find an adapter"}},
        {{}, 16, {}, {"Didn't find an adapter"}},
    };
    for (const Case &c : cases) {
        TempDir dir;
        ScopedTrace trace(dir.file("t.log"));
        FakeNetwork net;
        net.netbiosAdapters = c.adapters;
        unsigned char buffer[16] = {};
        uint8_t length = 0;
        EXPECT_EQ(!c.mac.empty(), QueryMacAddr(buffer, c.size, length)) << c.said.back();
        EXPECT_EQ(c.mac.size(), length);
        EXPECT_EQ(c.mac, Macs(buffer, buffer + length));
        EXPECT_EQ(c.said, Said(trace, "QueryMacAddr"));
    }
}

// The address the host name resolves to, in host byte order, looked up here
// the same way: what the fallback must put in ciaddr.
uint32_t HostNameAddress() {
    char name[256] = {};
    if (gethostname(name, sizeof name) != 0) return 0;
    const hostent *entry = gethostbyname(name);
    if (!entry || !entry->h_addr_list[0]) return 0;
    uint32_t a = 0;
    std::memcpy(&a, entry->h_addr_list[0], 4);
    return ntohl(a);
}

TEST_F(NetworkInfoTest, WithoutIphlpapiOnlyForceUsesTheHostNameAndNetbios) {
    WinsockSession winsock;
    ASSERT_TRUE(winsock.started());
    const uint32_t expected = HostNameAddress();
    ASSERT_NE(0u, expected);
    net.iphlpapiPresent = false;
    net.AddEthernet(1, "10.1.0.1", Mac(1));
    net.netbiosAdapters = {{0, {2, 4, 6, 8, 10, 12}}};
    EXPECT_FALSE(GetNetworkInfo(p, false, kDestination));
    EXPECT_EQ(1u, count("Unable to locate iphlpapi.dll:  126"));
    ASSERT_TRUE(GetNetworkInfo(p, true, kDestination));
    EXPECT_EQ(0, net.ipHelperCalls) << "IP Helper reached without iphlpapi.dll";
    EXPECT_EQ(expected, p.ciaddr);
    EXPECT_EQ(6, p.hlen);
    EXPECT_EQ((Macs{2, 4, 6, 8, 10, 12}), Chaddr(p, 6));

    // A machine with only a loopback route falls back the same way.
    net.iphlpapiPresent = true;
    net.interfaces = {{1, 24, "127.0.0.1", {}, "Loopback"}};
    net.bestRouteInterface = 1;
    DHCPPacket q;
    ASSERT_TRUE(GetNetworkInfo(q, true, kDestination));
    EXPECT_EQ(expected, q.ciaddr);

    net.netbiosPresent = false;  // no NetBIOS: no hardware address, no packet
    DHCPPacket r;
    EXPECT_FALSE(GetNetworkInfo(r, true, kDestination));
    EXPECT_EQ(0u, count("Didn't find an adapter"));
}

}  // namespace
