// PAC evaluation: the grammar of the answer, URL completion, and the script
// run in the JScript engine, against a server on 127.0.0.1.
#include <algorithm>

#include "PacFixtures.h"

namespace {

class PacEvaluationTest : public PacTest {};

TEST_F(PacEvaluationTest, AnswerGrammar) {
    const std::string unknown = "Unknown proxy requested:  ";
    const std::string socks = "SOCKS proxy requested; we don't support SOCKS:  ";
    std::string hundreds;
    for (int i = 0; i < 500; ++i) hundreds += "PROXY p:1;";
    const std::string mebibyte(1024 * 1024, 'h');
    const struct {
        std::string answer;
        uint32_t status;
        std::vector<Entry> entries;
        std::vector<std::string> rejected;  // the lines naming rejected tokens
    } rows[] = {
        {"", 1, {}, {}},
        // Keywords in any case, blanks before them skipped.
        {"DIRECT", 0, {kDirect}, {}},
        {"  Direct  ", 0, {kDirect}, {}},
        {"PROXY a:3128", 0, {Proxy("a", 3128)}, {}},
        {"proxy b", 0, {Proxy("b", 80)}, {}},
        {"  PROXY\td:1  ", 0, {Proxy("d", 1)}, {}},
        // Entries in the order of the answer.
        {"DIRECT;PROXY a:1;PROXY b:2", 0, {kDirect, Proxy("a", 1), Proxy("b", 2)}, {}},
        {hundreds, 0, std::vector<Entry>(500, Proxy("p", 1)), {}},
        {"PROXY " + mebibyte + ":3128;" + std::string(1024 * 1024, ';') + "DIRECT", 0,
         {Proxy(mebibyte, 3128), kDirect}, {}},
        // Doubled and trailing separators: empty tokens are skipped.
        {"PROXY a:1;;DIRECT;", 0, {Proxy("a", 1), kDirect}, {}},
        {";;;", 2, {}, {}},
        // A token of blanks only is reported, and the rest still counts.
        {"PROXY a:1; ", 0, {Proxy("a", 1)}, {unknown + " "}},
        {"   ", 2, {}, {unknown + "   "}},
        // The port: missing means 80, read as a signed decimal up to the
        // first non-digit, never range-checked.
        {"PROXY a:", 0, {Proxy("a", 80)}, {}},
        {"PROXY a:8080x", 0, {Proxy("a", 8080)}, {}},
        {"PROXY a:65536", 0, {Proxy("a", 65536)}, {}},
        {"PROXY a:-1", 0, {Proxy("a", 4294967295u)}, {}},
        // The host ends at the first ":": no IPv6 literal.
        {"PROXY [::1]:8080", 0, {Proxy("[", 80)}, {}},
        {"PROXY", 2, {}, {unknown + "PROXY"}},
        {"PROXY :8080", 2, {}, {unknown + "PROXY :8080"}},
        // SOCKS: bare it is named, with a host it is unknown.
        {"SOCKS", 2, {}, {socks + "SOCKS"}},
        {"socks", 2, {}, {socks + "socks"}},
        {"SOCKS s:1080", 2, {}, {unknown + "SOCKS s:1080"}},
        {"DIRECT a:1", 2, {}, {unknown + "DIRECT a:1"}},
        {"BOGUS; PROXY p:1; SOCKS", 0, {Proxy("p", 1)}, {unknown + "BOGUS", socks + " SOCKS"}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE("answer \"" + row.answer.substr(0, 40) + "\"");
        StartTrace();
        Routvane resolver;
        EXPECT_EQ(resolver.ParseFindProxyForURLReturn(row.answer), row.status);
        EXPECT_TRUE(Entries(resolver) == row.entries);
        std::vector<std::string> rejected = trace_->messages(unknown), expected = row.rejected;
        for (const std::string &line : trace_->messages(socks)) rejected.push_back(line);
        std::sort(rejected.begin(), rejected.end());
        std::sort(expected.begin(), expected.end());
        EXPECT_EQ(rejected, expected);
        EXPECT_EQ(trace_->messages("Found empty proxy return return...assuming no proxy").size(),
                  row.answer.empty() ? 1u : 0u);
    }
    // A port beyond any integer still yields the host.
    EXPECT_EQ(resolver_.ParseFindProxyForURLReturn("PROXY big:99999999999999999999999"), 0u);
    EXPECT_EQ(resolver_.proxies().at(0).host, "big");
}

TEST_F(PacEvaluationTest, UrlsNamingOnlyAServerAreCompletedWithWpadDat) {
    server_.serve("/wpad.dat", HttpResponse::Text(Returning("\"PROXY w:1\"")));
    server_.serve("/proxy.pac", HttpResponse::Text(Returning("\"PROXY p:2\"")));
    server_.serve("/dir/", HttpResponse::Text(Returning("\"PROXY d:3\"")));
    // No script at /wpad.dat here: the URL as given gets its turn.
    LoopbackHttpServer bare;
    bare.serve("/", HttpResponse::Text(Returning("\"PROXY root:8\"")));
    const std::string base = server_.url(""), other = bare.url("");
    const std::string closed = "http://127.0.0.1:" + std::to_string(UnusedLoopbackPort());
    using Paths = std::vector<std::string>;
    const struct {
        std::string url;
        LoopbackHttpServer *server;
        uint32_t status;
        Paths requests;
        std::vector<Entry> entries;
        std::string recorded;  // the URL fetched last
    } rows[] = {
        {base, &server_, 0, {"/wpad.dat"}, {Proxy("w", 1)}, base + "/wpad.dat"},
        {base + "/", &server_, 0, {"/wpad.dat"}, {Proxy("w", 1)}, base + "/wpad.dat"},
        {base + "/proxy.pac", &server_, 0, {"/proxy.pac"}, {Proxy("p", 2)}, base + "/proxy.pac"},
        {base + "/dir/", &server_, 0, {"/dir/"}, {Proxy("d", 3)}, base + "/dir/"},
        {other, &bare, 0, {"/wpad.dat", "/"}, {Proxy("root", 8)}, other},
        // Fewer than two slashes: refused unfetched.
        {"", &server_, 2, {}, {}, ""},
        {"http:/wpadhost", &server_, 2, {}, {}, ""},
        // Only slashes: "///wpad.dat", which WinINet refuses.
        {"//", &server_, 2, {}, {}, "///wpad.dat"},
        // A failed completion ends it: the URL as given is not tried.
        {closed, &server_, 2, {}, {}, closed + "/wpad.dat"},
        {closed + "/proxy.pac", &server_, 2, {}, {}, closed + "/proxy.pac"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.url);
        StartTrace();
        const size_t before = row.server->requests().size();
        Routvane resolver;
        EXPECT_EQ(resolver.RunAutoProxyURL(0, "example.org", 80, row.url), row.status);
        const Paths requests = row.server->requests();
        EXPECT_EQ(Paths(requests.begin() + before, requests.end()), row.requests);
        EXPECT_EQ(Entries(resolver), row.entries);
        EXPECT_EQ(resolver.autoConfigURL(), row.recorded);
        const bool invalid = std::count(row.url.begin(), row.url.end(), '/') < 2;
        EXPECT_EQ(trace_->messages("Invalid input URL").size(), invalid ? 1u : 0u);
        EXPECT_EQ(trace_->messages("InternetOpenUrl failed:  ").size(),
                  row.recorded.empty() ? 0 : row.status / 2);
        EXPECT_EQ(trace_->messages("--- BEGIN SCRIPT ---").size(), row.status == 2 ? 0u : 1u);
    }
}

TEST_F(PacEvaluationTest, TheScriptRunsOnHttpsUrlAndHostAndItsFailuresKeepTheList) {
    const std::string parse = "host.Parse failed:  ", execute = "host.ExecuteSSS failed:  ";
    const std::string returned = "FindProxyForURL returned:  ";
    const std::string unknown = "Unknown proxy requested:  ";
    const std::string echo = Returning("\"ECHO|\" + url + \"|\" + host");
    const struct {
        std::string body;
        uint32_t status;
        std::vector<Entry> added;  // to the entry there before
        std::string traced;        // the start of a message traced once
        const char *detail = nullptr;  // in the trace too
        std::string host = "example.org";
        uint32_t port = 8080;
    } rows[] = {
        {Returning("\"DIRECT\""), 0, {kDirect}, returned + "DIRECT"},
        // The answer carries what the script was given back out.
        {echo, 2, {}, unknown + "ECHO|https://intranet:4294967295|intranet", nullptr, "intranet",
         4294967295u},
        // The engine's failures, each kind checked in its own tests: here
        // that they are traced and the source still counts as answered.
        {"function FindProxyForURL(url, host) { return \"DIRECT\"; ", 0, {}, parse},
        {Returning("42"), 0, {}, execute, "Invalid return type specified"},
        // A download without the function name: the engine gets no script.
        {"", 0, {}, execute},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.body);
        StartTrace();
        const std::string path = "/script" + std::to_string(&row - rows) + ".pac";
        server_.serve(path, HttpResponse::Text(row.body));
        Routvane resolver;
        ASSERT_EQ(resolver.ParseFindProxyForURLReturn("PROXY kept:1"), 0u);
        EXPECT_EQ(resolver.RunAutoProxyURL(7, row.host, row.port, server_.url(path)), row.status);
        std::vector<Entry> entries{Proxy("kept", 1)};
        entries.insert(entries.end(), row.added.begin(), row.added.end());
        EXPECT_EQ(Entries(resolver), entries);
        EXPECT_EQ(resolver.autoConfigScript(), row.body);
        // The script stands whole in the trace file between its markers.
        std::string traced;
        for (char c : ReadFileText(trace_->path()))
            if (c != '\r') traced += c;
        const size_t begin = traced.find("--- BEGIN SCRIPT ---");
        const size_t end = traced.find("--- END SCRIPT ---");
        ASSERT_LT(begin, end);
        ASSERT_NE(end, std::string::npos);
        EXPECT_NE(traced.substr(begin, end - begin).find(row.body), std::string::npos);
        const auto lines = trace_->messages(row.traced);
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_EQ(lines[0].rfind(row.traced, 0), 0u) << lines[0];
        // A failure names the engine's description and detail.
        if (row.traced == parse || row.traced == execute) {
            EXPECT_NE(lines[0].find(';'), std::string::npos);
            EXPECT_TRUE(trace_->messages(returned).empty());
        }
        if (row.detail) {
            EXPECT_NE(ReadFileText(trace_->path()).find(row.detail), std::string::npos);
        }
    }
}

}  // namespace
