// PAC retrieval through Wine's WinINet against a server on 127.0.0.1.
#include <gtest/gtest.h>

#include <winsock2.h>
#include <windows.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "LoopbackHttpServer.h"
#include "PacFixtures.h"
#include "TestSupport.h"
#include "resolver/Routvane.h"

namespace {

const char kScript[] =
    "function FindProxyForURL(url, host) {\n"
    "    return \"PROXY pac.example:3128; DIRECT\";\n"
    "}\n";

std::string Ins(const std::string &body) { return "[URL]\r\n" + body; }

// Wine's real WinINet behind a layer that counts the handles given and
// taken back, and notes the options set and how the opens were made.
struct WinInetLog {
    static int open;  // handles given and not yet closed
    static int closes;
    static std::vector<HINTERNET> sessions;
    struct Option {
        HINTERNET handle;
        DWORD option;
        DWORD length;
        DWORD value;
    };
    static std::vector<Option> options;
    static std::vector<std::string> agents;
    static std::vector<DWORD> accessTypes;
    static std::vector<DWORD> openFlags;
    static std::vector<DWORD> headerLengths;

    static void Reset() {
        open = 0;
        closes = 0;
        sessions.clear();
        options.clear();
        agents.clear();
        accessTypes.clear();
        openFlags.clear();
        headerLengths.clear();
    }

    static void Install(ScopedPlatform &platform) {
        Reset();
        platform->InternetOpenA = [](const char *agent, DWORD access, const char *proxy,
                                     const char *bypass, DWORD flags) {
            agents.push_back(agent ? agent : "(null)");
            accessTypes.push_back(access);
            HINTERNET h = RealPlatform().InternetOpenA(agent, access, proxy, bypass, flags);
            if (h) {
                ++open;
                sessions.push_back(h);
            }
            return h;
        };
        platform->InternetSetOptionA = [](HINTERNET h, DWORD option, void *buffer, DWORD length) {
            DWORD value = 0;
            if (buffer && length >= sizeof value) memcpy(&value, buffer, sizeof value);
            options.push_back(Option{h, option, length, value});
            return RealPlatform().InternetSetOptionA(h, option, buffer, length);
        };
        platform->InternetOpenUrlA = [](HINTERNET session, const char *url, const char *headers,
                                        DWORD headersLength, DWORD flags, DWORD_PTR context) {
            openFlags.push_back(flags);
            headerLengths.push_back(headersLength);
            HINTERNET h = RealPlatform().InternetOpenUrlA(session, url, headers, headersLength,
                                                          flags, context);
            if (h) ++open;
            return h;
        };
        platform->InternetCloseHandle = [](HINTERNET h) {
            --open;
            ++closes;
            return RealPlatform().InternetCloseHandle(h);
        };
    }
};
int WinInetLog::open = 0;
int WinInetLog::closes = 0;
std::vector<HINTERNET> WinInetLog::sessions;
std::vector<WinInetLog::Option> WinInetLog::options;
std::vector<std::string> WinInetLog::agents;
std::vector<DWORD> WinInetLog::accessTypes;
std::vector<DWORD> WinInetLog::openFlags;
std::vector<DWORD> WinInetLog::headerLengths;

// Every test: a fresh TEMP (and TMP) that must be empty again at the end, a
// one-second connect time-out, and a trace file of its own.
class PacRetrievalTest : public ::testing::Test {
protected:
    void SetUp() override {
        temp_ = std::make_unique<TempDir>();
        traceDir_ = std::make_unique<TempDir>();
        trace_ = std::make_unique<ScopedTrace>(traceDir_->file("trace.log"));
        env_.emplace_back("TEMP", temp_->path());
        env_.emplace_back("TMP", temp_->path());
        registry_.push_back(ScopedRegistryValue::Dword("WPADConnectTimeout", 1));
        WinInetLog::Install(platform_);
    }

    void TearDown() override {
        EXPECT_EQ(DirectoryEntries(temp_->path()), std::vector<std::string>())
            << "a parked file was left behind";
        EXPECT_EQ(WinInetLog::open, 0) << "a WinINet handle was left open";
        registry_.clear();
        env_.clear();
        trace_.reset();
    }

    uint32_t Read(const std::string &url) { return resolver_.readURL(url, script_); }

    std::vector<std::string> Lines(const std::string &fragment) const {
        std::vector<std::string> texts;
        for (const std::string &line : trace_->linesWith(fragment)) {
            // Without the thread and function tail that ends every message.
            const std::string text = LineText(line);
            texts.push_back(text.substr(0, text.rfind(" (tid=")));
        }
        return texts;
    }
    // Whether the trace holds a line whose text starts with the fragment.
    bool Traced(const std::string &fragment) const {
        for (const std::string &line : trace_->linesWith(fragment))
            if (LineText(line).compare(0, fragment.size(), fragment) == 0) return true;
        return false;
    }

    LoopbackHttpServer server_;
    ScopedPlatform platform_;
    std::unique_ptr<TempDir> temp_;
    std::unique_ptr<TempDir> traceDir_;
    std::unique_ptr<ScopedTrace> trace_;
    std::vector<ScopedEnvironment> env_;
    std::vector<ScopedRegistryValue> registry_;
    Routvane resolver_;
    std::string script_ = "left over";
};

TEST_F(PacRetrievalTest, FetchesTheScriptDirectlyAsTheAgentAndRecordsTheUrl) {
    server_.serve("/proxy.pac", HttpResponse::Text(kScript));
    const std::string url = server_.url("/proxy.pac");
    EXPECT_EQ(Read(url), 0u);
    EXPECT_EQ(script_, kScript);
    EXPECT_EQ(resolver_.autoConfigURL(), url);
    EXPECT_EQ(server_.requests(), std::vector<std::string>{"/proxy.pac"});
    EXPECT_EQ(server_.lastUserAgent(), "OvrenaTessel");
    EXPECT_TRUE(Traced("Using WPAD Connect timeout: 1000 ms"));
    EXPECT_EQ(WinInetLog::agents, std::vector<std::string>{"OvrenaTessel"});
    EXPECT_EQ(WinInetLog::accessTypes, std::vector<DWORD>{INTERNET_OPEN_TYPE_DIRECT});
    // Reload, no cache write, no dialogs: 0x84000200.
    EXPECT_EQ(WinInetLog::openFlags, std::vector<DWORD>{0x84000200u});
    EXPECT_EQ(WinInetLog::headerLengths, std::vector<DWORD>{static_cast<DWORD>(-1)});
    // The session first, then the URL handle.
    EXPECT_EQ(WinInetLog::closes, 2);
}

TEST_F(PacRetrievalTest, AFailedSessionOpenRecordsNothing) {
    platform_->InternetOpenA = [](const char *, DWORD, const char *, const char *, DWORD) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return static_cast<HINTERNET>(nullptr);
    };
    EXPECT_EQ(Read(server_.url("/proxy.pac")), 2u);
    EXPECT_EQ(script_, "");
    EXPECT_EQ(resolver_.autoConfigURL(), "");
    EXPECT_EQ(Lines("InternetOpen failed:  "), std::vector<std::string>{"InternetOpen failed:  8"});
    EXPECT_FALSE(Traced("Using WPAD Connect timeout"));
    EXPECT_TRUE(server_.requests().empty());
}

TEST_F(PacRetrievalTest, AFailingReadEndsTheTextWhereItFailed) {
    server_.serve("/proxy.pac", HttpResponse::Text(std::string(kScript) + std::string(9000, '/')));
    static int calls;
    calls = 0;
    // The second read fails without a byte count; the loop must not take
    // the count of the first read for it.
    platform_->InternetReadFile = [](HINTERNET h, void *buffer, DWORD size, DWORD *read) {
        if (++calls == 1) return RealPlatform().InternetReadFile(h, buffer, size, read);
        SetLastError(ERROR_INTERNET_CONNECTION_RESET);
        if (calls > 100) *read = 0;  // keeps a faulty loop bounded
        return FALSE;
    };
    EXPECT_EQ(Read(server_.url("/proxy.pac")), 0u);
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(script_, std::string(kScript) + std::string(2048 - strlen(kScript), '/'));
}

TEST_F(PacRetrievalTest, AlwaysFetchesFromTheServerNeverFromTheCache) {
    HttpResponse cacheable = HttpResponse::Text(kScript);
    cacheable.extraHeaders =
        "Cache-Control: public, max-age=86400\r\n"
        "Expires: Fri, 31 Dec 2099 23:59:59 GMT\r\n"
        "Last-Modified: Mon, 01 Jan 2001 00:00:00 GMT\r\n";
    server_.serve("/cached.pac", cacheable);
    const std::string url = server_.url("/cached.pac");
    ASSERT_EQ(Read(url), 0u);
    const std::string changed = std::string(kScript) + "// second edition\n";
    cacheable.body = changed;
    server_.serve("/cached.pac", cacheable);
    ASSERT_EQ(Read(url), 0u);
    EXPECT_EQ(script_, changed);
    EXPECT_EQ(server_.requests().size(), 2u);
    // A reload asks for a fresh copy instead of revalidating one.
    EXPECT_EQ(server_.lastRequestHead().find("If-Modified-Since"), std::string::npos);
}

TEST_F(PacRetrievalTest, ConnectTimeoutComesFromTheRegistryInSeconds) {
    server_.serve("/proxy.pac", HttpResponse::Text(kScript));
    const DWORD zero = 0;
    const struct {
        const char *name;
        int kind;  // 0 absent, 1 DWORD, 2 REG_SZ, 3 short binary
        DWORD value;
        DWORD expectedMs;
    } rows[] = {
        {"absent", 0, 0, 5000}, {"zero", 1, 0, 5000},     {"text", 2, 0, 5000},
        {"binary", 3, 0, 5000}, {"thirty", 1, 30, 30000}, {"two", 1, 2, 2000},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        registry_.clear();
        if (row.kind == 0) registry_.push_back(ScopedRegistryValue::Absent("WPADConnectTimeout"));
        if (row.kind == 1)
            registry_.push_back(ScopedRegistryValue::Dword("WPADConnectTimeout", row.value));
        if (row.kind == 2)
            registry_.push_back(ScopedRegistryValue::String("WPADConnectTimeout", "30"));
        if (row.kind == 3)
            registry_.push_back(
                ScopedRegistryValue::Raw("WPADConnectTimeout", REG_BINARY, &zero, 2));
        ScopedTrace trace(traceDir_->file(std::string(row.name) + ".log"));
        WinInetLog::Reset();
        EXPECT_EQ(resolver_.readURL(server_.url("/proxy.pac"), script_), 0u);
        const auto lines = trace.linesWith("Using WPAD Connect timeout");
        ASSERT_EQ(lines.size(), 1u);
        const std::string expected =
            "Using WPAD Connect timeout: " + std::to_string(row.expectedMs) + " ms";
        EXPECT_EQ(LineText(lines[0]).substr(0, expected.size()), expected);
        // Handed to the session as the connect time-out, a 4-byte number of
        // milliseconds. Wine's WinINet takes the option but does not bound
        // its connects by it, so the call is what a test can see.
        ASSERT_EQ(WinInetLog::options.size(), 1u);
        ASSERT_EQ(WinInetLog::sessions.size(), 1u);
        EXPECT_EQ(WinInetLog::options[0].handle, WinInetLog::sessions[0]);
        EXPECT_EQ(WinInetLog::options[0].option,
                  static_cast<DWORD>(INTERNET_OPTION_CONNECT_TIMEOUT));
        EXPECT_EQ(WinInetLog::options[0].length, 4u);
        EXPECT_EQ(WinInetLog::options[0].value, row.expectedMs);
    }
}

TEST_F(PacRetrievalTest, TextWithoutTheFunctionNameCompletesWithAnEmptyScript) {
    const struct {
        const char *path;
        HttpResponse response;
    } rows[] = {
        {"/missing.pac", HttpResponse()},  // never served: the server's 404 page
        {"/error.pac",
         [] {
             HttpResponse r =
                 HttpResponse::Text("<html><body>Internal error</body></html>", "text/html");
             r.status = 500;
             r.reason = "Internal Server Error";
             return r;
         }()},
        {"/empty.pac", HttpResponse::Text("")},
        {"/lower.pac", HttpResponse::Text("function findproxyforurl(u, h) { return \"DIRECT\"; }")},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.path);
        if (std::string(row.path) != "/missing.pac") server_.serve(row.path, row.response);
        script_ = "left over";
        EXPECT_EQ(Read(server_.url(row.path)), 0u);
        EXPECT_EQ(script_, "");
        EXPECT_EQ(resolver_.autoConfigURL(), server_.url(row.path));
    }
    EXPECT_FALSE(Traced("InternetOpenUrl failed"));
}

TEST_F(PacRetrievalTest, ReadsLargeBodiesWhole) {
    // 4 MiB with the function name only in its last line: every chunk of the
    // read loop has to be kept.
    std::string body(4 * 1024 * 1024, 'x');
    for (size_t i = 63; i < body.size(); i += 64) body[i] = '\n';
    const std::string tail = "function FindProxyForURL(u, h) { return \"DIRECT\"; }\n";
    body.replace(body.size() - tail.size(), tail.size(), tail);
    server_.serve("/large.pac", HttpResponse::Text(body));
    EXPECT_EQ(Read(server_.url("/large.pac")), 0u);
    EXPECT_EQ(script_.size(), body.size());
    EXPECT_TRUE(script_ == body);
}

TEST_F(PacRetrievalTest, MisbehavingServersEndTheTextWhereTheyStop) {
    const std::string body = std::string(kScript) + std::string(3000, '/') + "\n";
    HttpResponse early = HttpResponse::Text(body);
    early.sendLimit = 100;  // announces the whole body, closes after 100 bytes
    HttpResponse longer = HttpResponse::Text(body);
    longer.announcedLength = 60;  // sends more than it announces
    HttpResponse unannounced = HttpResponse::Text(body);
    unannounced.announcedLength = HttpResponse::kNoLength;  // ends where it closes
    HttpResponse stalled = HttpResponse::Text(body);
    stalled.sendLimit = 2500;  // half the body, silence, then the close
    stalled.holdMs = 1500;
    HttpResponse late = HttpResponse::Text(body);
    late.delayMs = 1500;  // answers later than the connect time-out
    const struct {
        const char *path;
        HttpResponse response;
        std::string expected;
    } rows[] = {
        {"/early.pac", early, body.substr(0, 100)},
        {"/longer.pac", longer, body.substr(0, 60)},
        {"/unannounced.pac", unannounced, body},
        {"/stalled.pac", stalled, body.substr(0, 2500)},
        {"/late.pac", late, body},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.path);
        server_.serve(row.path, row.response);
        script_ = "left over";
        EXPECT_EQ(Read(server_.url(row.path)), 0u);
        EXPECT_EQ(script_.size(), row.expected.size());
        EXPECT_TRUE(script_ == row.expected);
    }
}

TEST_F(PacRetrievalTest, UnusableUrlsFailTheOpenWithItsErrorNumber) {
    const unsigned short closedPort = UnusedLoopbackPort();
    const std::string refused = "http://127.0.0.1:" + std::to_string(closedPort) + "/proxy.pac";
    const struct {
        std::string url;
    } rows[] = {
        {"proxy.pac"}, {"////"}, {""}, {"gopher://127.0.0.1/proxy.pac"}, {refused},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.url);
        ScopedTrace trace(traceDir_->file("unusable" + std::to_string(&row - rows) + ".log"));
        script_ = "left over";
        EXPECT_EQ(Read(row.url), 2u);
        EXPECT_EQ(script_, "");
        // Recorded before the attempt, whatever its outcome.
        EXPECT_EQ(resolver_.autoConfigURL(), row.url);
        const auto lines = trace.linesWith("InternetOpenUrl failed:  ");
        ASSERT_EQ(lines.size(), 1u);
        const std::string text = LineText(lines[0]);
        const std::string number = text.substr(std::string("InternetOpenUrl failed:  ").size());
        EXPECT_GT(std::stoul(number), 0ul) << text;
    }
    EXPECT_TRUE(server_.requests().empty());
}

TEST_F(PacRetrievalTest, LongUrlsAreFetchedAsGiven) {
    const std::string path = "/" + std::string(8 * 1024, 'a') + ".pac";
    server_.serve(path, HttpResponse::Text(kScript));
    EXPECT_EQ(Read(server_.url(path)), 0u);
    EXPECT_EQ(script_, kScript);
}

// --- Internet settings files -------------------------------------------

TEST_F(PacRetrievalTest, InsFilesNameTheScriptToFetch) {
    server_.serve("/real.pac", HttpResponse::Text(kScript));
    const std::string ins = Ins("AutoConfigJSURL=" + server_.url("/real.pac") + "\r\n");
    const struct {
        const char *path;
    } rows[] = {
        {"/settings.ins"},
        {"/SETTINGS.INS"},
        {"/get?file=corp.ins"},
        {"/dir.v2/settings.Ins"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.path);
        server_.serve(row.path, HttpResponse::Text(ins, "application/x-internet-signup"));
        const size_t before = server_.requests().size();
        script_ = "left over";
        EXPECT_EQ(Read(server_.url(row.path)), 0u);
        EXPECT_EQ(script_, kScript);
        // The URL recorded is the one asked for, not the one it names.
        EXPECT_EQ(resolver_.autoConfigURL(), server_.url(row.path));
        const auto requests = server_.requests();
        ASSERT_EQ(requests.size(), before + 2);
        EXPECT_EQ(requests[before], row.path);
        EXPECT_EQ(requests[before + 1], "/real.pac");
    }
}

TEST_F(PacRetrievalTest, OnlyTheLastSuffixMakesAnInsFile) {
    // Settings text that happens to hold the function name: taken as the
    // script when the URL is not an .ins one.
    const std::string text =
        Ins("AutoConfigJSURL=" + server_.url("/real.pac") + "\r\n; FindProxyForURL\r\n");
    server_.serve("/real.pac", HttpResponse::Text(kScript));
    for (const char *path : {"/settings.ins.pac", "/settings.insx", "/settings_ins", "/ins"}) {
        SCOPED_TRACE(path);
        server_.serve(path, HttpResponse::Text(text));
        EXPECT_EQ(Read(server_.url(path)), 0u);
        EXPECT_EQ(script_, text);
        EXPECT_EQ(server_.requests().back(), path);
    }
}

TEST_F(PacRetrievalTest, InsFilesWithoutAUsableUrlFailSilently) {
    const struct {
        const char *name;
        std::string body;
    } rows[] = {
        {"empty", ""},
        {"no section", "AutoConfigJSURL=http://127.0.0.1:1/x.pac\r\n"},
        {"other section", "[Proxy]\r\nAutoConfigJSURL=http://127.0.0.1:1/x.pac\r\n"},
        {"no key", Ins("AutoConfigURL=http://127.0.0.1:1/x.pac\r\n")},
        {"empty value", Ins("AutoConfigJSURL=\r\n")},
        {"blank value", Ins("AutoConfigJSURL=   \r\n")},
        {"binary", std::string("\x00\x01\xff\xfe[URL\x00]\x1a\x00AutoConfigJSURL\x00=\x02", 26)},
        {"script", "function FindProxyForURL(u, h) { return \"DIRECT\"; }\n"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        server_.serve("/settings.ins", HttpResponse::Text(row.body));
        ScopedTrace trace(traceDir_->file("ins" + std::to_string(&row - rows) + ".log"));
        const size_t before = server_.requests().size();
        script_ = "left over";
        EXPECT_EQ(Read(server_.url("/settings.ins")), 2u);
        EXPECT_EQ(script_, "");
        EXPECT_EQ(server_.requests().size(), before + 1);
        EXPECT_TRUE(trace.linesWith("failed").empty());
        EXPECT_EQ(DirectoryEntries(temp_->path()), std::vector<std::string>());
    }
}

TEST_F(PacRetrievalTest, InsFileNamingAnUnreachableScriptFailsTheSecondOpen) {
    const unsigned short closedPort = UnusedLoopbackPort();
    server_.serve("/settings.ins",
                  HttpResponse::Text(Ins("AutoConfigJSURL=http://127.0.0.1:" +
                                         std::to_string(closedPort) + "/x.pac\r\n")));
    EXPECT_EQ(Read(server_.url("/settings.ins")), 2u);
    EXPECT_EQ(script_, "");
    EXPECT_TRUE(Traced("InternetOpenUrl (2) failed:  "));
    EXPECT_FALSE(Traced("InternetOpenUrl failed:  "));
}

TEST_F(PacRetrievalTest, InsFileNamingAMissingScriptCompletesEmpty) {
    server_.serve("/settings.ins",
                  HttpResponse::Text(Ins("AutoConfigJSURL=" + server_.url("/gone.pac") + "\r\n")));
    EXPECT_EQ(Read(server_.url("/settings.ins")), 0u);
    EXPECT_EQ(script_, "");
    EXPECT_EQ(server_.requests().back(), "/gone.pac");
}

TEST_F(PacRetrievalTest, InsFileIsParkedInTempThenTmpThenTheCurrentDirectory) {
    server_.serve("/real.pac", HttpResponse::Text(kScript));
    // The settings text holds the function name, so where no parking name
    // is left the text itself comes back as the script.
    const std::string ins =
        Ins("AutoConfigJSURL=" + server_.url("/real.pac") + "\r\n; FindProxyForURL\r\n");
    server_.serve("/settings.ins", HttpResponse::Text(ins));
    const struct {
        const char *name;
        bool tempSet, tmpSet;
        int occupied;  // 0 none, 1 TEMP's folder, 2 TMP's folder, 3 the current one
        bool parked;   // the settings file could be parked and read
    } rows[] = {
        {"TEMP free", true, true, 2, true},
        {"TEMP full", true, true, 1, false},
        {"TMP full, TEMP unset", false, true, 2, false},
        {"TMP free, TEMP unset", false, true, 1, true},
        {"neither, current full", false, false, 3, false},
        // The file is made in the current directory and read back from there.
        {"neither, current free", false, false, 1, true},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        TempDir tempDir;
        TempDir tmpDir;
        TempDir currentDir;
        std::vector<ScopedEnvironment> env;
        env.emplace_back("TEMP", tempDir.path(), !row.tempSet);
        env.emplace_back("TMP", tmpDir.path(), !row.tmpSet);
        ScopedCurrentDirectory current(currentDir.path());
        const std::string full = row.occupied == 1   ? tempDir.path()
                                 : row.occupied == 2 ? tmpDir.path()
                                                     : std::string();
        const int made = OccupyParkingNames(full);
        ASSERT_GT(made, 0);
        const std::vector<std::string> left =
            DirectoryEntries(row.occupied == 3 ? currentDir.path() : full);
        const size_t before = server_.requests().size();
        EXPECT_EQ(Read(server_.url("/settings.ins")), 0u);
        EXPECT_EQ(script_, row.parked ? std::string(kScript) : ins);
        EXPECT_EQ(server_.requests().size(), before + (row.parked ? 2 : 1));
        // Nothing added to the folders, nothing taken away.
        EXPECT_EQ(DirectoryEntries(row.occupied == 3 ? currentDir.path() : full), left);
        for (const TempDir *dir : {&tempDir, &tmpDir, &currentDir}) {
            if (dir->path() == full || (row.occupied == 3 && dir == &currentDir)) continue;
            EXPECT_EQ(DirectoryEntries(dir->path()), std::vector<std::string>());
        }
    }
}

TEST_F(PacRetrievalTest, InsFileCannotBeParkedInAMissingFolder) {
    server_.serve("/real.pac", HttpResponse::Text(kScript));
    server_.serve("/settings.ins",
                  HttpResponse::Text(Ins("AutoConfigJSURL=" + server_.url("/real.pac") + "\r\n")));
    ScopedEnvironment temp("TEMP", temp_->file("not-there"));
    EXPECT_EQ(Read(server_.url("/settings.ins")), 2u);
    EXPECT_EQ(script_, "");
    EXPECT_FALSE(FileExists(temp_->file("not-there")));
    EXPECT_TRUE(trace_->linesWith("failed").empty());
}

}  // namespace
