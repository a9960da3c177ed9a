// Hostile PAC servers and scripts, each through RoutvaneBrowser with the
// time it took to return, and the waiting decision behind the bounds.
// The script that never ends runs last: its worker keeps a processor busy
// until this program exits.
#include <gtest/gtest.h>

#include "FakeSettings.h"
#include "PacFixtures.h"

#include <memory>

#include "com/Module.h"
#include "resolver/BoundedWorker.h"
#include "trace/tracefunc.h"
#include "util/ComOwners.h"

namespace {

const DWORD kNo = kNoBound;

TEST(NextWait, DecidesFromTheThreeTicks) {
    const struct {
        DWORD now, lastProgress, start;
        WaitBounds bounds;
        WaitVerdict verdict;
        DWORD waitMs;
    } rows[] = {
        // Nothing passed: wait for the nearer deadline.
        {100, 100, 100, {1000, 5000}, WaitVerdict::Wait, 1000},
        {900, 800, 100, {1000, 1500}, WaitVerdict::Wait, 700},
        // Progress moves the progress deadline, never the total one.
        {1500, 1400, 100, {1000, 5000}, WaitVerdict::Wait, 900},
        {1100, 100, 100, {1000, 5000}, WaitVerdict::Stalled, 0},
        {1100, 101, 100, {1000, 5000}, WaitVerdict::Wait, 1},
        {5100, 5000, 100, {1000, 5000}, WaitVerdict::TimedOut, 0},
        // Both passed: the total bound is named.
        {9000, 100, 100, {1000, 5000}, WaitVerdict::TimedOut, 0},
        // Missing bounds.
        {100, 100, 100, {kNo, kNo}, WaitVerdict::Wait, kNo},
        {1000000, 100, 100, {kNo, 5000}, WaitVerdict::TimedOut, 0},
        {1000000, 999000, 100, {kNo, 2000000}, WaitVerdict::Wait, 1000100},
        {1000000, 100, 100, {1000, kNo}, WaitVerdict::Stalled, 0},
        // Across the wrap of the tick counter.
        {0x10, 0xFFFFFF00, 0xFFFFFF00, {1000, 5000}, WaitVerdict::Wait, 1000 - 0x110},
        {0x400, 0xFFFFFF00, 0xFFFFFF00, {1000, 5000}, WaitVerdict::Stalled, 0},
    };
    for (const auto &row : rows) {
        const WaitDecision d = NextWait(row.now, row.lastProgress, row.start, row.bounds);
        EXPECT_TRUE(d.verdict == row.verdict && (d.verdict != WaitVerdict::Wait ||
                                                 d.waitMs == row.waitMs))
            << "row " << &row - rows << ": verdict " << static_cast<int>(d.verdict) << " wait "
            << d.waitMs;
    }
}

// A worker whose thread could not be made: the start's error is named. A
// refused one is the worker cap's test.
TEST(TraceNeverStarted, NamesTheFailedStartsError) {
    TempDir dir;
    ScopedTrace trace(dir.file("t.log"));
    {
        tracefunc tf(__LINE__, "Routvane", "Start");
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        TraceNeverStarted(BoundedOutcome::NoThread, "Download", tf);
    }
    EXPECT_EQ(1u, trace.linesWith("CreateThread failed:  8 (tid=").size());
}

TEST(RunBounded, TheWorkerRunsUnderTheCallersImpersonationToken) {
    for (const bool impersonating : {false, true}) {
        if (impersonating) {
            ASSERT_TRUE(ImpersonateSelf(SecurityImpersonation));
        }
        auto hadToken = std::make_shared<std::atomic<bool>>(false);
        const BoundedRun run = RunBounded(
            [hadToken](WorkProgress &) {
                KernelHandle token;
                *hadToken =
                    OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, token.out()) != FALSE;
            },
            WaitBounds{kNoBound, 10000}, [](DWORD) {}, [] {});
        if (impersonating) RevertToSelf();
        EXPECT_TRUE(run.outcome == BoundedOutcome::Done) << impersonating;
        EXPECT_EQ(hadToken->load(), impersonating);
    }
}

// Whether the thread of that id still runs; waits up to ms for it to end.
bool ThreadRuns(DWORD id, DWORD ms = 0) {
    const KernelHandle thread(OpenThread(SYNCHRONIZE, FALSE, id));
    return thread && WaitForSingleObject(thread.get(), ms) == WAIT_TIMEOUT;
}

// RoutvaneBrowser through the WinINet settings naming one PAC URL, with
// small bounds so that every hostile case ends in seconds.
class UntrustedTest : public testing::Test {
protected:
    void SetUp() override { wininet_.flags = PROXY_TYPE_AUTO_PROXY_URL; }
    struct Resolve {
        unsigned status;
        std::vector<Entry> entries;
        DWORD ms;
    };
    Resolve Run(const std::string &url) {
        wininet_.autoConfigUrl = url.c_str();
        Resolver r;
        const DWORD start = GetTickCount();
        const unsigned status = r->RoutvaneBrowser(0, "www.example.com", 80);
        return Resolve{status, Entries(*r.r), GetTickCount() - start};
    }
    // A fresh trace file, so that a row sees its own lines only.
    void StartTrace(const std::string &name) {
        trace_.reset();
        trace_ = std::make_unique<ScopedTrace>(dir_.file(name + ".log"));
    }

    ComApartment com_;
    FakeWinInet wininet_;
    ScopedBrowserCommand browser_{kIECommand};
    TempDir dir_;
    std::unique_ptr<ScopedTrace> trace_;
    ScopedRegistryValue connect_ = ScopedRegistryValue::Dword("WPADConnectTimeout", 1);
    ScopedRegistryValue total_ = ScopedRegistryValue::Dword("WPADDownloadTimeout", 60);
    ScopedRegistryValue size_ = ScopedRegistryValue::Absent("WPADMaxScriptSize");
    ScopedRegistryValue script_ = ScopedRegistryValue::Dword("PACScriptTimeout", 2);
};

// How late a bounded call may return: the waiting itself, a loaded machine.
const DWORD kMarginMs = 1000;
const std::string kProxyScript = Returning("\"PROXY pac.example:3128\"");

const HttpResponse kProxyAnswer = HttpResponse::Text(kProxyScript);

TEST_F(UntrustedTest, TwentyStalledDownloadsInARowLeaveAtMostEightWorkers) {
    ASSERT_TRUE(WaitForAbandonedWorkers(30000));
    StartTrace("twenty");
    DWORD handles = 0;
    GetProcessHandleCount(GetCurrentProcess(), &handles);
    std::vector<DWORD> workers;
    {
        LoopbackHttpServer server;
        server.serve("/proxy.pac", kProxyAnswer.delayedBy(60000));
        int stalledCalls = 0;
        for (int i = 0; i < 20; ++i) {
            const Resolve got = Run(server.url("/proxy.pac"));
            EXPECT_EQ(got.status, 2u) << i;
            EXPECT_LE(got.ms, 1000 + kMarginMs) << i;
            stalledCalls += got.ms >= 980;
        }
        EXPECT_EQ(stalledCalls, kMaxAbandonedWorkers);
        EXPECT_EQ(trace_->messages("Download refused:  8 abandoned workers still run").size(), 12u);
        for (const std::string &line : trace_->messages("Download runs on worker thread "))
            workers.push_back(std::stoul(line.substr(line.rfind(' ') + 1)));
        EXPECT_EQ(workers.size(), 8u);
        for (DWORD id : workers) EXPECT_TRUE(ThreadRuns(id)) << id;
        EXPECT_EQ(AbandonedWorkers(), kMaxAbandonedWorkers);
        // Abandoned workers keep the module.
        EXPECT_EQ(ModuleLockCount(), kMaxAbandonedWorkers);
        EXPECT_EQ(DllCanUnloadNow(), S_FALSE);
    }
    // With the server gone every worker ends by itself.
    EXPECT_TRUE(WaitForAbandonedWorkers(30000)) << AbandonedWorkers() << " still run";
    for (DWORD id : workers) EXPECT_FALSE(ThreadRuns(id, 5000)) << id;
    EXPECT_EQ(ModuleLockCount(), 0);
    DWORD handlesAfter = 0;
    GetProcessHandleCount(GetCurrentProcess(), &handlesAfter);
    EXPECT_LE(handlesAfter, handles + 4);
}

// The library as a client loads it, Navigator the default browser and its
// preferences naming the script; a script answering nothing hands over to
// the WinINet settings (Wine's own). The entries themselves are the
// Navigator tests'. A worker keeps the library loaded after the client's
// FreeLibrary, and it goes when the worker ends: an abandoned one when its
// server lets go, an idle one when no further job comes.
TEST_F(UntrustedTest, TheLibraryThroughItsInterfaceStaysLoadedUntilItsLastWorkerEnds) {
    auto server = std::make_unique<LoopbackHttpServer>();
    ScopedNavigator navigator(dir_);
    ScopedBrowserCommand browser("\"C:\\Program Files\\Netscape\\netscape.exe\" -h \"%1\"");
    const auto namePac = [&] {
        WriteFileText(navigator.prefs,
                      "user_pref(\"network.proxy.type\", 2);\n"
                      "user_pref(\"network.proxy.autoconfig_url\", \"" +
                          server->url("/proxy.pac") + "\");\n");
    };
    namePac();
    const std::string dll = Beside("routvane.dll");
    const std::string answering =
        "function FindProxyForURL(url, host) {\n"
        "    if (shExpMatch(host, \"*.example.com\"))\n"
        "        return \"PROXY first.example:1111; PROXY second.example:2222; DIRECT\";\n"
        "    return \"DIRECT\";\n"
        "}\n";
    const struct {
        const char *name;
        HttpResponse response;
        unsigned status, browser;
        long long entries;
        HRESULT canUnload;  // once the client let go of its objects
    } rows[] = {
        {"abandoned", kProxyAnswer.delayedBy(60000), 2, ROUTVANE_BROWSER_NETSCAPE, 0, S_FALSE},
        {"idle", HttpResponse::Text(answering), 0, ROUTVANE_BROWSER_NETSCAPE, 3, S_OK},
        {"answers nothing", HttpResponse::Text(Returning("\"\"")), 1, ROUTVANE_BROWSER_IE, 0, S_OK},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        server->serve("/proxy.pac", row.response);
        StartTrace(std::string("library ") + row.name);
        HMODULE library = LoadLibraryA(dll.c_str());
        ASSERT_NE(library, nullptr) << dll;
        using GetClassObject = HRESULT(WINAPI *)(REFCLSID, REFIID, void **);
        using CanUnloadNow = HRESULT(WINAPI *)();
        const auto getClassObject = reinterpret_cast<GetClassObject>(
            reinterpret_cast<void *>(GetProcAddress(library, "DllGetClassObject")));
        const auto canUnloadNow = reinterpret_cast<CanUnloadNow>(
            reinterpret_cast<void *>(GetProcAddress(library, "DllCanUnloadNow")));
        ComPtr<IClassFactory> factory;
        ASSERT_EQ(getClassObject(CLSID_Routvane, IID_IClassFactory, factory.outVoid()), S_OK);
        ComPtr<IRoutvane> resolver;
        ASSERT_EQ(factory->CreateInstance(nullptr, IID_IRoutvane, resolver.outVoid()), S_OK);
        factory.reset();
        const DWORD start = GetTickCount();
        EXPECT_EQ(resolver->RoutvaneBrowser(0, "www.example.com", 443), row.status);
        EXPECT_LE(GetTickCount() - start, 1000 + kMarginMs);
        unsigned browserCode = 99;
        EXPECT_TRUE(resolver->GetBrowser(&browserCode));
        EXPECT_EQ(browserCode, row.browser);
        EXPECT_EQ(resolver->GetProxyCount(), row.entries);
        resolver.reset();
        // The download's worker and the script's, which may be one thread
        // or two; one that ended already cannot be opened.
        std::vector<HANDLE> workers;
        for (const std::string &line : trace_->messages("runs on worker thread "))
            if (HANDLE h = OpenThread(SYNCHRONIZE, FALSE, std::stoul(line.substr(line.rfind(' ') + 1))))
                workers.push_back(h);
        ASSERT_FALSE(workers.empty());
        EXPECT_EQ(canUnloadNow(), row.canUnload);
        FreeLibrary(library);
        EXPECT_EQ(GetModuleHandleA(dll.c_str()), library);
        if (row.status == 2) server = std::make_unique<LoopbackHttpServer>();
        EXPECT_EQ(WaitForMultipleObjects(static_cast<DWORD>(workers.size()), workers.data(), TRUE,
                                         10000),
                  WAIT_OBJECT_0);
        for (HANDLE h : workers) CloseHandle(h);
        EXPECT_EQ(GetModuleHandleA(dll.c_str()), nullptr);
        namePac();  // the new server's address for the next row
    }
}

// Last: the endless script's worker never ends. Which objects a script may
// create is the script host's own test.
TEST_F(UntrustedTest, HostileServersAndScriptsAreLeftAtTheirBound) {
    // The function named in the last line only: every chunk of the download counts.
    const std::string big(6 * 1024 * 1024 - kProxyScript.size() - 1, '/');
    const std::string stalled = "Download stalled: no progress within WPADConnectTimeout (1000 ms)";
    const std::string answered = "FindProxyForURL returned:  PROXY pac.example:3128";
    const std::string timedOut =
        "Script timed out: PACScriptTimeout (2000 ms) passed; InterruptScriptThread:  80004001";
    const long objects = ModuleObjectCount();
    const struct {
        const char *name;
        HttpResponse response;
        DWORD total, maxSize;  // registry values; maxSize 0: absent
        unsigned status;
        std::string line;
        DWORD boundMs;  // 0: no bound checked, the call ends by itself
    } rows[] = {
        // A server that never answers is the worker cap's test; a drip is a
        // stall, WinINet handing back nothing until its buffer is full.
        {"stalls after the headers", kProxyAnswer.stoppingAfter(0, 60000), 60, 0, 2, stalled, 1000},
        {"sends 4 KiB every 0.5 s",
         HttpResponse::Text(kProxyScript + std::string(256 * 1024, '/')).dripping(500, 4096), 2, 0,
         2, "Download timed out: WPADDownloadTimeout (2000 ms) passed", 2000},
        {"endless body without length",
         HttpResponse::Text(kProxyScript + std::string(1024 * 1024, '/'))
             .announcing(HttpResponse::kNoLength)
             .stoppingAfter(SIZE_MAX, 60000),
         60, 65536, 2, "Download exceeds WPADMaxScriptSize (65536 bytes)", 0},
        {"script of exactly the limit", HttpResponse::Text(kProxyScript), 60,
         static_cast<DWORD>(kProxyScript.size()), 0, answered, 0},
        {"6 MiB script under the default limit", HttpResponse::Text(big + "\n" + kProxyScript), 60,
         0, 0, answered, 0},
        {"script busy for 4 s",
         HttpResponse::Text(Returning("(function () { var end = new Date().getTime() + 4000; while"
                                      " (new Date().getTime() < end) {} return 'DIRECT'; })()")),
         60, 0, 2, timedOut, 2000},
        {"script never returns", HttpResponse::Text(Returning("(function () { for (;;) {} })()")),
         60, 0, 2, timedOut, 2000},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        StartTrace(row.name);
        {
            auto total = ScopedRegistryValue::Dword("WPADDownloadTimeout", row.total);
            auto size = row.maxSize ? ScopedRegistryValue::Dword("WPADMaxScriptSize", row.maxSize)
                                    : ScopedRegistryValue::Absent("WPADMaxScriptSize");
            LoopbackHttpServer server;
            server.serve("/proxy.pac", row.response);
            const Resolve got = Run(server.url("/proxy.pac"));
            EXPECT_EQ(got.status, row.status);
            EXPECT_EQ(got.entries, row.status == 0 ? std::vector<Entry>{Proxy("pac.example", 3128)}
                                                   : std::vector<Entry>());
            EXPECT_EQ(trace_->messages(row.line), std::vector<std::string>{row.line});
            EXPECT_EQ(trace_->messages("Download runs on worker thread ").size(), 1u);
            if (row.boundMs > 0) {
                EXPECT_GE(got.ms + 20, row.boundMs);
                EXPECT_LE(got.ms, row.boundMs + kMarginMs);
            }
            printf("  %-40s %5lu ms (bound %lu ms)\n", row.name, static_cast<unsigned long>(got.ms),
                   static_cast<unsigned long>(row.boundMs));
        }
        if (&row == std::end(rows) - 1) break;
        // With its server gone an abandoned worker ends by itself and gives
        // back what it held.
        EXPECT_TRUE(WaitForAbandonedWorkers(30000)) << AbandonedWorkers() << " still run";
        EXPECT_EQ(ModuleObjectCount(), objects);
    }
    // The engine cannot be interrupted: that worker runs until the program
    // ends, with the engine's objects.
    EXPECT_EQ(AbandonedWorkers(), 1);
}

}  // namespace
