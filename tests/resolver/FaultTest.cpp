// Allocation failures anywhere in a resolve: this program replaces the
// global operator new so that the n-th allocation of a resolve fails, for
// every n up to the number a whole resolve makes. Each run must answer a
// status, leave no object behind and end no worker early or late.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <new>

#include "FakeSettings.h"
#include "LoopbackHttpServer.h"
#include "PacFixtures.h"
#include "TestSupport.h"
#include "com/Module.h"
#include "resolver/BoundedWorker.h"
#include "resolver/Routvane.h"

namespace {

// Counted only while armed, on every thread but the test's own server's:
// the download and the script run on workers. failAt 0 fails nothing.
std::atomic<bool> g_armed{false};
std::atomic<long> g_count{0};
std::atomic<long> g_failAt{0};

}  // namespace

// The replacements below pair malloc with free, which the compiler cannot
// see through.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"

void *operator new(size_t size) {
    if (g_armed.load() && !LoopbackHttpServer::OnServingThread() && ++g_count == g_failAt.load())
        throw std::bad_alloc();
    if (void *p = std::malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}
void *operator new[](size_t size) { return operator new(size); }
void operator delete(void *p) noexcept { std::free(p); }
void operator delete[](void *p) noexcept { std::free(p); }
void operator delete(void *p, size_t) noexcept { std::free(p); }
void operator delete[](void *p, size_t) noexcept { std::free(p); }

namespace {

struct Outcome {
    unsigned status;
    long allocations;
};

class FaultTest : public testing::Test {
protected:
    // One resolve on a fresh object with the n-th allocation failing.
    Outcome Resolve(long failAt) {
        Resolver r;
        g_count = 0;
        g_failAt = failAt;
        g_armed = true;
        const unsigned status = r->RoutvaneBrowser(0, "www.example.com", 80);
        g_armed = false;
        return Outcome{status, g_count.load()};
    }
    // Fails every allocation of a whole resolve in turn; the number of runs.
    long Sweep(const char *what, unsigned healthy) {
        const long objects = ModuleObjectCount();
        const Outcome whole = Resolve(0);
        EXPECT_EQ(whole.status, healthy) << what;
        EXPECT_GT(whole.allocations, 0) << what;
        long unusual = 0;
        for (long n = 1; n <= whole.allocations; ++n) {
            const Outcome run = Resolve(n);
            EXPECT_LE(run.status, 2u) << what << ", allocation " << n;
            unusual += run.status != healthy;
            EXPECT_EQ(ModuleObjectCount(), objects) << what << ", allocation " << n;
            EXPECT_EQ(ModuleLockCount(), 0) << what << ", allocation " << n;
            EXPECT_EQ(AbandonedWorkers(), 0) << what << ", allocation " << n;
        }
        printf("  %s: %ld allocations, %ld runs answered otherwise than %u\n", what,
               whole.allocations, unusual, healthy);
        // A failure must have changed some answers, or nothing was failed.
        EXPECT_GT(unusual, 0) << what;
        return whole.allocations;
    }
    FakeWinInet wininet_;
    FakeToken token_;
    ScopedBrowserCommand browser_{kIECommand};
};

TEST_F(FaultTest, FixedProxyWithBypassList) {
    wininet_.flags = PROXY_TYPE_PROXY;
    wininet_.proxyServer = "http=web:80;https=secure:443;ftp=files:21";
    wininet_.bypass = "*.corp.example;10.*;<local>";
    Sweep("fixed proxy", 0);
    // With tracing on, the guard names what it caught.
    TempDir dir;
    ScopedTrace trace(dir.file("t.txt"));
    EXPECT_EQ(Resolve(1).status, 2u);
    EXPECT_THAT(trace.linesWith("Exception caught in "),
                testing::ElementsAre(testing::HasSubstr("in RoutvaneBrowser:  std::bad_alloc")));
}

TEST_F(FaultTest, PacScriptFromALoopbackServer) {
    ComApartment com;
    LoopbackHttpServer server;
    server.serve("/proxy.pac",
                 HttpResponse::Text(
                     "function FindProxyForURL(url, host) {\n"
                     "  if (isPlainHostname(host) || shExpMatch(host, '*.corp.example')) return 'DIRECT';\n"
                     "  return 'PROXY pac.example:3128; DIRECT';\n}\n"));
    const std::string url = server.url("/proxy.pac");
    wininet_.flags = PROXY_TYPE_AUTO_PROXY_URL;
    wininet_.autoConfigUrl = url.c_str();
    // With every trace line written: the tracer allocates too, in
    // destructors as well, beside every allocation of the untraced path.
    TempDir dir;
    ScopedTrace trace(dir.file("t.txt"));
    Sweep("PAC script, traced", 0);
}

}  // namespace
