// Tracing costs: a traced function when tracing is off, and the writer's
// line rate against the bare sequence of C library calls a line needs.
#include <cstdio>
#include <ctime>

#include "BenchSupport.h"
#include "TestSupport.h"
#include "trace/ZelTraceManager.h"
#include "trace/tracefunc.h"

namespace {


void TracedCallWithOneInsertion() {
    tracefunc tf(__LINE__, "bench", "TracedCallWithOneInsertion");
    tf << "a message that is not written";
}

// What one trace line costs at the least: the time and its local
// breakdown, the UTC stamp, the prefix, a seek, two writes and a flush.
void BareLine(FILE *file, const char *text) {
    time_t now = time(nullptr) - 86400;
    volatile int day = localtime(&now)->tm_mday;
    (void)day;
    SYSTEMTIME st;
    GetSystemTime(&st);
    char prefix[128];
    snprintf(prefix, sizeof prefix, "%4d-%02d-%02d %02d:%02d:%02d.%03d: \tDetail\tdefault\t",
             st.wYear, st.wMonth, st.wDay, st.wHour, st.wMinute, st.wSecond, st.wMilliseconds);
    fseek(file, 0, SEEK_END);
    fputs(prefix, file);
    fputs(text, file);
    fputc('\n', file);
    fflush(file);
}

}  // namespace

int main() {
    setvbuf(stdout, nullptr, _IONBF, 0);
    ZelTraceStartup();
    Targets targets;
    const std::string exe = ZelExecutableName();

    {
        const auto off = ScopedRegistryValue::Absent("Debug-" + exe);
        ZelTraceReload();
        const auto medians = CompareMedians({TracedCallWithOneInsertion}, 21, 200000);
        printf("tracing off: one traced call with one insertion: %.1f ns (median)\n",
               medians[0] * 1e9);
        targets.Check("traced call, tracing off (microseconds)", medians[0] * 1e6, 0.5);
    }
    {
        TempDir dir;
        const std::string barePath = dir.file("bare.txt");
        const auto on = ScopedRegistryValue::String("Debug-" + exe, dir.file("trace.txt"));
        ZelTraceReload();
        FileOwner bare(fopen(barePath.c_str(), "a+"));
        const char text[] = "Using WPAD Connect timeout: 5000 ms (tid=1234;function=bench)";
        tracefunc tf(__LINE__, "bench", "writer", 0, true);
        int i = 0;
        const auto medians = CompareMedians(
            {[&] { tf << "Using WPAD Connect timeout: " << ++i << " ms" << endtrace; },
             [&] { BareLine(bare.get(), text); }},
            15, 2000);
        bare.reset();
        const double traced = 1.0 / medians[0], plain = 1.0 / medians[1];
        printf("tracing on: %.0f lines/s through the writer, %.0f lines/s bare\n", traced, plain);
        targets.Check("writer line rate / bare line rate", traced / plain, 0.8, false);
        ZelTraceShutdown();
        ZelTraceStartup();
    }
    ZelTraceShutdown();
    return targets.ExitCode();
}
