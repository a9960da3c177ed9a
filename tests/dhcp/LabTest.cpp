// The DHCPINFORM exchange and automatic discovery against real servers in
// the lab's network namespaces (lab/lab-test.sh runs this program there; it
// broadcasts and looks up wpad names, so it never runs anywhere else).
//
// LabDnsmasq.*   while dnsmasq is the DHCP server
// LabResponder.* while the programmable responder is, its replies chosen
//                through responder.mode in the lab folder
// LabDnsWalk.*   under each of the lab's host names
//
// The program carries the PAC type library (resource TYPELIB 1), as the DLL
// does, so the scripts found are evaluated for real.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include <objbase.h>
#include <wininet.h>

#include "TestSupport.h"
#include "dhcp/dhcp.h"
#include "resolver/Routvane.h"
#include "resolver/WinInetSettings.h"

namespace {

std::string Env(const char *name) {
    const char *v = std::getenv(name);
    return v ? v : "";
}

// The lab folder as a Windows path (Wine's Z: drive is the root).
std::string LabFile(const std::string &name) {
    std::string path = "Z:" + Env("ROUTVANE_LAB_DIR") + "/" + name;
    for (char &c : path)
        if (c == '/') c = '\\';
    return path;
}

std::string ServerIp() { return Env("ROUTVANE_LAB_SERVER"); }
std::string ClientIp() { return Env("ROUTVANE_LAB_CLIENT"); }
std::string DhcpUrl() { return Env("ROUTVANE_LAB_DHCP_URL"); }

class LabTest : public testing::Test {
protected:
    LabTest() : trace(dir.file("t.log")) {}
    void SetUp() override {
        // Only the lab sets this: anywhere else the broadcast could leave the
        // machine.
        if (Env("ROUTVANE_LAB_DIR").empty()) FAIL() << "run by lab/lab-test.sh only";
    }
    size_t count(const std::string &text) const { return trace.linesWith(text).size(); }
    // Trace texts (without the thread tail) of one function, in order.
    std::vector<std::string> messages(const std::string &function) const {
        std::vector<std::string> out;
        for (const std::string &line : trace.lines()) {
            if (line.find(";function=" + function + ")") == std::string::npos) continue;
            const std::string text = LineText(line);
            if (text.find("):  Entered") != std::string::npos ||
                text.find("): Exited") != std::string::npos)
                continue;
            out.push_back(text.substr(0, text.rfind(" (tid=")));
        }
        return out;
    }
    TempDir dir;
    ScopedTrace trace;
};

// The PAC script engine behind the discovered URLs runs in the caller's
// apartment.
class ComApartment : public testing::Environment {
public:
    void SetUp() override { CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED); }
    void TearDown() override { CoUninitialize(); }
};
testing::Environment *const kComApartment = testing::AddGlobalTestEnvironment(new ComApartment);

uint32_t RawAddress(const std::string &dotted) { return inet_addr(dotted.c_str()); }

// WinINet as a browser set to detect its settings automatically. Wine's
// WinINet does not report PROXY_TYPE_AUTO_DETECT, so the settings seam
// answers the per-connection query; every other query goes to WinINet.
BOOL WINAPI AutoDetectSettings(HINTERNET session, DWORD option, void *buffer, DWORD *length) {
    if (option != INTERNET_OPTION_PER_CONNECTION_OPTION)
        return RealWinInetSettings().InternetQueryOptionA(session, option, buffer, length);
    auto *list = static_cast<INTERNET_PER_CONN_OPTION_LISTA *>(buffer);
    for (DWORD i = 0; i < list->dwOptionCount; ++i) {
        INTERNET_PER_CONN_OPTIONA &o = list->pOptions[i];
        switch (o.dwOption) {
        case INTERNET_PER_CONN_FLAGS:
            o.Value.dwValue = PROXY_TYPE_DIRECT | PROXY_TYPE_AUTO_DETECT;
            break;
        case INTERNET_PER_CONN_AUTODISCOVERY_FLAGS:
            o.Value.dwValue = AUTO_PROXY_FLAG_USER_SET;
            break;
        default:  // the URL, bypass list and proxy server: none
            o.Value.pszValue = nullptr;
        }
    }
    return TRUE;
}

// The resolver as a client gets it: from the class object, through
// IClassFactory, as IRoutvane (the class object of the library's code linked
// into this program, so that the settings seam above applies).
IRoutvane *CreateThroughClassObject() {
    IClassFactory *factory = nullptr;
    if (FAILED(DllGetClassObject(CLSID_Routvane, IID_IClassFactory,
                                 reinterpret_cast<void **>(&factory))))
        return nullptr;
    IRoutvane *resolver = nullptr;
    factory->CreateInstance(nullptr, IID_IRoutvane, reinterpret_cast<void **>(&resolver));
    factory->Release();
    return resolver;
}

struct Entry {
    bool direct;
    std::string host;
    unsigned port;
    bool operator==(const Entry &o) const {
        return direct == o.direct && host == o.host && port == o.port;
    }
};

std::ostream &operator<<(std::ostream &out, const Entry &e) {
    return out << (e.direct ? "DIRECT" : "PROXY " + e.host + ":" + std::to_string(e.port));
}

std::vector<Entry> Entries(IRoutvane *resolver) {
    std::vector<Entry> out;
    for (long long i = 0; i < resolver->GetProxyCount(); ++i) {
        Entry e{false, "", 0};
        char host[256] = {};
        EXPECT_TRUE(resolver->GetProxy(static_cast<int>(i), &e.direct, host, sizeof host, &e.port));
        e.host = host;
        out.push_back(e);
    }
    return out;
}

std::string AutoConfigUrl(IRoutvane *resolver) {
    char url[1024] = {};
    resolver->GetAutoConfigURL(url, sizeof url);
    return url;
}

std::string AutoConfigScript(IRoutvane *resolver) {
    std::vector<char> script(64 * 1024, '\0');
    resolver->GetAutoConfigScript(script.data(), static_cast<int>(script.size()));
    return script.data();
}

// ---------------------------------------------------------------- dnsmasq

class LabDnsmasq : public LabTest {};

// Automatic discovery for www.example.com:80 on a fresh resolver.
uint32_t AutoDetect(uint32_t options) {
    Routvane *resolver = new Routvane;
    resolver->AddRef();
    const uint32_t status = resolver->RunAutoDetect(options, "www.example.com", 80);
    resolver->Release();
    return status;
}

TEST_F(LabDnsmasq, AnswersTheInformWithOption252) {
    std::string url;
    uint32_t server = 0;
    ASSERT_TRUE(DiscoverProxyUrlViaDHCP(false, ServerIp(), url, 2, &server));
    EXPECT_EQ(DhcpUrl(), url);
    EXPECT_EQ(RawAddress(ServerIp()), server);
    EXPECT_EQ(1u, count("received a related DHCP packet from " +
                        std::to_string(RawAddress(ServerIp()))));
    EXPECT_EQ(1u, count("Found proxy URL:  " + DhcpUrl()));
    EXPECT_EQ(0u, count("Timeout while waiting for DHCP response"));
}

TEST_F(LabDnsmasq, AutoDetectTakesTheDhcpUrlFirst) {
    auto timeout = ScopedRegistryValue::Dword("DHCPTimeout", 1);
    const uint32_t status = AutoDetect(0);
    const auto m = messages("Routvane::RunAutoDetect");
    ASSERT_GE(m.size(), 3u);
    EXPECT_EQ("www.example.com:80", m[0]);
    EXPECT_EQ("Using DHCP timeout: 1 secs", m[1]);
    EXPECT_EQ("DiscoverProxyUrlViaDHCP returned true", m[2]);
    EXPECT_EQ(0u, count("DiscoverProxyUrlViaDHCP returned false"));
    // A usable script ends discovery; a failed one hands over to the wpad
    // names.
    EXPECT_EQ(status == ROUTVANE_FAILED ? 2u : 0u, count("Trying WPAD well-known URL"));
}

// End to end: a browser set to detect its settings, the DHCP server's URL,
// its script evaluated, the entries as the client reads them.
TEST_F(LabDnsmasq, RoutvaneBrowserWithAutoDetectTakesTheDhcpScript) {
    auto timeout = ScopedRegistryValue::Dword("DHCPTimeout", 1);
    ScopedWinInetSettings platform;
    platform->InternetQueryOptionA = &AutoDetectSettings;
    IRoutvane *resolver = CreateThroughClassObject();
    ASSERT_NE(nullptr, resolver);
    EXPECT_EQ(static_cast<unsigned>(ROUTVANE_PROXY),
              resolver->RoutvaneBrowser(0, "www.example.com", 80));
    unsigned browser = ROUTVANE_BROWSER_UNKNOWN;
    EXPECT_TRUE(resolver->GetBrowser(&browser));
    EXPECT_EQ(static_cast<unsigned>(ROUTVANE_BROWSER_IE), browser);
    // dhcp-wpad.dat answers "DIRECT".
    EXPECT_EQ(std::vector<Entry>({{true, "", 0}}), Entries(resolver));
    EXPECT_EQ(DhcpUrl(), AutoConfigUrl(resolver));
    EXPECT_NE(std::string::npos, AutoConfigScript(resolver).find("return \"DIRECT\""));
    EXPECT_EQ(0u, resolver->Release());
    EXPECT_EQ(1u, count("PROXY_TYPE_AUTO_DETECT"));
    EXPECT_EQ(1u, count("DiscoverProxyUrlViaDHCP returned true"));
    EXPECT_EQ(1u, count("FindProxyForURL returned:  DIRECT"));
    EXPECT_EQ(0u, count("Trying WPAD"));
}

// -------------------------------------------------------------- responder

class LabResponder : public LabTest {
protected:
    void mode(const std::string &m) {
        std::ofstream f(LabFile("responder.mode"), std::ios::trunc);
        f << m << "\n";
    }
    // The requests the responder has received, as hex lines "ip:port hex".
    std::vector<std::string> received() {
        std::vector<std::string> out;
        for (const std::string &line : ReadLines(LabFile("responder.log")))
            if (line.rfind("rx ", 0) == 0) out.push_back(line.substr(3));
        return out;
    }
};

struct ExchangeCase {
    const char *name;
    const char *mode;
    bool found;
    size_t urlLength;  // 0: the lab URL
    std::vector<std::string> lines;  // the exchange's trace, in order
};

class LabExchange : public LabResponder, public testing::WithParamInterface<ExchangeCase> {};

const char kRelated[] = "received a related DHCP packet from ";
const char kUnrelated[] = "received a non-related DHCP packet...waiting again";
const char kTimeout[] = "Timeout while waiting for DHCP response";
const char kNoUrl[] = "it doesn't contain a URL option...waiting again";
const char kDone[] = "it contains a URL option...done";
const char kNotFound[] = "Did not find proxy URL";

TEST_P(LabExchange, FollowsTheReplies) {
    const ExchangeCase &c = GetParam();
    mode(c.mode);
    const size_t before = received().size();
    std::string url = "unchanged";
    uint32_t server = 0;
    const DWORD start = GetTickCount();
    const bool found = DiscoverProxyUrlViaDHCP(false, ServerIp(), url, 1, &server);
    const DWORD elapsed = GetTickCount() - start;
    EXPECT_EQ(c.found, found);
    if (c.found) {
        if (c.urlLength == 0) {
            EXPECT_EQ(DhcpUrl(), url);
        } else {
            EXPECT_EQ(c.urlLength, url.size());
        }
        EXPECT_EQ(RawAddress(ServerIp()), server);
    } else {
        EXPECT_EQ("unchanged", url);
        EXPECT_EQ(0u, server);
        // Two sends, each followed by one full time-out of 1 s. The upper
        // bound only has to tell two waits of 1 s from two of 2 s; the
        // margin absorbs a loaded machine's delays between the waits.
        EXPECT_GE(elapsed, 1900u);
        EXPECT_LT(elapsed, 3900u);
    }
    EXPECT_EQ(before + (c.found ? 1 : 2), received().size()) << "requests sent";

    std::vector<std::string> seen;
    for (const std::string &m : messages("DiscoverProxyUrlViaDHCP")) {
        if (m.rfind(kRelated, 0) == 0) {
            EXPECT_EQ(kRelated + std::to_string(RawAddress(ServerIp())), m);
            seen.push_back(kRelated);
        } else if (m.rfind("Found proxy URL:  ", 0) != 0) {
            seen.push_back(m);
        }
    }
    EXPECT_EQ(c.lines, seen);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, LabExchange,
    testing::Values(
        ExchangeCase{"ack", "url", true, 0, {kRelated, kDone}},
        ExchangeCase{"nakWithUrl", "nak", true, 0, {kRelated, kDone}},
        ExchangeCase{"otherXidIgnored",
                     "otherxid",
                     false,
                     0,
                     {kUnrelated, kTimeout, kUnrelated, kTimeout, kNotFound}},
        ExchangeCase{"otherXidThenRelated", "otherxid,url", true, 0,
                     {kUnrelated, kRelated, kDone}},
        ExchangeCase{"noUrlWaitsAgain",
                     "nourl",
                     false,
                     0,
                     {kRelated, kNoUrl, kTimeout, kRelated, kNoUrl, kTimeout, kNotFound}},
        ExchangeCase{"noUrlThenUrl", "nourl,url", true, 0, {kRelated, kNoUrl, kRelated, kDone}},
        ExchangeCase{"embeddedZeros", "zeros", true, 20, {kRelated, kDone}},
        ExchangeCase{"longest", "long", true, 255, {kRelated, kDone}},
        ExchangeCase{"shortRelated",
                     "short",
                     false,
                     0,
                     {kRelated, kNoUrl, kTimeout, kRelated, kNoUrl, kTimeout, kNotFound}},
        // The reply packet is not cleared between waits: a short related
        // reply is judged with the option bytes of the unrelated one before.
        ExchangeCase{"shortAfterUnrelatedKeepsItsOptions", "otherxid,short", true, 0,
                     {kUnrelated, kRelated, kDone}},
        ExchangeCase{"silent", "silent", false, 0, {kTimeout, kTimeout, kNotFound}}),
    [](const testing::TestParamInfo<ExchangeCase> &info) { return std::string(info.param.name); });

TEST_F(LabResponder, InformOnTheWireIsByteExact) {
    mode("url");
    std::string url;
    ASSERT_TRUE(DiscoverProxyUrlViaDHCP(false, ServerIp(), url, 1));
    const std::vector<std::string> rx = received();
    ASSERT_FALSE(rx.empty());
    const std::string &last = rx.back();
    const std::string::size_type blank = last.find(' ');
    // Sent from the client's own address and port 68.
    EXPECT_EQ(ClientIp() + ":68", last.substr(0, blank));
    const std::string hex = last.substr(blank + 1);
    ASSERT_EQ(2u * 548, hex.size());
    std::vector<unsigned char> wire;
    for (size_t i = 0; i < hex.size(); i += 2)
        wire.push_back(static_cast<unsigned char>(std::strtoul(hex.substr(i, 2).c_str(), nullptr, 16)));

    // The hardware address of the lab interface, as the adapter list has it.
    ULONG size = 0;
    ASSERT_EQ(static_cast<DWORD>(ERROR_BUFFER_OVERFLOW), GetAdaptersInfo(nullptr, &size));
    std::vector<unsigned char> buffer(size);
    auto *adapters = reinterpret_cast<IP_ADAPTER_INFO *>(buffer.data());
    ASSERT_EQ(static_cast<DWORD>(NO_ERROR), GetAdaptersInfo(adapters, &size));
    std::vector<unsigned char> mac;
    for (IP_ADAPTER_INFO *a = adapters; a; a = a->Next)
        if (ClientIp() == a->IpAddressList.IpAddress.String)
            mac.assign(a->Address, a->Address + a->AddressLength);
    ASSERT_EQ(6u, mac.size());

    std::vector<unsigned char> expected(548, 0);
    expected[0] = 1;  // BOOTREQUEST
    expected[1] = 1;  // Ethernet
    expected[2] = 6;
    for (int i = 4; i < 8; ++i) expected[i] = wire[i];  // xid
    const uint32_t ciaddr = RawAddress(ClientIp());
    std::memcpy(&expected[12], &ciaddr, 4);
    std::memcpy(&expected[28], mac.data(), 6);
    const unsigned char options[] = {0x63, 0x82, 0x53, 0x63, 0x35, 0x01,
                                     0x08, 0x37, 0x01, 0xFC, 0xFF};
    std::memcpy(&expected[236], options, sizeof options);
    EXPECT_EQ(expected, wire);
}

TEST_F(LabResponder, FloodOfUnrelatedPacketsRestartsEveryWait) {
    // Unrelated packets for 3 s, then the answer: every wait restarts the
    // full 1-s time-out, so the one send outlives two time-outs.
    mode("flood:3,url");
    std::string url;
    const DWORD start = GetTickCount();
    ASSERT_TRUE(DiscoverProxyUrlViaDHCP(false, ServerIp(), url, 1));
    const DWORD elapsed = GetTickCount() - start;
    EXPECT_EQ(DhcpUrl(), url);
    EXPECT_GE(elapsed, 2900u);
    EXPECT_LT(elapsed, 6000u);
    EXPECT_EQ(0u, count(kTimeout));
    EXPECT_GT(count(kUnrelated), 20u);
}

TEST_F(LabResponder, PortTakenMakesBindFail) {
    mode("url");
    WinsockSession winsock;
    SocketOwner holder(socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP));
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(68);
    local.sin_addr.s_addr = RawAddress(ClientIp());
    ASSERT_EQ(0, bind(holder.get(), reinterpret_cast<sockaddr *>(&local), sizeof local));
    std::string url;
    EXPECT_FALSE(DiscoverProxyUrlViaDHCP(false, ServerIp(), url, 1));
    EXPECT_EQ(1u, count("bind failed:  10048"));
    EXPECT_EQ(1u, count(kNotFound));
}

TEST_F(LabResponder, DestinationNamesOfEveryShape) {
    // Names the lab's DNS does not know leave the destination all ones; the
    // default route still chooses the lab interface.
    WinsockSession winsock;
    const std::string names[] = {"nodots", "trailing.dot.sales.corp.example.",
                                 std::string(255, 'a'), std::string(300, 'b') + ".example", "",
                                 "wpadhost.sales.corp.example", ServerIp()};
    for (const std::string &name : names) {
        DHCPPacket p;
        ASSERT_TRUE(p.CreateInformPacket(false, name)) << name.size();
        EXPECT_EQ(ntohl(RawAddress(ClientIp())), p.ciaddr) << name.size();
    }
}

TEST_F(LabResponder, AutoDetectWalksTheWpadNamesWhenDhcpIsSilent) {
    mode("silent");
    auto timeout = ScopedRegistryValue::Dword("DHCPTimeout", 1);
    const uint32_t status = AutoDetect(0);
    const auto m = messages("Routvane::RunAutoDetect");
    ASSERT_GE(m.size(), 4u);
    EXPECT_EQ("DiscoverProxyUrlViaDHCP returned false", m[2]);
    EXPECT_EQ("Trying WPAD well-known URL http://wpad.sales.corp.example/wpad.dat", m[3]);
    EXPECT_EQ(2u, count(kTimeout));
    if (status == ROUTVANE_FAILED) {
        EXPECT_EQ(std::vector<std::string>(
                      {"www.example.com:80", "Using DHCP timeout: 1 secs",
                       "DiscoverProxyUrlViaDHCP returned false",
                       "Trying WPAD well-known URL http://wpad.sales.corp.example/wpad.dat",
                       "Trying WPAD well-known URL http://wpad.corp.example/wpad.dat"}),
                  m);
    }
}

TEST_F(LabResponder, DnsStageOffAnswersDirect) {
    mode("silent");
    auto timeout = ScopedRegistryValue::Dword("DHCPTimeout", 1);
    EXPECT_EQ(1u, AutoDetect(ROUTVANE_SKIP_DNS | ROUTVANE_FORCE_DHCP));
    EXPECT_EQ(1u, count("DiscoverProxyUrlViaDHCP returned false"));
    EXPECT_EQ(2u, count(kTimeout));
    EXPECT_EQ(0u, count("Trying WPAD"));
}

// End to end with DHCP silent: the first wpad name of the DNS walk gives the
// script, and the client reads its proxy.
TEST_F(LabResponder, RoutvaneBrowserWithAutoDetectFindsTheWpadNameWhenDhcpIsSilent) {
    mode("silent");
    auto timeout = ScopedRegistryValue::Dword("DHCPTimeout", 1);
    ScopedWinInetSettings platform;
    platform->InternetQueryOptionA = &AutoDetectSettings;
    IRoutvane *resolver = CreateThroughClassObject();
    ASSERT_NE(nullptr, resolver);
    EXPECT_EQ(static_cast<unsigned>(ROUTVANE_PROXY),
              resolver->RoutvaneBrowser(0, "www.example.com", 80));
    EXPECT_EQ(std::vector<Entry>({{false, "proxy.sales.corp.example", 3128}}), Entries(resolver));
    EXPECT_EQ("http://wpad.sales.corp.example/wpad.dat", AutoConfigUrl(resolver));
    EXPECT_NE(std::string::npos,
              AutoConfigScript(resolver).find("PROXY proxy.sales.corp.example:3128"));
    EXPECT_EQ(0u, resolver->Release());
    EXPECT_EQ(1u, count("PROXY_TYPE_AUTO_DETECT"));
    EXPECT_EQ(2u, count(kTimeout));
    EXPECT_EQ(1u, count("DiscoverProxyUrlViaDHCP returned false"));
    EXPECT_EQ(std::vector<std::string>(
                  {"Trying WPAD well-known URL http://wpad.sales.corp.example/wpad.dat"}),
              [&] {
                  std::vector<std::string> tried;
                  for (const std::string &m : messages("Routvane::RunAutoDetect"))
                      if (m.rfind("Trying WPAD", 0) == 0) tried.push_back(m);
                  return tried;
              }());
}

// ---------------------------------------------------------------- DNS walk

struct WalkCase {
    const char *host;  // the machine's name in the lab
    std::vector<std::string> urls;  // tried in order
    const char *unqualified;  // or the line that says so
};

class LabDnsWalk : public LabTest {};

TEST_F(LabDnsWalk, TriesTheWpadNamesOfThisHost) {
    static const WalkCase cases[] = {
        {"pc7.sales.corp.example",
         {"http://wpad.sales.corp.example/wpad.dat", "http://wpad.corp.example/wpad.dat"},
         nullptr},
        // Never a top-level domain alone: nothing to try.
        {"pc8.example", {}, nullptr},
        {"pc5.example.co.uk",
         {"http://wpad.example.co.uk/wpad.dat", "http://wpad.co.uk/wpad.dat"},
         nullptr},
        {"pc6.example.", {"http://wpad.example./wpad.dat"}, nullptr},
        {"pc9", {}, "pc9 is not fully qualified"},
        {"host-with-a-name-of-exactly-sixty-four-characters.a.b.example.cc",
         {"http://wpad.a.b.example.cc/wpad.dat", "http://wpad.b.example.cc/wpad.dat",
          "http://wpad.example.cc/wpad.dat"},
         nullptr},
    };
    WinsockSession winsock;
    char name[256] = {};
    ASSERT_EQ(0, gethostname(name, sizeof name));
    const WalkCase *c = nullptr;
    for (const WalkCase &w : cases)
        if (std::string(w.host) == name) c = &w;
    ASSERT_NE(nullptr, c) << "no expectation for the host name " << name;

    const uint32_t status = AutoDetect(ROUTVANE_SKIP_DHCP);
    std::vector<std::string> tried;
    for (const std::string &m : messages("Routvane::RunAutoDetect"))
        if (m.rfind("Trying WPAD well-known URL ", 0) == 0) tried.push_back(m.substr(27));
    if (status == ROUTVANE_FAILED) {
        EXPECT_EQ(c->urls, tried);
    } else {
        // A usable script stops the walk at the name that gave it.
        ASSERT_FALSE(tried.empty());
        ASSERT_LE(tried.size(), c->urls.size());
        EXPECT_EQ(std::vector<std::string>(c->urls.begin(), c->urls.begin() + tried.size()),
                  tried);
    }
    if (c->unqualified) {
        EXPECT_EQ(1u, count(c->unqualified));
        EXPECT_EQ(ROUTVANE_FAILED, status);
    }
    EXPECT_EQ(1u, count("DiscoverProxyUrlViaDHCP returned false"));
}

}  // namespace
