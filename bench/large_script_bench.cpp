// A large PAC script: 5,000 rules mixing shExpMatch, dnsDomainIs and
// isPlainHostname, generated here, with the host matching only the last
// rule, so that one evaluation makes every one of the 5,000 helper calls.
// One evaluation (engine, parse, call, destruction) with the real helper
// object against the same evaluation with a helper object whose methods do
// nothing: the ratio is what the helper functions' own work adds to the
// engine and the dispatch. Target: at most 2.0. Also reported: the time per
// helper call.
#include <cstdio>
#include <string>

#include "BenchSupport.h"
#include "NullHelper.h"
#include "util/ComOwners.h"
#include "pac/ScriptHost.h"
#include "trace/ZelTraceManager.h"

namespace {

const int kRules = 5000;
const char kUrl[] = "http://www.zone4999.example/index.html";
const char kHost[] = "www.zone4999.example";
const char kMatched[] = "PROXY proxy4999.corp.example:3128";

// Rule i tests a name of its own; rule 4999 is a dnsDomainIs on the
// host's domain, and no other rule matches the host.
std::string GenerateScript() {
    std::string script = "function FindProxyForURL(url, host) {\n";
    char line[256];
    for (int i = 0; i < kRules; ++i) {
        switch (i % 3) {
        case 0:
            snprintf(line, sizeof line, "    if (shExpMatch(host, \"*.site%d.example\"))", i);
            break;
        case 1:
            snprintf(line, sizeof line, "    if (dnsDomainIs(host, \".zone%d.example\"))", i);
            break;
        default:
            snprintf(line, sizeof line, "    if (isPlainHostname(host))");
            break;
        }
        script += line;
        snprintf(line, sizeof line, " return \"PROXY proxy%d.corp.example:3128\";\n", i);
        script += line;
    }
    script += "    return \"DIRECT\";\n}\n";
    return script;
}

// One evaluation with the given helper object (null: the library's own).
std::string Evaluate(const std::string &script, IFindProxyForUrl *helper) {
    std::string answer;
    if (helper) {
        ScriptHost host(helper);
        if (host.Parse(script)) host.ExecuteSSS("FindProxyForURL", kUrl, kHost, answer);
    } else {
        ScriptHost host;
        if (host.Parse(script)) host.ExecuteSSS("FindProxyForURL", kUrl, kHost, answer);
    }
    return answer;
}

}  // namespace

int main() {
    ZelTraceStartup();
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    const std::string script = GenerateScript();
    Targets targets;

    // The helper calls one evaluation makes, counted by the do-nothing
    // helper, which matches nothing: the real one matches only the last.
    NullHelper *counter = new NullHelper();
    ComPtr<IFindProxyForUrl> counted = ComPtr<IFindProxyForUrl>::Share(counter);
    const std::string nullAnswer = Evaluate(script, counted.get());
    const long long calls = counter->calls();
    const std::string answer = Evaluate(script, nullptr);
    if (answer != kMatched || nullAnswer != "DIRECT" || calls != kRules) {
        printf("large_script_bench: the script answered [%s] (do-nothing helper [%s], %lld "
               "calls); expected [%s], [DIRECT], %d calls\n",
               answer.c_str(), nullAnswer.c_str(), calls, kMatched, kRules);
        return 2;
    }

    // Evaluation against evaluation, as a pair at a time (BenchSupport.h).
    const PairedTimes t = ComparePaired(
        [&] { Evaluate(script, nullptr); },
        [&] {
            // Made per evaluation, as the site makes the real one.
            ComPtr<IFindProxyForUrl> helper = ComPtr<IFindProxyForUrl>::Share(new NullHelper());
            Evaluate(script, helper.get());
        },
        41);
    printf("large_script_bench: %d rules, %lld helper calls per evaluation, %zu bytes\n", kRules,
           calls, script.size());
    printf("  one evaluation                     %8.3f ms (%.2f us per helper call)\n",
           t.first * 1e3, t.first * 1e6 / static_cast<double>(calls));
    printf("  with a do-nothing helper (floor)   %8.3f ms (%.2f us per helper call)\n",
           t.second * 1e3, t.second * 1e6 / static_cast<double>(calls));
    printf("  the helpers' own work              %8.3f us per call\n",
           (t.first - t.second) * 1e6 / static_cast<double>(calls));
    targets.Check("evaluation / evaluation with do-nothing helper", t.ratio, 2.0);

    CoUninitialize();
    ZelTraceShutdown();
    return targets.ExitCode();
}
