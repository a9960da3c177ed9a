// Timing, memory and registry helpers shared by the benchmarks.
#pragma once

#include <windows.h>
#include <psapi.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "util/ComOwners.h"
#include "util/Registry.h"

inline double NowSeconds() {
    static LARGE_INTEGER frequency = [] {
        LARGE_INTEGER f;
        QueryPerformanceFrequency(&f);
        return f;
    }();
    LARGE_INTEGER now;
    QueryPerformanceCounter(&now);
    return static_cast<double>(now.QuadPart) / static_cast<double>(frequency.QuadPart);
}

inline double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

// Seconds per call of each function, measured in interleaved batches so that
// drift of the machine affects both alike; the medians of the batches.
inline std::vector<double> CompareMedians(const std::vector<std::function<void()>> &bodies,
                                          int batches, int callsPerBatch) {
    std::vector<std::vector<double>> samples(bodies.size());
    for (int b = 0; b < batches; ++b) {
        for (size_t i = 0; i < bodies.size(); ++i) {
            const double start = NowSeconds();
            for (int c = 0; c < callsPerBatch; ++c) bodies[i]();
            samples[i].push_back((NowSeconds() - start) / callsPerBatch);
        }
    }
    std::vector<double> medians;
    for (auto &s : samples) medians.push_back(Median(s));
    return medians;
}

// Two functions timed call against call, their order swapped from one pair
// to the next so that neither always runs on the other's heels. The ratio
// of each pair is taken while the machine is in one state: bursts of other
// load that slow a whole pair cancel out, which medians taken of each side
// alone do not do. Seconds per call of each (medians) and the median ratio.
struct PairedTimes {
    double first;
    double second;
    double ratio;
};

inline PairedTimes ComparePaired(const std::function<void()> &first,
                                 const std::function<void()> &second, int pairs) {
    std::vector<double> a, b, ratios;
    for (int i = 0; i < pairs; ++i) {
        const std::function<void()> *order[] = {&first, &second};
        if (i % 2) std::swap(order[0], order[1]);
        double took[2];
        for (int k = 0; k < 2; ++k) {
            const double start = NowSeconds();
            (*order[k])();
            took[k] = NowSeconds() - start;
        }
        const double tFirst = took[i % 2], tSecond = took[1 - i % 2];
        a.push_back(tFirst);
        b.push_back(tSecond);
        ratios.push_back(tFirst / tSecond);
    }
    return {Median(a), Median(b), Median(ratios)};
}

inline SIZE_T PrivateBytes() {
    PROCESS_MEMORY_COUNTERS_EX counters = {};
    counters.cb = sizeof counters;
    GetProcessMemoryInfo(GetCurrentProcess(),
                         reinterpret_cast<PROCESS_MEMORY_COUNTERS *>(&counters), sizeof counters);
    // The committed private bytes. Windows reports them in both fields;
    // Wine fills in only the page-file one.
    return counters.PagefileUsage > counters.PrivateUsage ? counters.PagefileUsage
                                                          : counters.PrivateUsage;
}

// Whether PrivateBytes sees a deliberate 4 MiB allocation: a memory figure
// is only worth quoting from a counter that moves.
inline bool PrivateBytesMove() {
    const SIZE_T before = PrivateBytes();
    const size_t size = 4u << 20;
    char *block = static_cast<char *>(VirtualAlloc(nullptr, size, MEM_COMMIT, PAGE_READWRITE));
    if (!block) return false;
    for (size_t i = 0; i < size; i += 4096) block[i] = 1;
    const SIZE_T after = PrivateBytes();
    VirtualFree(block, 0, MEM_RELEASE);
    return after >= before + size / 2;
}

// The handles open in this process. GetProcessHandleCount answers 0 under
// Wine, so every value a handle of this process can take is asked about
// instead: handle values are multiples of 4, handed out from the lowest free
// one, and a process of these benchmarks holds far fewer than 32,768.
inline DWORD HandleCount() {
    DWORD count = 0;
    for (ULONG_PTR value = 4; value < 0x20000; value += 4) {
        DWORD flags = 0;
        if (GetHandleInformation(reinterpret_cast<HANDLE>(value), &flags)) ++count;
    }
    return count;
}

// Prints one target line and records whether it was met.
struct Targets {
    bool allMet = true;
    void Check(const char *what, double measured, double limit, bool atMost = true) {
        const bool met = atMost ? measured <= limit : measured >= limit;
        allMet = allMet && met;
        printf("  %-58s %10.3f %s %-8.3f %s\n", what, measured, atMost ? "<=" : ">=", limit,
               met ? "met" : "MISSED");
    }
    int ExitCode() const { return allMet ? 0 : 1; }
};
