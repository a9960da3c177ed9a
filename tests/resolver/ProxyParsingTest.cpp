#include <gtest/gtest.h>

#include "PacFixtures.h"

namespace {

TEST(ParseIEProxyTest, AppendsAtMostOneEntry) {
    const std::string kLong(64 * 1024, 'q');
    const struct {
        std::string list;
        int32_t result;
        std::vector<Entry> entries;
    } rows[] = {
        {"proxy:8080", 0, {Proxy("proxy", 8080)}}, {"proxy", 0, {Proxy("proxy", 80)}},
        {"http=h1:80;https=h2:443", 0, {Proxy("h2", 443)}},
        {"http=h1:80;ftp=f:21", 0, {Proxy("h1", 80)}}, {"ftp=f:21", 1, {}},
        {"HTTP=h1:80", 1, {}}, {"https=;http=h1:80", 0, {Proxy("", 80)}},
        {"", 0, {Proxy("", 80)}}, {"http://proxy:8080", 0, {Proxy("http", 0)}},
        {"h:  12x", 0, {Proxy("h", 12)}}, {"h:-1", 0, {Proxy("h", 4294967295u)}},
        {"h:99999999999", 0, {Proxy("h", 2147483647u)}}, {"a:b:c", 0, {Proxy("a", 0)}},
        {":::", 0, {Proxy("", 0)}}, {";;;", 0, {Proxy(";;;", 80)}},
        {"===", 1, {}}, {"http=", 0, {Proxy("", 80)}},
        {"\xC3\xA9t\xC3\xA9:81", 0, {Proxy("\xC3\xA9t\xC3\xA9", 81)}},
        {kLong + ":1", 0, {Proxy(kLong, 1)}},
        {"http=" + kLong, 0, {Proxy(kLong, 80)}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE("list \"" + row.list.substr(0, 40) + "\"");
        Resolver r;
        EXPECT_EQ(r->ParseIEProxy(row.list), row.result);
        EXPECT_EQ(Entries(*r.r), row.entries);
    }
}

TEST(IsBypassedTest, Decides) {
    const struct {
        std::string target;
        uint32_t port;
        std::string list;
        bool bypassed;
    } rows[] = {
        {"intranet", 80, "<LOCAL>", true}, {"intranet", 80, "<local>", true},
        {"web.corp", 80, "<local>", false}, {"intranet", 80, " <local>", false},
        {"host.corp", 443, " HTTPS:// *.co rp : 443 ", true},
        {"host.corp", 8080, " HTTPS:// *.co rp : 443 ", false},
        {"host.corp", 8080, "*.corp:0", true}, {"host.corp", 8080, "*.corp", true},
        {"host.corp", 8080, "http://*.corp:x", true}, {"host.corp", 80, "Host.Corp", true},
        {"host.corp", 80, "", false}, {"host.corp", 80, ";;;;", false},
        // The patterns are shExpMatch's, checked with it; here the list around them.
        {"host.corp", 80, "a;;b;;host.*", true}, {"host.corp", 80, "host.corp,other", false},
        {"10.1.2.3", 80, "10.1.2.3:1:2", false}, {"10.1.2.3", 1, "10.1.2.3:1:2", true},
        {"host.corp", 80, std::string(64 * 1024, ';') + "host.corp", true},
        {"", 80, "<local>", true}, {"", 80, "*", true},
    };
    for (const auto &row : rows)
        EXPECT_EQ(IsBypassed(row.target, row.port, row.list), row.bypassed)
            << row.target << ":" << row.port << " in \"" << row.list.substr(0, 40) << "\"";
}

}  // namespace
