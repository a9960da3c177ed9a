// PAC retrieval through Wine's WinINet against a server on 127.0.0.1.
#include <io.h>

#include <cstdio>

#include "PacFixtures.h"

namespace {

const std::string kScript = Returning("\"PROXY pac.example:3128; DIRECT\"");

std::string Ins(const std::string &body) { return "[URL]\r\n" + body; }

// The process's current folder moved for the scope.
struct ScopedCurrentDirectory {
    explicit ScopedCurrentDirectory(const std::string &path) {
        GetCurrentDirectoryA(sizeof old, old);
        SetCurrentDirectoryA(path.c_str());
    }
    ~ScopedCurrentDirectory() { SetCurrentDirectoryA(old); }
    char old[MAX_PATH] = {};
};

// Takes every name _mktemp can still make from "<directory>/INSXXXXXX", so
// that the next _mktemp on that template fails; _mktemp offers one letter
// per name, so a few dozen names exhaust it. The number of files made.
int OccupyParkingNames(const std::string &directory) {
    int made = 0;
    for (int i = 0; i < 64; ++i) {
        char name[MAX_PATH];
        snprintf(name, sizeof name, "%s/INSXXXXXX", directory.c_str());
        FILE *f = _mktemp(name) ? fopen(name, "w") : nullptr;
        if (!f) break;
        fclose(f);
        ++made;
    }
    return made;
}

class PacRetrievalTest : public PacTest {};

TEST_F(PacRetrievalTest, ConnectTimeoutAgentAndFlagsHandedToWinInet) {
    server_.serve("/proxy.pac", HttpResponse::Text(kScript));
    const std::string url = server_.url("/proxy.pac");
    // Which values count is ReadRegistryDword's: here absent and set.
    const struct {
        DWORD seconds;  // 0: the value is absent
        DWORD ms;
    } rows[] = {{0, 5000}, {30, 30000}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.seconds);
        const auto value = row.seconds ? ScopedRegistryValue::Dword("WPADConnectTimeout", row.seconds)
                                       : ScopedRegistryValue::Absent("WPADConnectTimeout");
        StartTrace();
        WinInetLog::calls.clear();
        script_ = "left over";
        EXPECT_EQ(Read(url), 0u);
        EXPECT_EQ(script_, kScript);
        EXPECT_EQ(resolver_.autoConfigURL(), url);
        const std::string ms = std::to_string(row.ms);
        EXPECT_EQ(trace_->messages("Using WPAD Connect timeout"),
                  std::vector<std::string>{"Using WPAD Connect timeout: " + ms + " ms"});
        // Direct access; the time-out set on the session as 4 bytes; reload,
        // no cache write, no dialogs; the URL closed before the session.
        EXPECT_EQ(WinInetLog::calls,
                  (std::vector<std::string>{"open OvrenaTessel 1", "option 2 4 " + ms,
                                            "url 84000200 -1", "close", "close session"}));
        EXPECT_EQ(server_.requests().size(), static_cast<size_t>(&row - rows + 1));
    }
    EXPECT_NE(server_.lastRequestHead().find("\r\nUser-Agent: OvrenaTessel\r\n"), std::string::npos);
}

TEST_F(PacRetrievalTest, AFailedSessionOpenRecordsNothing) {
    download_->InternetOpenA = [](const char *, DWORD, const char *, const char *, DWORD) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return static_cast<HINTERNET>(nullptr);
    };
    EXPECT_EQ(Read(server_.url("/proxy.pac")), 2u);
    EXPECT_EQ(resolver_.autoConfigURL(), "");
    EXPECT_EQ(trace_->messages("InternetOpen failed:  "),
              std::vector<std::string>{"InternetOpen failed:  8"});
    EXPECT_TRUE(trace_->messages("Using WPAD Connect timeout").empty());
    EXPECT_TRUE(server_.requests().empty());
}

TEST_F(PacRetrievalTest, AFailingReadEndsTheTextWhereItFailed) {
    server_.serve("/proxy.pac", HttpResponse::Text(kScript + std::string(9000, '/')));
    static int calls;
    calls = 0;
    // The second read fails without a byte count; the loop must not take
    // the count of the first read for it.
    download_->InternetReadFile = [](HINTERNET h, void *buffer, DWORD size, DWORD *read) {
        if (++calls == 1) return RealWinInetDownload().InternetReadFile(h, buffer, size, read);
        SetLastError(ERROR_INTERNET_CONNECTION_RESET);
        if (calls > 100) *read = 0;  // keeps a faulty loop bounded
        return FALSE;
    };
    EXPECT_EQ(Read(server_.url("/proxy.pac")), 0u);
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(script_, kScript + std::string(2048 - kScript.size(), '/'));
}

TEST_F(PacRetrievalTest, TheScriptIsTheWholeTextWhenItNamesTheFunction) {
    const std::string body = kScript + std::string(3000, '/') + "\n";
    const auto answer = [](const std::string &text) { return HttpResponse::Text(text); };
    // Only a zero byte count ends the reading loop, whatever the server
    // announced. The late answer keeps its pause well inside the fixture's
    // bound, however loaded the machine.
    const struct {
        std::string path;
        HttpResponse response;
        std::string expected;
    } rows[] = {
        {"/error.pac", answer("<html>Internal error</html>").withStatus(500), ""},
        {"/empty.pac", answer(""), ""},
        {"/lower.pac", answer("function findproxyforurl(u, h) { return \"DIRECT\"; }"), ""},
        {"/early.pac", answer(body).stoppingAfter(100, 0), body.substr(0, 100)},
        {"/unannounced.pac", answer(body).announcing(HttpResponse::kNoLength), body},
        {"/late.pac", answer(body).delayedBy(1500), body},
        {"/" + std::string(8 * 1024, 'a') + ".pac", answer(kScript), kScript},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.path.substr(0, 20));
        server_.serve(row.path, row.response);
        script_ = "left over";
        EXPECT_EQ(Read(server_.url(row.path)), 0u);
        EXPECT_TRUE(script_ == row.expected) << script_.size() << " bytes";
        EXPECT_EQ(resolver_.autoConfigURL(), server_.url(row.path));
    }
    EXPECT_TRUE(trace_->messages("failed").empty());
}

TEST_F(PacRetrievalTest, UnusableUrlsFailTheOpenWithItsErrorNumber) {
    const std::string refused =
        "http://127.0.0.1:" + std::to_string(UnusedLoopbackPort()) + "/proxy.pac";
    for (const std::string url : {"proxy.pac", "////", "", "gopher://127.0.0.1/proxy.pac",
                                  refused.c_str()}) {
        SCOPED_TRACE(url);
        StartTrace();
        script_ = "left over";
        EXPECT_EQ(Read(url), 2u);
        EXPECT_EQ(script_, "");
        // Recorded before the attempt, whatever its outcome.
        EXPECT_EQ(resolver_.autoConfigURL(), url);
        const auto lines = trace_->messages("InternetOpenUrl failed:  ");
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_GT(std::stoul(lines[0].substr(25)), 0ul) << lines[0];
    }
    EXPECT_TRUE(server_.requests().empty());
}

TEST_F(PacRetrievalTest, InsFilesNameTheScriptToFetch) {
    server_.serve("/real.pac", HttpResponse::Text(kScript));
    const std::string named = Ins("AutoConfigJSURL=" + server_.url("/real.pac") + "\r\n");
    // Settings text holding the function name: the script itself unless the
    // URL's last suffix is ".ins".
    const std::string scriptLike = named + "; FindProxyForURL\r\n";
    const std::string closed = "http://127.0.0.1:" + std::to_string(UnusedLoopbackPort());
    const struct {
        const char *path;
        std::string body;
        uint32_t status;
        std::string script;
        size_t fetches;
        const char *failure = "";
    } rows[] = {
        {"/settings.ins", named, 0, kScript, 2},
        {"/SETTINGS.INS", scriptLike, 0, kScript, 2},
        {"/get?file=corp.Ins", named, 0, kScript, 2},
        {"/settings.ins.pac", scriptLike, 0, scriptLike, 1},
        {"/settings.insx", scriptLike, 0, scriptLike, 1},
        {"/empty.ins", "", 2, "", 1},
        {"/no-section.ins", "AutoConfigJSURL=http://127.0.0.1:1/x.pac\r\n", 2, "", 1},
        {"/binary.ins", std::string("\0\1\xff\xfe[URL\0]\x1a\0AutoConfigJSURL\0=\2", 30), 2, "", 1},
        {"/gone.ins", Ins("AutoConfigJSURL=" + server_.url("/gone.pac") + "\r\n"), 0, "", 2},
        {"/closed.ins", Ins("AutoConfigJSURL=" + closed + "/x.pac\r\n"), 2, "", 1,
         "InternetOpenUrl (2) failed:  "},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.path);
        server_.serve(row.path, HttpResponse::Text(row.body, "application/x-internet-signup"));
        StartTrace();
        const size_t before = server_.requests().size();
        script_ = "left over";
        EXPECT_EQ(Read(server_.url(row.path)), row.status);
        EXPECT_EQ(script_, row.script);
        // The URL recorded is the one asked for, not the one it names.
        EXPECT_EQ(resolver_.autoConfigURL(), server_.url(row.path));
        EXPECT_EQ(server_.requests().size(), before + row.fetches);
        std::string failures;
        for (const std::string &line : trace_->messages("failed"))
            failures += line.substr(0, line.find(":  ") + 3);
        EXPECT_EQ(failures, row.failure);
    }
}

TEST_F(PacRetrievalTest, InsFileIsParkedInTempThenTmpThenTheCurrentDirectory) {
    server_.serve("/real.pac", HttpResponse::Text(kScript));
    // Where no parking name is left the settings text itself comes back.
    const std::string ins =
        Ins("AutoConfigJSURL=" + server_.url("/real.pac") + "\r\n; FindProxyForURL\r\n");
    server_.serve("/settings.ins", HttpResponse::Text(ins));
    enum Folder { kTemp, kTmp, kCurrent, kMissing };
    const struct {
        const char *name;
        bool tempSet, tmpSet;
        Folder full;
        uint32_t status;
        std::string script;
    } rows[] = {
        {"TEMP free", true, true, kTmp, 0, kScript},
        {"TEMP full", true, true, kTemp, 0, ins},
        {"TMP full, TEMP unset", false, true, kTmp, 0, ins},
        {"neither, current full", false, false, kCurrent, 0, ins},
        {"neither, current free", false, false, kTemp, 0, kScript},
        {"TEMP a missing folder", true, true, kMissing, 2, ""},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        StartTrace();
        TempDir tempDir, tmpDir, currentDir;
        const std::string missing = tempDir.file("not-there");
        ScopedEnvironment temp("TEMP", row.full == kMissing ? missing : tempDir.path(),
                               !row.tempSet);
        ScopedEnvironment tmp("TMP", tmpDir.path(), !row.tmpSet);
        ScopedCurrentDirectory current(currentDir.path());
        const TempDir *dirs[] = {&tempDir, &tmpDir, &currentDir, nullptr}, *full = dirs[row.full];
        if (full) {
            ASSERT_GT(OccupyParkingNames(full->path()), 0);
        }
        const std::vector<std::string> left =
            full ? DirectoryEntries(full->path()) : std::vector<std::string>();
        const size_t before = server_.requests().size();
        EXPECT_EQ(Read(server_.url("/settings.ins")), row.status);
        EXPECT_EQ(script_, row.script);
        EXPECT_EQ(server_.requests().size(), before + (row.script == kScript ? 2 : 1));
        EXPECT_TRUE(trace_->messages("failed").empty());
        // Nothing added to the folders, nothing taken away.
        for (const TempDir *dir : {&tempDir, &tmpDir, &currentDir})
            EXPECT_EQ(DirectoryEntries(dir->path()), dir == full ? left : decltype(left)());
    }
}

}  // namespace
