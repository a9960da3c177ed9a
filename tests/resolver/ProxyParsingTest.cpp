#include <gtest/gtest.h>

#include "TestSupport.h"
#include "resolver/Routvane.h"

namespace {

using Entries = std::vector<std::pair<std::string, uint32_t>>;

Entries Parsed(const std::string &list, int32_t *result) {
    Routvane *r = new Routvane();
    r->AddRef();
    *result = r->ParseIEProxy(list);
    Entries entries;
    for (const ProxyEntry &e : r->proxies()) {
        EXPECT_EQ(e.kind, 1u);
        entries.emplace_back(e.host, e.port);
    }
    r->Release();
    return entries;
}

struct ProxyCase {
    std::string list;
    int32_t result;
    Entries entries;
};

class ParseIEProxyTest : public testing::TestWithParam<ProxyCase> {};

TEST_P(ParseIEProxyTest, AppendsAtMostOneEntry) {
    int32_t result = -1;
    EXPECT_EQ(Parsed(GetParam().list, &result), GetParam().entries);
    EXPECT_EQ(result, GetParam().result);
}

const std::string kLong(64 * 1024, 'q');

INSTANTIATE_TEST_SUITE_P(
    Table, ParseIEProxyTest,
    testing::Values(
        ProxyCase{"proxy:8080", 0, {{"proxy", 8080}}}, ProxyCase{"proxy", 0, {{"proxy", 80}}},
        ProxyCase{"http=h1:80;https=h2:443", 0, {{"h2", 443}}},
        ProxyCase{"http=h1:80;ftp=f:21", 0, {{"h1", 80}}}, ProxyCase{"ftp=f:21", 1, {}},
        ProxyCase{"HTTP=h1:80", 1, {}}, ProxyCase{"https=;http=h1:80", 0, {{"", 80}}},
        ProxyCase{"", 0, {{"", 80}}}, ProxyCase{"http://proxy:8080", 0, {{"http", 0}}},
        ProxyCase{"h:  12x", 0, {{"h", 12}}}, ProxyCase{"h:-1", 0, {{"h", 4294967295u}}},
        ProxyCase{"h:99999999999", 0, {{"h", 2147483647u}}}, ProxyCase{"a:b:c", 0, {{"a", 0}}},
        ProxyCase{":::", 0, {{"", 0}}}, ProxyCase{";;;", 0, {{";;;", 80}}},
        ProxyCase{"===", 1, {}}, ProxyCase{"http=", 0, {{"", 80}}},
        ProxyCase{"\xC3\xA9t\xC3\xA9:81", 0, {{"\xC3\xA9t\xC3\xA9", 81}}},
        ProxyCase{kLong + ":1", 0, {{kLong, 1}}},
        ProxyCase{"http=" + kLong, 0, {{kLong, 80}}}));

struct BypassCase {
    std::string target;
    uint32_t port;
    std::string list;
    bool bypassed;
};

class IsBypassedTest : public testing::TestWithParam<BypassCase> {};

TEST_P(IsBypassedTest, Decides) {
    const BypassCase &c = GetParam();
    EXPECT_EQ(IsBypassed(c.target, c.port, c.list), c.bypassed);
}

INSTANTIATE_TEST_SUITE_P(
    Table, IsBypassedTest,
    testing::Values(
        BypassCase{"intranet", 80, "<LOCAL>", true}, BypassCase{"intranet", 80, "<local>", true},
        BypassCase{"web.corp", 80, "<local>", false},
        BypassCase{"intranet", 80, " <local>", false},
        BypassCase{"host.corp", 443, " HTTPS:// *.co rp : 443 ", true},
        BypassCase{"host.corp", 8080, " HTTPS:// *.co rp : 443 ", false},
        BypassCase{"host.corp", 8080, "*.corp:0", true}, BypassCase{"host.corp", 8080, "*.corp", true},
        BypassCase{"host.corp", 8080, "http://*.corp:x", true},
        BypassCase{"host.corp", 80, "Host.Corp", true},
        BypassCase{"host.corp", 80, "", false}, BypassCase{"host.corp", 80, ";;;;", false},
        // The patterns are shExpMatch's, checked with it; here the list around them.
        BypassCase{"host.corp", 80, "a;;b;;host.*", true},
        BypassCase{"host.corp", 80, "host.corp,other", false},
        BypassCase{"10.1.2.3", 80, "10.1.2.3:1:2", false}, BypassCase{"10.1.2.3", 1, "10.1.2.3:1:2", true},
        BypassCase{"host.corp", 80, std::string(64 * 1024, ';') + "host.corp", true},
        BypassCase{"", 80, "<local>", true}, BypassCase{"", 80, "*", true}));

}  // namespace
