// A full PAC resolve through the COM interface, with Navigator's preferences
// pointing at a script on a server on 127.0.0.1 inside this program:
//   1. its time against the platform work every such resolve must make,
//      made directly in the same run (bench/PlatformFloor.h): the
//      local-system token test, the .html association look-ups, the
//      Navigator registry reads and prefs.js read, the reads of the connect
//      time-out and the download and script limits, the WinINet download
//      and a bare evaluation of the same script, each of the two handed to
//      a worker thread as the library must (at most 1.10 times);
//   2. 10,000 resolves, one object each: private memory within 2 MiB of
//      where it stood after the first 1,000, and the handle count unchanged.
#include <winsock2.h>
#include <windows.h>
#include <objbase.h>
#include <wininet.h>

#include <atomic>
#include <cstdio>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "LoopbackHttpServer.h"
#include "PlatformFloor.h"
#include "TestSupport.h"
#include "pac/ScriptHost.h"
#include <routvane.h>
#include "resolver/WinInetDownload.h"

namespace {

const char kScript[] =
    "// A corporate proxy script of ordinary size.\n"
    "function FindProxyForURL(url, host) {\n"
    "    if (isPlainHostname(host) || dnsDomainIs(host, \".intranet.example\"))\n"
    "        return \"DIRECT\";\n"
    "    if (shExpMatch(host, \"*.partner.example\") || shExpMatch(url, \"*/downloads/*\"))\n"
    "        return \"PROXY partner-proxy.example:8080; DIRECT\";\n"
    "    if (localHostOrDomainIs(host, \"www.example.org\"))\n"
    "        return \"PROXY web1.example:3128; PROXY web2.example:3128\";\n"
    "    return \"PROXY proxy1.example:3128; PROXY proxy2.example:3128; DIRECT\";\n"
    "}\n";

const char kHost[] = "www.example.com";
const unsigned kPort = 443;

std::string Pref(const std::string &name, const std::string &value) {
    return "user_pref(\"" + name + "\", " + value + ");\n";
}

// Calls of the measured functions started so far; the watchdog reads it.
std::atomic<long long> callsMade{0};

// The same download the resolver makes, with nothing around it.
std::string BareDownload(const std::string &url) {
    ++callsMade;
    return platform_floor::Download(url, platform_floor::ConnectTimeoutMs());
}

// One evaluation of the script, with nothing around it.
std::string BareEvaluation(const std::string &script) {
    ++callsMade;
    ScriptHost host;
    std::string answer;
    if (!host.Parse(script)) return answer;
    host.ExecuteSSS("FindProxyForURL", std::string("https://") + kHost + ":443", kHost, answer);
    return answer;
}

double MiB(double bytes) { return bytes / (1024.0 * 1024.0); }

// One resolve on a new object, as a client makes it; the number of entries.
long long Resolve(IClassFactory *factory) {
    ++callsMade;
    ComPtr<IRoutvane> resolver;
    if (FAILED(factory->CreateInstance(nullptr, IID_IRoutvane, resolver.outVoid()))) return -1;
    long long count = -1;
    const unsigned status = resolver->RoutvaneBrowser(0, kHost, kPort);
    if (status == ROUTVANE_PROXY)
        count = resolver->GetProxyCount();
    else
        count = -10 - static_cast<long long>(status);
    return count;
}

}  // namespace

int main() {
    // A call that never returns must not hold the benchmark run: when no
    // new call has begun for a minute the program says how many began, and
    // ends as a missed target. A slow machine only makes the run longer;
    // a limit on the whole run would call it stuck.
    CreateThread(
        nullptr, 0,
        [](void *) -> DWORD {
            long long seen = -1;
            for (;;) {
                Sleep(60 * 1000);
                const long long now = callsMade;
                if (now == seen) break;
                seen = now;
            }
            printf("pac_resolve_bench: call %lld has not come back in 60 s; it is stuck\n",
                   seen);
            fflush(stdout);
            ExitProcess(2);
        },
        nullptr, 0, nullptr);
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    int exitCode = 1;
    // Keys this program adds are taken away again with their values.
    ScopedKeyRemoved document(HKEY_CLASSES_ROOT, "PacResolveBench.NetscapeDocument");
    ScopedKeyRemoved machine(HKEY_LOCAL_MACHINE, "Software\\Netscape");
    ScopedKeyRemoved user(HKEY_CURRENT_USER, "Software\\Netscape");
    {
        LoopbackHttpServer server;
        server.serve("/proxy.pac", HttpResponse::Text(kScript));
        const std::string url = server.url("/proxy.pac");

        // Navigator is the default browser, installed in a folder of its own
        // under TEMP, with automatic configuration from the server.
        TempDir root;
        const std::string program = root.file("Program");
        const std::string profile = root.file("Users\\bench");
        CreateDirectoryA(program.c_str(), nullptr);
        CreateDirectoryA(root.file("Users").c_str(), nullptr);
        CreateDirectoryA(profile.c_str(), nullptr);
        WriteFileText(profile + "\\prefs.js",
                      Pref("network.proxy.type", "2") +
                          Pref("network.proxy.autoconfig_url", "\"" + url + "\""));
        const char kClass[] = "PacResolveBench.NetscapeDocument";
        const auto html = ScopedRegistryValue::String("", kClass, HKEY_CLASSES_ROOT, ".html");
        const auto command = ScopedRegistryValue::String(
            "", "\"C:\\Program Files\\Netscape\\netscape.exe\" \"%1\"", HKEY_CLASSES_ROOT,
            "PacResolveBench.NetscapeDocument\\shell\\open\\command");
        const std::string navigator = "Software\\Netscape\\Netscape Navigator";
        const auto version =
            ScopedRegistryValue::String("CurrentVersion", "bench", HKEY_LOCAL_MACHINE, navigator);
        const auto install = ScopedRegistryValue::String("Install Directory", program,
                                                         HKEY_LOCAL_MACHINE, navigator + "\\bench\\Main");
        const auto current = ScopedRegistryValue::String("CurrentUser", "bench", HKEY_CURRENT_USER,
                                                         navigator + "\\biff");

        ComPtr<IClassFactory> holder;
        DllGetClassObject(CLSID_Routvane, IID_IClassFactory, holder.outVoid());
        IClassFactory *const factory = holder.get();

        Targets targets;
        if (!factory || Resolve(factory) != 3 || BareDownload(url) != kScript ||
            BareEvaluation(kScript).empty() ||
            platform_floor::PacResolve(url, kHost, kPort) != BareEvaluation(kScript)) {
            printf("pac_resolve_bench: the set-up does not resolve\n");
        } else {
            // 1. One resolve against its floor, call against call: the
            //    ratio is the median of the pairs' ratios, each taken while
            //    the machine is in one state. Both calls wait for worker
            //    threads and a server thread, whose wake-ups a busy machine
            //    delays by whole milliseconds at a time; medians of each side
            //    alone moved the ratio between 0.6 and 1.7 from run to run.
            //    Then the floor's parts, to show where the time goes.
            namespace pf = platform_floor;
            const PairedTimes resolve = ComparePaired([&] { Resolve(factory); },
                                                      [&] {
                                                          ++callsMade;
                                                          pf::PacResolve(url, kHost, kPort);
                                                      },
                                                      1000);
            const std::string script = pf::Download(url, pf::ConnectTimeoutMs());
            const std::string target = std::string("https://") + kHost + ":443";
            const auto parts = CompareMedians(
                {[&] { pf::TokenIsLocalSystem(); }, [&] { pf::HtmlOpenCommand(); },
                 [&] { pf::ReadWholeFile(pf::NetscapePrefsPath()); },
                 [&] {
                     pf::ConnectTimeoutMs();
                     pf::ReadLimits();
                 },
                 [&] {
                     ++callsMade;
                     pf::DownloadOnWorker(url, pf::ConnectTimeoutMs());
                 },
                 [&] {
                     ++callsMade;
                     pf::EvaluateOnWorker(script, target, kHost);
                 }},
                100, 1);
            printf("pac_resolve_bench\n");
            printf("  full resolve through COM          %8.3f ms\n", resolve.first * 1000);
            printf("  platform floor                    %8.3f ms, of which:\n", resolve.second * 1000);
            const char *names[] = {"local-system token test",
                                   ".html association look-ups",
                                   "Navigator registry reads, prefs.js",
                                   "connect time-out and limit reads",
                                   "WinINet download, on the worker",
                                   "bare evaluation, on the worker"};
            for (size_t i = 0; i < parts.size(); ++i)
                printf("    %-36s %8.3f ms\n", names[i], parts[i] * 1000);
            targets.Check("resolve / platform floor", resolve.ratio, 1.10);

            // 2. Many resolves, one object each.
            // The warm-up lets the heaps reach their working size: the
            // download and the evaluation run on worker threads, whose
            // first hundreds of jobs still grow the heap a megabyte step
            // at a time (the end figure is the same from run to run, the
            // start after 100 resolves was not).
            for (int i = 0; i < 1000; ++i) Resolve(factory);
            const SIZE_T privateStart = PrivateBytes();
            const DWORD handlesStart = HandleCount();
            long long wrong = 0;
            for (int i = 0; i < 10000; ++i) {
                const long long got = Resolve(factory);
                if (got != 3) {
                    if (wrong < 5) printf("  resolve %d gave %lld\n", i, got);
                    ++wrong;
                }
            }
            const SIZE_T privateEnd = PrivateBytes();
            const DWORD handlesEnd = HandleCount();
            const double growth =
                (static_cast<double>(privateEnd) - static_cast<double>(privateStart)) /
                (1024.0 * 1024.0);
            printf("  private bytes after 1,000: %.2f MiB, after 11,000: %.2f MiB\n",
                   privateStart / (1024.0 * 1024.0), privateEnd / (1024.0 * 1024.0));
            printf("  handles after 1,000: %lu, after 11,000: %lu\n", handlesStart, handlesEnd);
            targets.Check("private memory growth over 10,000 resolves (MiB)", growth, 2.0);
            targets.Check("handle count change over 10,000 resolves",
                          static_cast<double>(handlesEnd) - static_cast<double>(handlesStart), 0.0);
            targets.Check("resolves that did not give the script's three entries",
                          static_cast<double>(wrong), 0.0);
            // Where growth comes from: the parts alone, as many times.
            const SIZE_T downloadStart = PrivateBytes();
            for (int i = 0; i < 10000; ++i) BareDownload(url);
            const SIZE_T evaluationStart = PrivateBytes();
            for (int i = 0; i < 10000; ++i) BareEvaluation(kScript);
            const SIZE_T evaluationEnd = PrivateBytes();
            for (int i = 0; i < 10000; ++i) platform_floor::PacResolve(url, kHost, kPort);
            const SIZE_T floorEnd = PrivateBytes();
            printf(
                "  for comparison, 10,000 bare downloads: %+.2f MiB, 10,000 bare evaluations: "
                "%+.2f MiB, 10,000 platform floors: %+.2f MiB\n",
                MiB(static_cast<double>(evaluationStart) - static_cast<double>(downloadStart)),
                MiB(static_cast<double>(evaluationEnd) - static_cast<double>(evaluationStart)),
                MiB(static_cast<double>(floorEnd) - static_cast<double>(evaluationEnd)));
            exitCode = targets.ExitCode();
        }
        holder.reset();
    }
    CoUninitialize();
    return exitCode;
}
