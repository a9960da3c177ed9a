#include <gtest/gtest.h>

#include "FakeSettings.h"
#include "PacFixtures.h"
#include "TestSupport.h"
#include "resolver/Routvane.h"

namespace {

// Options that keep automatic discovery off the network: no DHCP, no DNS.
const uint32_t kNoDiscoveryTraffic = ROUTVANE_SKIP_DHCP | ROUTVANE_SKIP_DNS;
// A PAC URL whose download fails at once: nothing listens there.
const char kDeadPacUrl[] = "http://127.0.0.1:9/proxy.pac";


struct SettingsCase {
    const char *name;
    // WinINet as arranged
    DWORD major, minor;
    DWORD flags;
    const char *proxy, *bypass, *url;
    DWORD accessType;
    const char *legacyProxy, *legacyBypass;
    // the request
    const char *target;
    uint32_t port;
    uint32_t options;
    // the answer
    uint32_t status;
    std::vector<Entry> entries;
    std::vector<std::string> present;  // trace texts that must appear
    std::vector<std::string> absent;   // and must not
};

class SettingsTest : public testing::TestWithParam<SettingsCase> {};

TEST_P(SettingsTest, WalksTheSourcesInTheirFixedOrder) {
    const SettingsCase &c = GetParam();
    ScopedWinInetSettings platform;
    FakeWinInet wininet;
    wininet.Install(platform);
    wininet.major = c.major;
    wininet.minor = c.minor;
    wininet.flags = c.flags;
    wininet.proxyServer = c.proxy;
    wininet.bypass = c.bypass;
    wininet.autoConfigUrl = c.url;
    wininet.accessType = c.accessType;
    wininet.legacyProxy = c.legacyProxy;
    wininet.legacyBypass = c.legacyBypass;
    TempDir dir;
    ScopedTrace trace(dir.file("t.txt"));
    Routvane *r = new Routvane();
    r->AddRef();
    EXPECT_EQ(r->GetProxyFromIE(c.options, c.target, c.port), c.status);
    EXPECT_EQ(Entries(*r), c.entries);
    for (const std::string &text : c.present) EXPECT_FALSE(trace.linesWith(text).empty()) << text;
    for (const std::string &text : c.absent) EXPECT_TRUE(trace.linesWith(text).empty()) << text;
    r->Release();
}

const DWORD kDirect = PROXY_TYPE_DIRECT, kProxy = PROXY_TYPE_PROXY,
            kUrl = PROXY_TYPE_AUTO_PROXY_URL, kDetect = PROXY_TYPE_AUTO_DETECT;

INSTANTIATE_TEST_SUITE_P(
    Table, SettingsTest,
    testing::Values(
        SettingsCase{"local_bypass_plain_name", 1, 2, kDirect | kProxy, "proxy:8080", "<local>",
                     nullptr, 0, nullptr, nullptr, "intranet", 80, 0, 1, {}, {},
                     {"PROXY_TYPE_PROXY:  "}},
        SettingsCase{"local_bypass_dotted_name", 1, 2, kDirect | kProxy, "proxy:8080", "<local>",
                     nullptr, 0, nullptr, nullptr, "web.corp", 80, 0, 0, {{1, "proxy", 8080}},
                     {"PROXY_TYPE_PROXY:  proxy:8080", "INTERNET_OPTION_VERSION is 1.2"}, {}},
        SettingsCase{"scheme_list_without_http_ends_the_walk", 1, 2, kProxy | kUrl, "ftp=f:21",
                     nullptr, kDeadPacUrl, 0, nullptr, nullptr, "web.corp", 80, 0, 1, {}, {},
                     {"PROXY_TYPE_AUTO_PROXY_URL"}},
        SettingsCase{"https_entry_preferred", 1, 2, kProxy, "http=h1:80;https=h2:443", nullptr,
                     nullptr, 0, nullptr, nullptr, "web.corp", 80, 0, 0, {{1, "h2", 443}}, {}, {}},
        SettingsCase{"bypass_with_port", 1, 2, kProxy, "p:1", "*.corp:443", nullptr, 0, nullptr,
                     nullptr, "host.corp", 443, 0, 1, {}, {}, {}},
        SettingsCase{"bypass_other_port", 1, 2, kProxy, "p:1", "*.corp:443", nullptr, 0, nullptr,
                     nullptr, "host.corp", 8080, 0, 0, {{1, "p", 1}}, {}, {}},
        SettingsCase{"failed_pac_then_direct", 1, 2, kUrl | kDirect, nullptr, nullptr, kDeadPacUrl,
                     0, nullptr, nullptr, "web.corp", 80, 0, 1, {},
                     {"PROXY_TYPE_AUTO_PROXY_URL", "RunAutoProxyURL failed...trying other proxy options",
                      "PROXY_TYPE_DIRECT"},
                     {}},
        SettingsCase{"failed_pac_alone_fails", 1, 2, kUrl, nullptr, nullptr, kDeadPacUrl, 0,
                     nullptr, nullptr, "web.corp", 80, 0, 2, {},
                     {"RunAutoProxyURL failed...trying other proxy options"}, {"PROXY_TYPE_DIRECT"}},
        SettingsCase{"failed_pac_then_detection", 1, 2, kUrl | kDetect | kDirect, nullptr, nullptr,
                     kDeadPacUrl, 0, nullptr, nullptr, "web.corp", 80, kNoDiscoveryTraffic, 1, {},
                     {"RunAutoProxyURL failed...trying other proxy options", "PROXY_TYPE_AUTO_DETECT"},
                     {}},
        SettingsCase{"url_flag_without_url_is_skipped", 1, 2, kUrl, nullptr, nullptr, nullptr, 0,
                     nullptr, nullptr, "web.corp", 80, 0, 1, {}, {}, {"PROXY_TYPE_AUTO_PROXY_URL"}},
        SettingsCase{"proxy_flag_without_server_is_skipped", 1, 2, kProxy | kDirect, nullptr,
                     "<local>", nullptr, 0, nullptr, nullptr, "web.corp", 80, 0, 1, {},
                     {"PROXY_TYPE_DIRECT"}, {"PROXY_TYPE_PROXY:  "}},
        SettingsCase{"no_flags", 1, 2, 0, "p:1", nullptr, nullptr, 0, nullptr, nullptr, "x", 80,
                     0, 1, {}, {}, {}},
        SettingsCase{"legacy_proxy_ignores_bypass", 1, 1, 0, nullptr, nullptr, nullptr,
                     INTERNET_OPEN_TYPE_PROXY, "p:3128", "<local>", "intranet", 80, 0, 0,
                     {{1, "p", 3128}}, {"INTERNET_OPTION_VERSION is 1.1", "Proxy bypass:  <local>"},
                     {}},
        SettingsCase{"legacy_scheme_list_is_one_host", 1, 0, 0, nullptr, nullptr, nullptr,
                     INTERNET_OPEN_TYPE_PROXY, "http=h1:80;https=h2:443", nullptr, "x", 80, 0, 0,
                     {{1, "http=h1", 80}}, {}, {}},
        SettingsCase{"legacy_direct", 1, 0, 0, nullptr, nullptr, nullptr,
                     INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, "x", 80, 0, 1, {},
                     {"No proxy set"}, {}},
        SettingsCase{"legacy_empty_proxy", 1, 1, 0, nullptr, nullptr, nullptr,
                     INTERNET_OPEN_TYPE_PROXY, "", nullptr, "x", 80, 0, 1, {},
                     {"Empty proxy value"}, {}},
        SettingsCase{"legacy_preconfig_is_invalid", 1, 1, 0, nullptr, nullptr, nullptr,
                     INTERNET_OPEN_TYPE_PRECONFIG, nullptr, nullptr, "x", 80, 0, 2, {},
                     {"Invalid dwAccessType:  0 "}, {}},
        SettingsCase{"version_2_0_is_per_connection", 2, 0, kProxy, "p:2", nullptr, nullptr,
                     INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, "x", 80, 0, 0, {{1, "p", 2}},
                     {}, {"No proxy set"}}),
    [](const testing::TestParamInfo<SettingsCase> &info) { return std::string(info.param.name); });

class FailingQueriesTest : public testing::Test {
protected:
    void SetUp() override { wininet_.Install(platform_); }
    uint32_t Resolve() {
        Routvane *r = new Routvane();
        r->AddRef();
        const uint32_t status = r->GetProxyFromIE(0, "x.example", 80);
        count_ = r->GetProxyCount();
        r->Release();
        return status;
    }
    ScopedWinInetSettings platform_;
    FakeWinInet wininet_;
    TempDir dir_;
    ScopedTrace trace_{dir_.file("t.txt")};
    long long count_ = 0;
};

TEST_F(FailingQueriesTest, PerConnectionQueryFailureFails) {
    wininet_.perConnectionOk = false;
    EXPECT_EQ(Resolve(), 2u);
    EXPECT_EQ(trace_.linesWith("InternetQueryOption(INTERNET_OPTION_PER_CONNECTION_OPTION) failed:  12009 ")
                  .size(),
              1u);
}

TEST_F(FailingQueriesTest, LegacyQueryFailureFails) {
    wininet_.minor = 1;
    wininet_.legacyOk = false;
    EXPECT_EQ(Resolve(), 2u);
    EXPECT_EQ(trace_.linesWith("InternetQueryOption failed:  12009 ").size(), 1u);
}

TEST_F(FailingQueriesTest, VersionFailureTakesThePerConnectionPath) {
    wininet_.versionOk = false;
    wininet_.flags = PROXY_TYPE_PROXY;
    wininet_.proxyServer = "p:9";
    EXPECT_EQ(Resolve(), 0u);
    EXPECT_TRUE(trace_.linesWith("INTERNET_OPTION_VERSION is").empty());
    EXPECT_EQ(wininet_.perConnectionQueries, 1);
}

TEST_F(FailingQueriesTest, MissingWininetGoesDirectSilently) {
    wininet_.present = false;
    EXPECT_EQ(Resolve(), 1u);
    EXPECT_EQ(wininet_.perConnectionQueries, 0);
    // Only the entry and target lines of the function itself.
    EXPECT_TRUE(trace_.linesWith("INTERNET_OPTION").empty());
    EXPECT_EQ(trace_.linesWith("x.example:80 ").size(), 1u);
}

TEST_F(FailingQueriesTest, OverlongLegacyStringsFailTheQuery) {
    wininet_.minor = 1;
    wininet_.accessType = INTERNET_OPEN_TYPE_PROXY;
    const std::string longProxy(200, 'p');
    wininet_.legacyProxy = longProxy.c_str();
    EXPECT_EQ(Resolve(), 2u);
    EXPECT_EQ(count_, 0);
}

// Wine's own WinINet, with a fixed proxy and a bypass list in the registry
// of this prefix.
TEST(RealWinInetTest, FixedProxyAndBypassListFromTheRegistry) {
    const std::string key = "Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings";
    auto enable = ScopedRegistryValue::Dword("ProxyEnable", 1, HKEY_CURRENT_USER, key);
    auto server = ScopedRegistryValue::String("ProxyServer", "proxy.corp.example:3128",
                                              HKEY_CURRENT_USER, key);
    auto bypass = ScopedRegistryValue::String("ProxyOverride", "<local>;*.intranet.example",
                                              HKEY_CURRENT_USER, key);
    const struct {
        const char *target;
        uint32_t status;
    } rows[] = {{"www.example.com", 0}, {"intranet", 1}, {"app.intranet.example", 1}};
    for (const auto &row : rows) {
        Routvane *r = new Routvane();
        r->AddRef();
        EXPECT_EQ(r->GetProxyFromIE(0, row.target, 443), row.status) << row.target;
        if (row.status == 0) {
            ASSERT_EQ(r->GetProxyCount(), 1);
            EXPECT_EQ(r->proxies()[0].host, "proxy.corp.example");
            EXPECT_EQ(r->proxies()[0].port, 3128u);
        }
        r->Release();
    }
}

}  // namespace
