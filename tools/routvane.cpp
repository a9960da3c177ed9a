// routvane.exe: what will a program on this machine be told, and why.
//
//   routvane [--options N] [--json] TARGET...
//       resolves through the registered resolver (or routvane.dll beside
//       this program), exactly as a client program would.
//   routvane --pac URL | --pac-file PATH [--json] [--script] [--trace] [--lint] TARGET...
//       runs the PAC script at URL (fetched once), or in a local file, for
//       each target in an evaluation of its own, with the library's code
//       linked into this program.
//   routvane --detect [--options N] [--json] [--script] [--trace] [--lint] TARGET...
//       runs automatic discovery (Routvane::RunAutoDetect) for each target.
//
// TARGET is HOST[:PORT]; --targets FILE adds one a line. --trace copies the
// trace lines of the run to standard error. --json prints one JSON object
// per target and line on standard output and nothing else there. --lint
// lists what in the run behaves differently from other PAC runtimes.
// The whole run has --timeout seconds (default 30): a script that never
// ends must not hang the tester.
// Exit code: the highest of the targets' (0 proxy entries, 1 direct,
// 2 failure), 2 on time-out, 3 usage error.
#include <winsock2.h>
#include <windows.h>
#include <objbase.h>
#include <io.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <optional>
#include <string>
#include <vector>

#include "Tool.h"
#include "trace/ZelTraceManager.h"
#include "util/ComOwners.h"

namespace {

using namespace tool;

// --trace: the library's tracing forced into a temporary file for the run
// (the registry is not touched), its lines copied to standard error after.
class RunTrace {
public:
    explicit RunTrace(bool on) {
        if (!on) return;
        char dir[MAX_PATH + 1] = "";
        char file[MAX_PATH + 1] = "";
        if (GetTempPathA(MAX_PATH, dir) == 0 || GetTempFileNameA(dir, "rvt", 0, file) == 0) {
            fprintf(stderr, "routvane: no temporary file for the trace: %lu\n", GetLastError());
            return;
        }
        path_ = file;
        ZelForceTraceFile(path_);
    }
    ~RunTrace() { finish(); }
    RunTrace(const RunTrace &) = delete;
    RunTrace &operator=(const RunTrace &) = delete;

    void finish() {
        if (path_.empty()) return;
        ZelForceTraceFile(std::string());  // closes the file
        if (FileOwner f{fopen(path_.c_str(), "rb")}) {
            std::string line;
            char buffer[4096];
            size_t n;
            while ((n = fread(buffer, 1, sizeof buffer, f.get())) > 0) {
                for (size_t i = 0; i < n; ++i) {
                    const char c = buffer[i];
                    if (c == '\n') {
                        fprintf(stderr, "%s\n", line.c_str());
                        line.clear();
                    } else if (c != '\r') {
                        line += c;
                    }
                }
            }
            if (!line.empty()) fprintf(stderr, "%s\n", line.c_str());
        }
        fflush(stderr);
        DeleteFileA(path_.c_str());
        path_.clear();
    }

private:
    std::string path_;
};

// --json: while the resolver runs, whatever writes to standard output (the
// C library's stdout, or the process's standard output handle) lands on
// standard error instead; the one JSON object goes to the real standard
// output afterwards.
class StdoutToStderr {
public:
    StdoutToStderr() {
        fflush(stdout);
        savedHandle_ = GetStdHandle(STD_OUTPUT_HANDLE);
        savedFd_ = _dup(_fileno(stdout));
        if (savedFd_ >= 0) _dup2(_fileno(stderr), _fileno(stdout));
        SetStdHandle(STD_OUTPUT_HANDLE, GetStdHandle(STD_ERROR_HANDLE));
    }
    ~StdoutToStderr() { restore(); }
    StdoutToStderr(const StdoutToStderr &) = delete;
    StdoutToStderr &operator=(const StdoutToStderr &) = delete;

    void restore() {
        if (restored_) return;
        restored_ = true;
        fflush(stdout);
        if (savedFd_ >= 0) {
            _dup2(savedFd_, _fileno(stdout));
            _close(savedFd_);
        }
        SetStdHandle(STD_OUTPUT_HANDLE, savedHandle_);
    }

private:
    HANDLE savedHandle_ = nullptr;
    int savedFd_ = -1;
    bool restored_ = false;
};

// The run's work, on a thread of its own so that the main thread can stop
// waiting for it.
struct Work {
    const Options *options;
    std::vector<Answer> answers;
};

DWORD WINAPI RunWork(void *parameter) {
    Work &work = *static_cast<Work *>(parameter);
    // The script host runs the PAC script on this thread, in its apartment.
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    try {
        work.answers = ResolveAll(*work.options);
    } catch (const std::exception &e) {
        fprintf(stderr, "routvane: %s\n", e.what());
    } catch (...) {
        fprintf(stderr, "routvane: unexpected failure\n");
    }
    CoUninitialize();
    return 0;
}

// Waits for the work; false when the time ran out first.
bool RunWithin(Work &work, unsigned seconds) {
    const KernelHandle thread(CreateThread(nullptr, 0, RunWork, &work, 0, nullptr));
    if (!thread) {
        RunWork(&work);
        return true;
    }
    return WaitForSingleObject(thread.get(), seconds * 1000) == WAIT_OBJECT_0;
}

// A thread still inside a script or a download cannot be stopped from
// outside and may hold locks the orderly exit needs: the process ends at
// once, after its message is out.
[[noreturn]] void GiveUp(unsigned seconds) {
    fprintf(stderr, "routvane: no answer within %u s (the script or the server did not finish)\n",
            seconds);
    fflush(stderr);
    fflush(stdout);
    TerminateProcess(GetCurrentProcess(), 2);
    _exit(2);
}

int Run(int argc, char **argv) {
    const Options o = ParseArguments(argc, argv);
    Work work{&o, {}};
    {
        std::optional<StdoutToStderr> quiet;
        if (o.json) quiet.emplace();
        // The DLL starts tracing at load; this program is not the DLL.
        if (o.mode != Mode::Com) ZelTraceStartup();
        std::optional<RunTrace> trace;
        trace.emplace(o.trace);
        if (!RunWithin(work, o.timeoutSeconds)) GiveUp(o.timeoutSeconds);
        trace.reset();
        if (o.mode != Mode::Com) ZelTraceShutdown();
    }
    PrintAnswers(o, work.answers);
    fflush(stdout);
    // A bad line of the targets file, or work that ended without every
    // answer, is a failure.
    int code = o.badTargetLines > 0 || work.answers.size() != o.targets.size() ? 2 : 0;
    for (const Answer &a : work.answers) code = std::max(code, ExitCode(a.status));
    return code;
}

}  // namespace

int main(int argc, char **argv) {
    // No error dialogue boxes: a failure is an exit code.
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
    try {
        return Run(argc, argv);
    } catch (const std::exception &e) {
        fprintf(stderr, "routvane: %s\n", e.what());
    } catch (...) {
        fprintf(stderr, "routvane: unexpected failure\n");
    }
    return ROUTVANE_FAILED;
}
