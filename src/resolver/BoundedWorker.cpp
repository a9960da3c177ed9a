#include "resolver/BoundedWorker.h"

#include <condition_variable>
#include <memory>
#include <mutex>
#include <new>
#include <utility>

#include "com/Module.h"
#include "trace/tracefunc.h"
#include "util/Owners.h"

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

// Everything a worker touches, shared by the caller and the worker; the last
// of the two to let go frees it.
struct WorkerState {
    explicit WorkerState(DWORD start) : progress(start) {}
    std::function<void(WorkProgress &)> work;
    WorkProgress progress;
    std::atomic<int> phase{kRunning};
    KernelHandle token;  // the caller's impersonation token, if any
    // Set once the worker has given back everything of the job: the caller
    // need not wait for a thread's exit, which notifies every loaded
    // library.
    KernelHandle done;
};

// A worker thread. It serves jobs one after another: a finished worker
// waits kLingerMs for the next job, so that a client resolving target
// after target does not pay a thread's start and exit each time. It holds
// a reference to the module for its whole life, given back by
// FreeLibraryAndExitThread as its last act; the module's lock count is
// held per job only, so an idle worker does not keep DllCanUnloadNow
// from answering S_OK (the module then goes when the worker does).
struct WorkerThread {
    HMODULE module = nullptr;
    DWORD id = 0;
    KernelHandle wake;  // auto-reset: a job was handed over
    std::shared_ptr<WorkerState> next;
};

const DWORD kLingerMs = 2000;

// The one idle worker, if any; guarded by g_idleMutex.
std::mutex g_idleMutex;
WorkerThread *g_idle = nullptr;

// Hands the job to the idle worker, if there is one; its thread id, or 0.
// Under the lock, so that a worker whose wait ends at the same moment
// finds the job already there.
DWORD HandToIdleWorker(const std::shared_ptr<WorkerState> &job) {
    WorkerThread *idle = nullptr;
    {
        std::lock_guard<std::mutex> lock(g_idleMutex);
        idle = std::exchange(g_idle, nullptr);
        if (!idle) return 0;
        idle->next = job;
    }
    // Woken outside the lock: the worker takes it first thing, and would
    // otherwise find it still held and sleep a second time. The worker does
    // not go on before this wake-up (NextJob), so it is still there.
    const DWORD id = idle->id;
    SetEvent(idle->wake.get());
    return id;
}

// The caller's impersonation token, opened for the worker; null when the
// caller runs as the process.
KernelHandle ImpersonationToken() {
    KernelHandle token;
    if (!OpenThreadToken(GetCurrentThread(), TOKEN_IMPERSONATE | TOKEN_QUERY, TRUE, token.out()))
        token.reset();
    return token;
}

void RunWork(WorkerState &state) {
    if (state.token && !SetThreadToken(nullptr, state.token.get())) return;
    try {
        state.work(state.progress);
    } catch (...) {
        // Nothing leaves a thread; an abandoned worker's result is dropped
        // anyway, and a finished one's is as the work left it.
    }
    if (state.token) SetThreadToken(nullptr, nullptr);
}

// Offers this worker for the next job; false when another one is offered
// already (one idle worker is enough).
bool OfferSelf(WorkerThread &self) {
    std::lock_guard<std::mutex> lock(g_idleMutex);
    if (g_idle) return false;
    g_idle = &self;
    return true;
}

// Runs one job to its end; true when this worker is then offered for the
// next one, which only a worker the caller still waited for is. It is
// offered before the caller hears that the job is done, so that the
// caller's next job (the evaluation after the download) finds this thread
// rather than starting another.
bool ServeJob(WorkerThread &self, const std::shared_ptr<WorkerState> &state) {
    RunWork(*state);
    int running = kRunning;
    const bool waitedFor = state->phase.compare_exchange_strong(running, kFinished);
    // What the work owns goes before the worker says it is done.
    state->work = nullptr;
    ModuleLockServer(false);
    if (!waitedFor) AbandonedCountChanged(-1);
    const bool offered = waitedFor && OfferSelf(self);
    SetEvent(state->done.get());
    return offered;
}

// Waits kLingerMs for a job handed to this offered worker; the job, or null
// when none came and the worker is no longer offered.
std::shared_ptr<WorkerState> NextJob(WorkerThread &self) {
    const bool woken = WaitForSingleObject(self.wake.get(), kLingerMs) == WAIT_OBJECT_0;
    {
        std::lock_guard<std::mutex> lock(g_idleMutex);
        if (g_idle == &self) {
            g_idle = nullptr;
            return nullptr;
        }
    }
    // Taken, possibly just as the wait ended: the job is there either way,
    // and the wake-up follows at once. It is waited for, so that the caller
    // never signals a worker that has gone.
    if (!woken) WaitForSingleObject(self.wake.get(), INFINITE);
    return std::move(self.next);
}

DWORD WINAPI WorkerMain(void *parameter) {
    HMODULE module = nullptr;
    {
        std::unique_ptr<WorkerThread> self(static_cast<WorkerThread *>(parameter));
        self->id = GetCurrentThreadId();
        module = self->module;
        // An abandoned worker serves no further job: it may have been
        // held for minutes by a server, and ends as soon as it is free.
        for (std::shared_ptr<WorkerState> job = std::move(self->next);
             job && ServeJob(*self, job); job = NextJob(*self)) {
            job.reset();
        }
    }
    // The module stays mapped until the thread has left its code.
    FreeLibraryAndExitThread(module, 0);
    return 0;
}

// Starts a new worker thread with its first job; its id, 0 when none
// could be started (the error is then the last error).
DWORD StartWorker(const std::shared_ptr<WorkerState> &job) {
    auto *worker = new (std::nothrow) WorkerThread();
    if (!worker) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return 0;
    }
    std::unique_ptr<WorkerThread> owned(worker);
    worker->wake.reset(CreateEventA(nullptr, FALSE, FALSE, nullptr));
    ModuleReference module;
    if (!worker->wake ||
        !GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                            reinterpret_cast<LPCSTR>(&WorkerMain), module.out()))
        return 0;
    worker->module = module.get();
    worker->next = job;
    DWORD id = 0;
    const KernelHandle thread(CreateThread(nullptr, 0, WorkerMain, worker, 0, &id));
    if (!thread) {
        const DWORD error = GetLastError();
        module.reset();
        SetLastError(error);
        return 0;
    }
    // The thread owns both now; it gives the module reference back with
    // FreeLibraryAndExitThread.
    owned.release();
    module.release();
    return id;
}

// Abandons a running worker; false when it finished meanwhile.
bool Abandon(WorkerState &state) {
    AbandonedCountChanged(+1);
    int running = kRunning;
    if (state.phase.compare_exchange_strong(running, kAbandoned)) return true;
    AbandonedCountChanged(-1);
    return false;
}

// Hands the job to the idle worker or else to a new one, with the module's
// lock count up for it: DllCanUnloadNow answers S_FALSE while the job runs,
// and the worker gives the count back when the job ends. The worker's
// thread id; 0 when none could be started, with the count given back and
// the error the last error.
DWORD StartJob(const std::shared_ptr<WorkerState> &state) {
    ModuleLockServer(true);
    const DWORD idle = HandToIdleWorker(state);
    if (idle != 0) return idle;
    const DWORD started = StartWorker(state);
    if (started == 0) {
        const DWORD error = GetLastError();
        ModuleLockServer(false);
        SetLastError(error);
    }
    return started;
}

// Waits for the running worker within the bounds: Done once it has
// finished (everything it wrote is then visible), Stalled or TimedOut once
// it is abandoned and onExpiry has run.
BoundedOutcome AwaitWorker(WorkerState &state, DWORD start, const WaitBounds &bounds,
                           const std::function<void()> &onExpiry) {
    for (;;) {
        const WaitDecision next = NextWait(GetTickCount(), state.progress.lastTick(), start, bounds);
        if (next.verdict == WaitVerdict::Wait) {
            if (WaitForSingleObject(state.done.get(), next.waitMs) == WAIT_OBJECT_0)
                return BoundedOutcome::Done;
            continue;
        }
        if (!Abandon(state)) {
            // It finished at the last moment and is giving back what it
            // holds.
            WaitForSingleObject(state.done.get(), INFINITE);
            return BoundedOutcome::Done;
        }
        try {
            onExpiry();
        } catch (...) {
        }
        return next.verdict == WaitVerdict::Stalled ? BoundedOutcome::Stalled
                                                    : BoundedOutcome::TimedOut;
    }
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
    state->token = ImpersonationToken();
    state->done.reset(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    if (!state->done) return {BoundedOutcome::NoThread, 0};
    const DWORD threadId = StartJob(state);
    if (threadId == 0) return {BoundedOutcome::NoThread, 0};
    // From here the worker runs: nothing may leave before it is waited for
    // or abandoned, so a failing trace line is dropped.
    try {
        onStart(threadId);
    } catch (...) {
    }
    return {AwaitWorker(*state, start, bounds, onExpiry), threadId};
}

void TraceNeverStarted(BoundedOutcome outcome, const char *work, tracefunc &tf) {
    // Both read before tracing, which may change the last error.
    const DWORD error = GetLastError();
    const long running = AbandonedWorkers();
    if (outcome == BoundedOutcome::Refused)
        tf << work << " refused:  " << running << " abandoned workers still run" << endtrace;
    else
        tf << "CreateThread failed:  " << error << endtrace;
}

long AbandonedWorkers() { return g_abandoned.load(); }

bool WaitForAbandonedWorkers(DWORD ms) {
    std::unique_lock<std::mutex> lock(g_abandonedMutex);
    return g_abandonedChanged.wait_for(lock, std::chrono::milliseconds(ms),
                                       [] { return g_abandoned.load() == 0; });
}
