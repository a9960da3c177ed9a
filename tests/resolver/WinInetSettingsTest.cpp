#include <gtest/gtest.h>

#include "FakeSettings.h"
#include "PacFixtures.h"
#include "TestSupport.h"
#include "resolver/Routvane.h"
#include "resolver/WinInetSettings.h"
#include "trace/tracefunc.h"

namespace {

const DWORD kDirectFlag = PROXY_TYPE_DIRECT, kProxy = PROXY_TYPE_PROXY,
            kUrl = PROXY_TYPE_AUTO_PROXY_URL, kDetect = PROXY_TYPE_AUTO_DETECT;

std::optional<std::string> Opt(const char *text) {
    return text ? std::optional<std::string>(text) : std::nullopt;
}

// The LAN settings of WinINet 1.2.
WinInetSnapshot PerConnection(DWORD flags, const char *proxy, const char *bypass = nullptr,
                              const char *url = nullptr) {
    WinInetSnapshot s;
    s.versionKnown = true;
    s.major = 1;
    s.minor = 2;
    s.answered = true;
    s.flags = flags;
    s.proxyServer = Opt(proxy);
    s.bypass = Opt(bypass);
    s.autoConfigUrl = Opt(url);
    return s;
}

// The INTERNET_OPTION_PROXY answer of WinINet 1.1.
WinInetSnapshot Legacy(DWORD accessType, const char *proxy = nullptr,
                       const char *bypass = nullptr) {
    WinInetSnapshot s = PerConnection(0, nullptr);
    s.minor = 1;
    s.legacy = true;
    s.accessType = accessType;
    s.legacyProxy = Opt(proxy);
    s.legacyBypass = Opt(bypass);
    return s;
}

WinInetSnapshot Unanswered(WinInetSnapshot s) {
    s.answered = false;
    s.error = ERROR_INTERNET_INVALID_OPTION;
    return s;
}

// The target is left alone by every bypass list but "<local>"; the port is 80.
struct DecisionCase {
    const char *name;
    WinInetSnapshot settings;
    uint32_t status;
    std::vector<Entry> entries;
    std::vector<std::string> present;  // trace texts that must appear
    std::vector<std::string> absent;   // and must not
    std::vector<std::string> calls = {};  // network sources asked, in order
    const char *target = "web.corp";
    uint32_t urlAnswer = 2, detectAnswer = 2;  // what the network sources answer
};

class DecisionTest : public testing::TestWithParam<DecisionCase> {};

TEST_P(DecisionTest, WalksTheSourcesInTheirFixedOrder) {
    const DecisionCase &c = GetParam();
    TempDir dir;
    ScopedTrace trace(dir.file("t.txt"));
    std::vector<std::string> calls;
    const WinInetFallbacks fallbacks{
        [&](const std::string &url) { return calls.push_back("url " + url), c.urlAnswer; },
        [&] { return calls.push_back("detect"), c.detectAnswer; }};
    Routvane r;
    {
        tracefunc tf(__LINE__, "Routvane", "GetProxyFromIE");
        EXPECT_EQ(DecideFromWinInetSettings(c.settings, c.target, 80, r, fallbacks, tf),
                  c.status);
    }
    EXPECT_EQ(Entries(r), c.entries);
    EXPECT_EQ(calls, c.calls);
    for (const std::string &text : c.present) EXPECT_FALSE(trace.linesWith(text).empty()) << text;
    for (const std::string &text : c.absent) EXPECT_TRUE(trace.linesWith(text).empty()) << text;
}

const char kPac[] = "http://pac/proxy.pac";

// clang-format off
INSTANTIATE_TEST_SUITE_P(Table, DecisionTest, testing::Values(
    DecisionCase{"local_bypass_plain_name",
        PerConnection(kDirectFlag | kProxy, "proxy:8080", "<local>"),
        1, {}, {}, {"PROXY_TYPE_PROXY:  "}, {}, "intranet"},
    DecisionCase{"local_bypass_dotted_name",
        PerConnection(kDirectFlag | kProxy, "proxy:8080", "<local>"), 0, {Proxy("proxy", 8080)},
        {"PROXY_TYPE_PROXY:  proxy:8080", "INTERNET_OPTION_VERSION is 1.2"}, {}},
    DecisionCase{"scheme_list_without_http_ends_the_walk",
        PerConnection(kProxy | kUrl, "ftp=f:21", nullptr, kPac), 1, {}, {},
        {"PROXY_TYPE_AUTO_PROXY_URL"}},
    DecisionCase{"pac_answers", PerConnection(kUrl | kDetect | kDirectFlag, nullptr, nullptr, kPac),
        0, {}, {}, {"PROXY_TYPE_AUTO_DETECT"}, {"url http://pac/proxy.pac"}, "web.corp", 0},
    DecisionCase{"failed_pac_then_direct",
        PerConnection(kUrl | kDirectFlag, nullptr, nullptr, kPac), 1, {},
        {"PROXY_TYPE_AUTO_PROXY_URL", "RunAutoProxyURL failed...trying other proxy options",
         "PROXY_TYPE_DIRECT"}, {}, {"url http://pac/proxy.pac"}},
    DecisionCase{"failed_pac_alone_fails", PerConnection(kUrl, nullptr, nullptr, kPac), 2, {},
        {"RunAutoProxyURL failed...trying other proxy options"}, {"PROXY_TYPE_DIRECT"},
        {"url http://pac/proxy.pac"}},
    DecisionCase{"failed_pac_then_detection",
        PerConnection(kUrl | kDetect | kDirectFlag, nullptr, nullptr, kPac), 1, {},
        {"PROXY_TYPE_AUTO_DETECT", "RunAutoDetect failed...trying other proxy options"}, {},
        {"url http://pac/proxy.pac", "detect"}},
    DecisionCase{"url_flag_without_url_is_skipped", PerConnection(kUrl, nullptr), 1, {}, {},
        {"PROXY_TYPE_AUTO_PROXY_URL"}},
    DecisionCase{"proxy_flag_without_server_is_skipped",
        PerConnection(kProxy | kDirectFlag, nullptr, "<local>"), 1, {}, {"PROXY_TYPE_DIRECT"},
        {"PROXY_TYPE_PROXY:  "}},
    DecisionCase{"no_flags", PerConnection(0, "p:1"), 1, {}, {}, {}},
    DecisionCase{"per_connection_query_failed", Unanswered(PerConnection(kProxy, "p:1")), 2, {},
        {"InternetQueryOption(INTERNET_OPTION_PER_CONNECTION_OPTION) failed:  12009 "}, {}},
    DecisionCase{"version_unknown_is_per_connection",
        [] { WinInetSnapshot s = PerConnection(kProxy, "p:9"); s.versionKnown = false; return s; }(),
        0, {Proxy("p", 9)}, {}, {"INTERNET_OPTION_VERSION is"}},
    DecisionCase{"wininet_absent_goes_direct_silently",
        [] { WinInetSnapshot s; s.present = false; return s; }(), 1, {}, {}, {"INTERNET_OPTION"}},
    DecisionCase{"legacy_proxy_ignores_bypass",
        Legacy(INTERNET_OPEN_TYPE_PROXY, "p:3128", "<local>"), 0, {Proxy("p", 3128)},
        {"INTERNET_OPTION_VERSION is 1.1", "Proxy bypass:  <local>"}, {}, {}, "intranet"},
    DecisionCase{"legacy_scheme_list_is_one_host",
        Legacy(INTERNET_OPEN_TYPE_PROXY, "http=h1:80;https=h2:443"), 0, {Proxy("http=h1", 80)},
        {}, {}},
    DecisionCase{"legacy_direct", Legacy(INTERNET_OPEN_TYPE_DIRECT), 1, {}, {"No proxy set"}, {}},
    DecisionCase{"legacy_empty_proxy", Legacy(INTERNET_OPEN_TYPE_PROXY, ""), 1, {},
        {"Empty proxy value"}, {}},
    DecisionCase{"legacy_preconfig_is_invalid", Legacy(INTERNET_OPEN_TYPE_PRECONFIG), 2, {},
        {"Invalid dwAccessType:  0 "}, {}},
    DecisionCase{"legacy_query_failed", Unanswered(Legacy(INTERNET_OPEN_TYPE_PROXY, "p:1")), 2,
        {}, {"InternetQueryOption failed:  12009 "}, {}}),
    [](const testing::TestParamInfo<DecisionCase> &info) { return std::string(info.param.name); });
// clang-format on

// The query: which questions are asked, and one failure row per call.
// Wine's own WinINet, answering from this user's registry, is run end to
// end by the client tests.
struct QueryCase {
    const char *name;
    bool present;
    DWORD minor;
    DWORD failing;
    const char *legacyProxy;
    // the snapshot
    bool versionKnown, legacy, answered;
    DWORD error;
    const char *proxy;  // the proxy server or legacy proxy taken over
};

TEST(QueryTest, AsksByVersionAndKeepsWhatWasAnswered) {
    const std::string overlong(200, 'p');
    const QueryCase rows[] = {
        {"per_connection", true, 2, 0, "", true, false, true, 0, "p:8"},
        {"legacy", true, 1, 0, "p:3128", true, true, true, 0, "p:3128"},
        {"absent", false, 2, 0, "", false, false, false, 0, nullptr},
        {"version_fails", true, 1, INTERNET_OPTION_VERSION, "", false, false, true, 0, "p:8"},
        {"legacy_fails", true, 1, INTERNET_OPTION_PROXY, "", true, true, false, 12009, nullptr},
        {"legacy_overlong", true, 0, 0, overlong.c_str(), true, true, false,
         ERROR_INSUFFICIENT_BUFFER, nullptr},
        {"per_connection_fails", true, 2, INTERNET_OPTION_PER_CONNECTION_OPTION, "", true, false,
         false, 12009, nullptr},
    };
    for (const QueryCase &row : rows) {
        FakeWinInet wininet;
        wininet.present = row.present;
        wininet.minor = row.minor;
        wininet.failing = row.failing;
        wininet.legacyProxy = row.legacyProxy;
        wininet.flags = kProxy;
        wininet.proxyServer = "p:8";
        wininet.bypass = "<local>";
        const WinInetSnapshot s = QueryWinInetSettings();
        EXPECT_EQ(s.present, row.present) << row.name;
        EXPECT_EQ(s.versionKnown, row.versionKnown) << row.name;
        EXPECT_EQ(s.legacy, row.legacy) << row.name;
        EXPECT_EQ(s.answered, row.answered) << row.name;
        EXPECT_EQ(s.error, row.error) << row.name;
        EXPECT_EQ(s.legacy ? s.legacyProxy : s.proxyServer, Opt(row.proxy)) << row.name;
        EXPECT_EQ(s.bypass, Opt(row.proxy && !row.legacy ? "<local>" : nullptr)) << row.name;
        EXPECT_EQ(wininet.perConnectionQueries, row.present && !row.legacy) << row.name;
    }
}

}  // namespace
