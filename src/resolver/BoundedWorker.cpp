#include "resolver/BoundedWorker.h"

#include <condition_variable>
#include <memory>
#include <mutex>
#include <new>

#include "com/Module.h"

namespace {

std::atomic<long> g_abandoned{0};
std::mutex g_abandonedMutex;
std::condition_variable g_abandonedChanged;

void AbandonedCountChanged(long delta) {
    {
        std::lock_guard<std::mutex> lock(g_abandonedMutex);
        g_abandoned += delta;
    }
    g_abandonedChanged.notify_all();
}

enum Phase : int { kRunning, kFinished, kAbandoned };

// Owner of a kernel handle.
struct KernelHandle {
    HANDLE value = nullptr;
    KernelHandle() = default;
    explicit KernelHandle(HANDLE h) : value(h) {}
    ~KernelHandle() {
        if (value) CloseHandle(value);
    }
    KernelHandle(const KernelHandle &) = delete;
    KernelHandle &operator=(const KernelHandle &) = delete;
};

// Everything a worker touches, shared by the caller and the worker; the last
// of the two to let go frees it.
struct WorkerState {
    explicit WorkerState(DWORD start) : progress(start) {}
    std::function<void(WorkProgress &)> work;
    WorkProgress progress;
    std::atomic<int> phase{kRunning};
    KernelHandle token;  // the caller's impersonation token, if any
    HMODULE module = nullptr;  // the worker's reference to this module
    // Set once the worker has given back all but its thread and module
    // reference: the caller need not wait for the thread's exit, which
    // notifies every loaded library.
    KernelHandle done;
};

// The caller's impersonation token, opened for the worker; null when the
// caller runs as the process.
HANDLE ImpersonationToken() {
    HANDLE token = nullptr;
    if (!OpenThreadToken(GetCurrentThread(), TOKEN_IMPERSONATE | TOKEN_QUERY, TRUE, &token))
        return nullptr;
    return token;
}

void RunWork(WorkerState &state) {
    if (state.token.value && !SetThreadToken(nullptr, state.token.value)) return;
    try {
        state.work(state.progress);
    } catch (...) {
        // Nothing leaves a thread; an abandoned worker's result is dropped
        // anyway, and a finished one's is as the work left it.
    }
    if (state.token.value) SetThreadToken(nullptr, nullptr);
}

DWORD WINAPI WorkerMain(void *parameter) {
    HMODULE module = nullptr;
    {
        std::unique_ptr<std::shared_ptr<WorkerState>> owned(
            static_cast<std::shared_ptr<WorkerState> *>(parameter));
        const std::shared_ptr<WorkerState> state = *owned;
        owned.reset();
        module = state->module;
        RunWork(*state);
        int running = kRunning;
        const bool abandoned = !state->phase.compare_exchange_strong(running, kFinished);
        // What the work owns goes before the worker says it is gone.
        state->work = nullptr;
        ModuleLockServer(false);
        if (abandoned) AbandonedCountChanged(-1);
        SetEvent(state->done.value);
    }
    // The module stays mapped until the thread has left its code.
    FreeLibraryAndExitThread(module, 0);
    return 0;
}

// Abandons a running worker; false when it finished meanwhile.
bool Abandon(WorkerState &state) {
    AbandonedCountChanged(+1);
    int running = kRunning;
    if (state.phase.compare_exchange_strong(running, kAbandoned)) return true;
    AbandonedCountChanged(-1);
    return false;
}

}  // namespace

WaitDecision NextWait(DWORD now, DWORD lastProgress, DWORD start, const WaitBounds &bounds) {
    const DWORD sinceStart = now - start;
    const DWORD sinceProgress = now - lastProgress;
    if (bounds.totalMs != kNoBound && sinceStart >= bounds.totalMs)
        return {WaitVerdict::TimedOut, 0};
    if (bounds.progressMs != kNoBound && sinceProgress >= bounds.progressMs)
        return {WaitVerdict::Stalled, 0};
    DWORD wait = kNoBound;
    if (bounds.totalMs != kNoBound) wait = bounds.totalMs - sinceStart;
    if (bounds.progressMs != kNoBound && bounds.progressMs - sinceProgress < wait)
        wait = bounds.progressMs - sinceProgress;
    return {WaitVerdict::Wait, wait};
}

BoundedRun RunBounded(std::function<void(WorkProgress &)> work, const WaitBounds &bounds,
                      const std::function<void(DWORD threadId)> &onStart,
                      const std::function<void()> &onExpiry) {
    if (g_abandoned.load() >= kMaxAbandonedWorkers) return {BoundedOutcome::Refused, 0};
    const DWORD start = GetTickCount();
    auto state = std::make_shared<WorkerState>(start);
    state->work = std::move(work);
    state->token.value = ImpersonationToken();
    state->done.value = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    if (!state->done.value) return {BoundedOutcome::NoThread, 0};

    // The worker's own reference to the module, given back by
    // FreeLibraryAndExitThread as its last act, and the lock count that
    // makes DllCanUnloadNow answer S_FALSE while it runs.
    HMODULE &module = state->module;
    if (!GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                            reinterpret_cast<LPCSTR>(&WorkerMain), &module))
        return {BoundedOutcome::NoThread, 0};
    ModuleLockServer(true);
    auto *parameter = new (std::nothrow) std::shared_ptr<WorkerState>(state);
    DWORD threadId = 0;
    KernelHandle thread(parameter ? CreateThread(nullptr, 0, WorkerMain, parameter, 0, &threadId)
                                  : nullptr);
    if (!thread.value) {
        const DWORD error = GetLastError();
        delete parameter;
        ModuleLockServer(false);
        FreeLibrary(module);
        module = nullptr;
        SetLastError(parameter ? error : ERROR_NOT_ENOUGH_MEMORY);
        return {BoundedOutcome::NoThread, 0};
    }
    // From here the worker runs: nothing may leave before it is waited for
    // or abandoned, so a failing trace line is dropped.
    try {
        onStart(threadId);
    } catch (...) {
    }

    for (;;) {
        const WaitDecision next =
            NextWait(GetTickCount(), state->progress.lastTick(), start, bounds);
        if (next.verdict != WaitVerdict::Wait) {
            if (!Abandon(*state)) {
                // It finished at the last moment and is giving back what
                // it holds.
                WaitForSingleObject(state->done.value, INFINITE);
                break;
            }
            try {
                onExpiry();
            } catch (...) {
            }
            return {next.verdict == WaitVerdict::Stalled ? BoundedOutcome::Stalled
                                                         : BoundedOutcome::TimedOut,
                    threadId};
        }
        if (WaitForSingleObject(state->done.value, next.waitMs) == WAIT_OBJECT_0) break;
    }
    // Finished: everything the worker wrote is visible.
    return {BoundedOutcome::Done, threadId};
}

long AbandonedWorkers() { return g_abandoned.load(); }

bool WaitForAbandonedWorkers(DWORD ms) {
    std::unique_lock<std::mutex> lock(g_abandonedMutex);
    return g_abandonedChanged.wait_for(lock, std::chrono::milliseconds(ms),
                                       [] { return g_abandoned.load() == 0; });
}
