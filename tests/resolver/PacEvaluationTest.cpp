// PAC evaluation: URL completion, the script run in the JScript engine, and
// the grammar of the answer, against a server on 127.0.0.1.
#include <gtest/gtest.h>

#include <winsock2.h>
#include <windows.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "LoopbackHttpServer.h"
#include "PacFixtures.h"
#include "TestSupport.h"
#include "resolver/Routvane.h"

namespace {

struct Entry {
    uint32_t kind;
    std::string host;
    uint32_t port;
    bool operator==(const Entry &o) const {
        return kind == o.kind && host == o.host && port == o.port;
    }
};

std::ostream &operator<<(std::ostream &out, const Entry &e) {
    return out << (e.kind == PROXY_ENTRY_DIRECT ? "DIRECT" : "PROXY ") << e.host << ":" << e.port;
}

const Entry kDirect{PROXY_ENTRY_DIRECT, "", 0};
Entry Proxy(const std::string &host, uint32_t port) { return Entry{PROXY_ENTRY_PROXY, host, port}; }

std::vector<Entry> Entries(const Routvane &resolver) {
    std::vector<Entry> out;
    for (const ProxyEntry &e : resolver.proxies()) out.push_back(Entry{e.kind, e.host, e.port});
    return out;
}

// A script whose FindProxyForURL returns the given JScript expression.
std::string Returning(const std::string &expression) {
    return "function FindProxyForURL(url, host) {\n    return " + expression + ";\n}\n";
}

class PacEvaluationTest : public ::testing::Test {
protected:
    void SetUp() override {
        temp_ = std::make_unique<TempDir>();
        traceDir_ = std::make_unique<TempDir>();
        startTrace();
        env_.emplace_back("TEMP", temp_->path());
        env_.emplace_back("TMP", temp_->path());
        registry_.push_back(ScopedRegistryValue::Dword("WPADConnectTimeout", 1));
    }

    void TearDown() override {
        EXPECT_EQ(DirectoryEntries(temp_->path()), std::vector<std::string>());
        registry_.clear();
        env_.clear();
        trace_.reset();
    }

    // A fresh trace file, so that a row of a table sees its own lines only.
    void startTrace() {
        trace_.reset();
        trace_ = std::make_unique<ScopedTrace>(
            traceDir_->file("trace" + std::to_string(++traces_) + ".log"));
    }

    // Message texts (after the line prefix, before the thread tail) that
    // start with the fragment.
    std::vector<std::string> Messages(const std::string &fragment) const {
        std::vector<std::string> texts;
        for (const std::string &line : trace_->lines()) {
            std::string text = LineText(line);
            const size_t tail = text.rfind(" (tid=");
            if (tail != std::string::npos) text.resize(tail);
            if (text.compare(0, fragment.size(), fragment) == 0) texts.push_back(text);
        }
        return texts;
    }

    ComApartment com_;
    LoopbackHttpServer server_;
    std::unique_ptr<TempDir> temp_;
    std::unique_ptr<TempDir> traceDir_;
    std::unique_ptr<ScopedTrace> trace_;
    int traces_ = 0;
    std::vector<ScopedEnvironment> env_;
    std::vector<ScopedRegistryValue> registry_;
};

// --- The answer's grammar ---------------------------------------------

TEST_F(PacEvaluationTest, AnswerGrammar) {
    const std::string unknown = "Unknown proxy requested:  ";
    const std::string socks = "SOCKS proxy requested; we don't support SOCKS:  ";
    const struct {
        std::string answer;
        uint32_t status;
        std::vector<Entry> entries;
        std::vector<std::string> rejected;  // the lines naming rejected tokens
    } rows[] = {
        // Empty: no proxy.
        {"", 1, {}, {}},
        // Keywords in any case, blanks before them skipped.
        {"DIRECT", 0, {kDirect}, {}},
        {"direct", 0, {kDirect}, {}},
        {"  Direct  ", 0, {kDirect}, {}},
        {"PROXY a:3128", 0, {Proxy("a", 3128)}, {}},
        {"proxy b", 0, {Proxy("b", 80)}, {}},
        {"Proxy c:8080", 0, {Proxy("c", 8080)}, {}},
        {"  PROXY\td:1  ", 0, {Proxy("d", 1)}, {}},
        // Entries in the order of the answer.
        {"PROXY a:3128; DIRECT", 0, {Proxy("a", 3128), kDirect}, {}},
        {"DIRECT;PROXY a:1;PROXY b:2", 0, {kDirect, Proxy("a", 1), Proxy("b", 2)}, {}},
        // Doubled and trailing separators: empty tokens are skipped.
        {"PROXY a:1;;DIRECT;", 0, {Proxy("a", 1), kDirect}, {}},
        {";;;", 2, {}, {}},
        // A token of blanks only is reported, and the rest still counts.
        {"PROXY a:1; ", 0, {Proxy("a", 1)}, {unknown + " "}},
        {"   ", 2, {}, {unknown + "   "}},
        // The port: missing means 80, read as a signed decimal up to the
        // first non-digit, never range-checked.
        {"PROXY a:", 0, {Proxy("a", 80)}, {}},
        {"PROXY a:x", 0, {Proxy("a", 80)}, {}},
        {"PROXY a:8080x", 0, {Proxy("a", 8080)}, {}},
        {"PROXY a:65536", 0, {Proxy("a", 65536)}, {}},
        {"PROXY a:-1", 0, {Proxy("a", 4294967295u)}, {}},
        {"PROXY a:0", 0, {Proxy("a", 0)}, {}},
        // The host ends at the first ":": no IPv6 literal.
        {"PROXY [::1]:8080", 0, {Proxy("[", 80)}, {}},
        {"PROXY fe80::1", 0, {Proxy("fe80", 80)}, {}},
        // A missing host.
        {"PROXY", 2, {}, {unknown + "PROXY"}},
        {"PROXY :8080", 2, {}, {unknown + "PROXY :8080"}},
        // SOCKS: bare it is named, with a host it is unknown.
        {"SOCKS", 2, {}, {socks + "SOCKS"}},
        {"socks", 2, {}, {socks + "socks"}},
        {"SOCKS s:1080", 2, {}, {unknown + "SOCKS s:1080"}},
        {"SOCKS s:1080; DIRECT", 0, {kDirect}, {unknown + "SOCKS s:1080"}},
        // Unknown keywords, and known ones in the wrong shape.
        {"HTTPS h:443", 2, {}, {unknown + "HTTPS h:443"}},
        {"PROXYa:1", 2, {}, {unknown + "PROXYa:1"}},
        {"DIRECT a:1", 2, {}, {unknown + "DIRECT a:1"}},
        {"DIRECTLY", 2, {}, {unknown + "DIRECTLY"}},
        {"BOGUS; PROXY p:1; SOCKS", 0, {Proxy("p", 1)}, {unknown + "BOGUS", socks + " SOCKS"}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE("answer \"" + row.answer + "\"");
        startTrace();
        Routvane resolver;
        EXPECT_EQ(resolver.ParseFindProxyForURLReturn(row.answer), row.status);
        EXPECT_EQ(Entries(resolver), row.entries);
        std::vector<std::string> rejected = Messages(unknown);
        for (const std::string &line : Messages(socks)) rejected.push_back(line);
        std::vector<std::string> expected = row.rejected;
        std::sort(rejected.begin(), rejected.end());
        std::sort(expected.begin(), expected.end());
        EXPECT_EQ(rejected, expected);
        EXPECT_EQ(Messages("Found empty proxy return return...assuming no proxy").size(),
                  row.answer.empty() ? 1u : 0u);
    }
}

TEST_F(PacEvaluationTest, PortsBeyondAnyIntegerStillYieldTheHost) {
    Routvane resolver;
    EXPECT_EQ(resolver.ParseFindProxyForURLReturn("PROXY big:99999999999999999999999"), 0u);
    ASSERT_EQ(resolver.proxies().size(), 1u);
    EXPECT_EQ(resolver.proxies()[0].kind, PROXY_ENTRY_PROXY);
    EXPECT_EQ(resolver.proxies()[0].host, "big");
}

TEST_F(PacEvaluationTest, HundredsOfEntriesKeepTheirOrder) {
    std::string answer;
    std::vector<Entry> expected;
    for (int i = 0; i < 500; ++i) {
        if (i % 7 == 3) {
            answer += "DIRECT; ";
            expected.push_back(kDirect);
        } else {
            answer += "PROXY p" + std::to_string(i) + ":" + std::to_string(1000 + i) + "; ";
            expected.push_back(Proxy("p" + std::to_string(i), 1000 + i));
        }
    }
    Routvane resolver;
    EXPECT_EQ(resolver.ParseFindProxyForURLReturn(answer), 0u);
    EXPECT_EQ(Entries(resolver), expected);
}

TEST_F(PacEvaluationTest, AMebibyteAnswerIsReadWhole) {
    const std::string host(1024 * 1024, 'h');
    Routvane resolver;
    EXPECT_EQ(resolver.ParseFindProxyForURLReturn("PROXY " + host + ":3128;" +
                                                  std::string(1024 * 1024, ';') + "DIRECT"),
              0u);
    ASSERT_EQ(resolver.proxies().size(), 2u);
    EXPECT_TRUE(resolver.proxies()[0].host == host);
    EXPECT_EQ(resolver.proxies()[0].port, 3128u);
    EXPECT_EQ(resolver.proxies()[1].kind, PROXY_ENTRY_DIRECT);
}

TEST_F(PacEvaluationTest, AnswersAreAppendedToTheList) {
    Routvane resolver;
    EXPECT_EQ(resolver.ParseFindProxyForURLReturn("PROXY a:1"), 0u);
    EXPECT_EQ(resolver.ParseFindProxyForURLReturn("BOGUS"), 2u);
    EXPECT_EQ(resolver.ParseFindProxyForURLReturn(""), 1u);
    EXPECT_EQ(resolver.ParseFindProxyForURLReturn("DIRECT"), 0u);
    EXPECT_EQ(Entries(resolver), (std::vector<Entry>{Proxy("a", 1), kDirect}));
}

// --- From URL to entries ---------------------------------------------

TEST_F(PacEvaluationTest, UrlsNamingOnlyAServerAreCompletedWithWpadDat) {
    server_.serve("/wpad.dat", HttpResponse::Text(Returning("\"PROXY w:1\"")));
    server_.serve("/proxy.pac", HttpResponse::Text(Returning("\"PROXY p:2\"")));
    server_.serve("/dir/", HttpResponse::Text(Returning("\"PROXY d:3\"")));
    const std::string base = server_.url("");
    const struct {
        std::string url;
        std::vector<std::string> requests;
        Entry entry;
    } rows[] = {
        {base, {"/wpad.dat"}, Proxy("w", 1)},
        {base + "/", {"/wpad.dat"}, Proxy("w", 1)},
        {base + "/proxy.pac", {"/proxy.pac"}, Proxy("p", 2)},
        {base + "/dir/", {"/dir/"}, Proxy("d", 3)},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.url);
        LoopbackHttpServer &server = server_;
        const size_t before = server.requests().size();
        Routvane resolver;
        EXPECT_EQ(resolver.RunAutoProxyURL(0, "example.org", 80, row.url), 0u);
        const auto requests = server.requests();
        EXPECT_EQ(std::vector<std::string>(requests.begin() + before, requests.end()),
                  row.requests);
        EXPECT_EQ(Entries(resolver), std::vector<Entry>{row.entry});
    }
}

TEST_F(PacEvaluationTest, ACompletionWithoutAScriptFetchesTheUrlAsGiven) {
    // /wpad.dat is not served: the 404 page holds no script.
    server_.serve("/", HttpResponse::Text(Returning("\"PROXY root:8\"")));
    Routvane resolver;
    EXPECT_EQ(resolver.RunAutoProxyURL(0, "example.org", 80, server_.url("")), 0u);
    EXPECT_EQ(server_.requests(), (std::vector<std::string>{"/wpad.dat", "/"}));
    EXPECT_EQ(Entries(resolver), std::vector<Entry>{Proxy("root", 8)});
    EXPECT_EQ(resolver.autoConfigURL(), server_.url(""));
}

TEST_F(PacEvaluationTest, UrlsWithFewerThanTwoSlashesAreRefusedUnfetched) {
    for (const std::string url : {"wpadhost", "", "http:/wpadhost", "/wpad.dat", "a/b"}) {
        SCOPED_TRACE(url);
        startTrace();
        Routvane resolver;
        EXPECT_EQ(resolver.RunAutoProxyURL(0, "example.org", 80, url), 2u);
        EXPECT_EQ(Messages("Invalid input URL").size(), 1u);
        EXPECT_TRUE(Messages("Using WPAD Connect timeout").empty());
        EXPECT_EQ(resolver.autoConfigURL(), "");
    }
    EXPECT_TRUE(server_.requests().empty());
}

TEST_F(PacEvaluationTest, OnlySlashesOrAQueryStillGoToTheDownload) {
    // Two slashes and nothing else make "///wpad.dat"; WinINet refuses it.
    Routvane resolver;
    EXPECT_EQ(resolver.RunAutoProxyURL(0, "example.org", 80, "//"), 2u);
    EXPECT_EQ(Messages("InternetOpenUrl failed:  ").size(), 1u);
    EXPECT_EQ(resolver.autoConfigURL(), "///wpad.dat");
}

TEST_F(PacEvaluationTest, AFailedDownloadEndsTheEvaluation) {
    const std::string closed = "http://127.0.0.1:" + std::to_string(UnusedLoopbackPort());
    const struct {
        std::string url;
        size_t attempts;
    } rows[] = {
        {closed, 1},  // the completion fails: the URL as given is not tried
        {closed + "/", 1},
        {closed + "/proxy.pac", 1},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.url);
        startTrace();
        Routvane resolver;
        EXPECT_EQ(resolver.RunAutoProxyURL(0, "example.org", 80, row.url), 2u);
        EXPECT_EQ(Messages("InternetOpenUrl failed:  ").size(), row.attempts);
        EXPECT_TRUE(Messages("--- BEGIN SCRIPT ---").empty());
        EXPECT_TRUE(resolver.proxies().empty());
        EXPECT_EQ(resolver.autoConfigScript(), "");
    }
}

TEST_F(PacEvaluationTest, TheScriptGetsAnHttpsUrlOfHostAndPortAndTheHost) {
    // The answer carries what the script was given back out as an unknown
    // keyword, which the trace then shows.
    server_.serve("/echo.pac", HttpResponse::Text(Returning("\"ECHO|\" + url + \"|\" + host")));
    const struct {
        std::string host;
        uint32_t port;
        std::string expected;
    } rows[] = {
        {"example.org", 8080, "ECHO|https://example.org:8080|example.org"},
        {"www.example.com", 80, "ECHO|https://www.example.com:80|www.example.com"},
        {"intranet", 4294967295u, "ECHO|https://intranet:4294967295|intranet"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.host);
        startTrace();
        Routvane resolver;
        EXPECT_EQ(resolver.RunAutoProxyURL(7, row.host, row.port, server_.url("/echo.pac")), 2u);
        EXPECT_EQ(Messages("FindProxyForURL returned:  "),
                  std::vector<std::string>{"FindProxyForURL returned:  " + row.expected});
        EXPECT_EQ(Messages("Unknown proxy requested:  "),
                  std::vector<std::string>{"Unknown proxy requested:  " + row.expected});
    }
}

TEST_F(PacEvaluationTest, TheScriptIsKeptAndTracedWhole) {
    const std::string script =
        "// corporate proxies\n" + Returning("\"PROXY first:1111; PROXY second:2222; DIRECT\"");
    server_.serve("/proxy.pac", HttpResponse::Text(script));
    Routvane resolver;
    EXPECT_EQ(resolver.RunAutoProxyURL(0, "example.org", 443, server_.url("/proxy.pac")), 0u);
    EXPECT_EQ(Entries(resolver),
              (std::vector<Entry>{Proxy("first", 1111), Proxy("second", 2222), kDirect}));
    EXPECT_EQ(resolver.autoConfigScript(), script);
    EXPECT_EQ(resolver.autoConfigURL(), server_.url("/proxy.pac"));
    // The three lines of the script block, in order; the text spans lines.
    std::vector<std::string> texts;
    for (const std::string &line : trace_->lines()) texts.push_back(line);
    size_t begin = texts.size(), end = texts.size();
    for (size_t i = 0; i < texts.size(); ++i) {
        if (LineText(texts[i]).rfind("--- BEGIN SCRIPT ---", 0) == 0) begin = i;
        if (LineText(texts[i]).rfind("--- END SCRIPT ---", 0) == 0) end = i;
    }
    ASSERT_LT(begin, texts.size());
    ASSERT_LT(end, texts.size());
    ASSERT_EQ(end - begin, 6u);  // the script's five lines between them
    EXPECT_EQ(LineText(texts[begin + 1]), "// corporate proxies");
    EXPECT_EQ(texts[begin + 4], "}");
    EXPECT_EQ(Messages("FindProxyForURL returned:  "),
              std::vector<std::string>{
                  "FindProxyForURL returned:  PROXY first:1111; PROXY second:2222; DIRECT"});
}

TEST_F(PacEvaluationTest, ScriptsThatFailLeaveTheListAsItWas) {
    const struct {
        const char *name;
        std::string body;
        const char *failure;
        const char *detail;  // a fragment of the traced line, or empty
    } rows[] = {
        {"syntax error", "function FindProxyForURL(url, host) { return \"DIRECT\"; ",
         "host.Parse failed:  ", ""},
        {"no function", "// FindProxyForURL is missing\nvar x = 1;\n",
         "host.ExecuteSSS failed:  ", ""},
        {"number", Returning("42"), "host.ExecuteSSS failed:  ", "Invalid return type specified"},
        {"nothing", "function FindProxyForURL(url, host) { }\n",
         "host.ExecuteSSS failed:  ", "Invalid return type specified"},
        {"throws", "function FindProxyForURL(url, host) { throw new Error(\"boom\"); }\n",
         "host.ExecuteSSS failed:  ", "Invoke failed"},
        {"top level throws", "throw new Error(\"early\");\n" + Returning("\"DIRECT\""),
         "host.ExecuteSSS failed:  ", ""},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        startTrace();
        const std::string path = "/fail" + std::to_string(&row - rows) + ".pac";
        server_.serve(path, HttpResponse::Text(row.body));
        Routvane resolver;
        ASSERT_EQ(resolver.ParseFindProxyForURLReturn("PROXY kept:1"), 0u);
        EXPECT_EQ(resolver.RunAutoProxyURL(0, "example.org", 80, server_.url(path)), 0u);
        EXPECT_EQ(Entries(resolver), std::vector<Entry>{Proxy("kept", 1)});
        EXPECT_EQ(resolver.autoConfigScript(), row.body);
        const auto lines = Messages(row.failure);
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_NE(lines[0].find(';'), std::string::npos);
        // The trace line may span lines (the detail holds line breaks).
        if (*row.detail) {
            bool found = false;
            for (const std::string &line : trace_->lines())
                if (line.find(row.detail) != std::string::npos) found = true;
            EXPECT_TRUE(found) << row.detail;
        }
        EXPECT_TRUE(Messages("FindProxyForURL returned:  ").empty());
    }
}

TEST_F(PacEvaluationTest, DownloadsWithoutAScriptFailInTheEngine) {
    // An error page: the download completed but holds no script; the empty
    // text goes on to the engine, which has no function to call.
    Routvane resolver;
    EXPECT_EQ(resolver.RunAutoProxyURL(0, "example.org", 80, server_.url("/missing.pac")), 0u);
    EXPECT_EQ(Messages("host.ExecuteSSS failed:  ").size(), 1u);
    EXPECT_EQ(Messages("--- BEGIN SCRIPT ---").size(), 1u);
    EXPECT_EQ(resolver.autoConfigScript(), "");
    EXPECT_TRUE(resolver.proxies().empty());
}

TEST_F(PacEvaluationTest, TheScriptsAnswerDecidesTheStatus) {
    const struct {
        std::string expression;
        uint32_t status;
        std::vector<Entry> entries;
    } rows[] = {
        {"\"\"", 1, {}},
        {"\"DIRECT\"", 0, {kDirect}},
        {"\"SOCKS s:1080\"", 2, {}},
        {"isPlainHostname(host) ? \"DIRECT\" : \"PROXY corp:8080\"", 0, {Proxy("corp", 8080)}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.expression);
        const std::string path = "/answer" + std::to_string(&row - rows) + ".pac";
        server_.serve(path, HttpResponse::Text(Returning(row.expression)));
        Routvane resolver;
        EXPECT_EQ(resolver.RunAutoProxyURL(0, "www.example.org", 80, server_.url(path)),
                  row.status);
        EXPECT_EQ(Entries(resolver), row.entries);
    }
}

TEST_F(PacEvaluationTest, InsFilesLeadToTheScriptTheyName) {
    const std::string script = Returning("\"PROXY fromins:3128\"");
    server_.serve("/corp.pac", HttpResponse::Text(script));
    server_.serve(
        "/corp.ins",
        HttpResponse::Text("[URL]\r\nAutoConfigJSURL=" + server_.url("/corp.pac") + "\r\n"));
    Routvane resolver;
    EXPECT_EQ(resolver.RunAutoProxyURL(0, "example.org", 80, server_.url("/corp.ins")), 0u);
    EXPECT_EQ(Entries(resolver), std::vector<Entry>{Proxy("fromins", 3128)});
    EXPECT_EQ(resolver.autoConfigScript(), script);
    EXPECT_EQ(resolver.autoConfigURL(), server_.url("/corp.ins"));
}

}  // namespace
