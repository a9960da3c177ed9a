// PAC evaluation: an auto-config URL completed where it names only a
// server, its script fetched and run in a script host of its own, and the
// answer of FindProxyForURL read into the proxy list.
#include <algorithm>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>

#include "pac/ScriptHost.h"
#include "resolver/BoundedWorker.h"
#include "resolver/Routvane.h"
#include "trace/ZelComponent.h"
#include "trace/tracefunc.h"

namespace {

// The URL to fetch first when the auto-config URL names only a server
// (http://server or http://server/); empty when it is fetched as given.
std::string CompletedUrl(const std::string &pacUrl, size_t slashes) {
    if (slashes == 2) return pacUrl + "/wpad.dat";
    if (slashes == 3 && pacUrl.back() == '/') return pacUrl + "wpad.dat";
    return std::string();
}

const uint32_t kDefaultScriptTimeoutSeconds = 30;
// The registry value that lets a script run as long as it likes.
const uint32_t kNoScriptTimeout = 0xFFFFFFFF;

// Joins the calling thread to the process's multithreaded apartment for a
// scope. The engine's class lives in either kind of apartment and is used
// by this thread alone; a single-threaded apartment of its own would cost
// every evaluation an apartment's set-up and tear-down.
class ComApartment {
public:
    ComApartment() : hr_(CoInitializeEx(nullptr, COINIT_MULTITHREADED)) {}
    ~ComApartment() {
        if (SUCCEEDED(hr_)) CoUninitialize();
    }
    ComApartment(const ComApartment &) = delete;
    ComApartment &operator=(const ComApartment &) = delete;

private:
    HRESULT hr_;
};

// One evaluation as its worker sees it: everything it touches is here, so
// that an abandoned worker never reaches into the caller. The caller's
// observer is reached only through Note, and an abandoned evaluation lets
// go of it first.
struct Evaluation final : EvaluationObserver {
    explicit Evaluation(EvaluationObserver *observer) : listener(observer) {}
    std::string script, url, target;
    // Results, read by the caller only once the worker has finished.
    bool parsed = false;
    bool executed = false;
    std::string answer, message, detail;

    // Asks the running engine to stop; E_UNEXPECTED when none runs.
    HRESULT Interrupt() {
        std::lock_guard<std::mutex> lock(mutex);
        return running ? running->InterruptScript() : E_UNEXPECTED;
    }
    // The host while it exists, for Interrupt from the caller's thread.
    std::mutex mutex;
    ScriptHost *running = nullptr;

    void Note(const std::string &text) override {
        std::lock_guard<std::mutex> lock(listenerMutex);
        if (listener) listener->Note(text);
    }
    // Called by the caller before it abandons the worker.
    void Detach() {
        std::lock_guard<std::mutex> lock(listenerMutex);
        listener = nullptr;
    }
    // Without an observer the helper object is made without one, as always.
    EvaluationObserver *observerForHost() { return listener ? this : nullptr; }
    std::mutex listenerMutex;
    EvaluationObserver *listener;
};

// Publishes a host to Interrupt for its scope.
class RunningHost {
public:
    RunningHost(Evaluation &e, ScriptHost &host) : e_(e) { Set(&host); }
    ~RunningHost() { Set(nullptr); }
    RunningHost(const RunningHost &) = delete;
    RunningHost &operator=(const RunningHost &) = delete;

private:
    void Set(ScriptHost *host) {
        std::lock_guard<std::mutex> lock(e_.mutex);
        e_.running = host;
    }
    Evaluation &e_;
};

// The worker's part: an engine of its own, created, used and released on
// this thread.
void RunEvaluation(Evaluation &e) {
    ComApartment apartment;
    // The one place the evaluation's script host is made.
    ScriptHost host(e.observerForHost());
    RunningHost published(e, host);
    e.parsed = host.Parse(e.script);
    if (e.parsed) e.executed = host.ExecuteSSS("FindProxyForURL", e.url, e.target, e.answer);
    host.GetErrorText(e.message, e.detail);
}

// The evaluation of FindProxyForURL for the target.
std::shared_ptr<Evaluation> NewEvaluation(EvaluationObserver *observer, const std::string &script,
                                          const std::string &target, uint32_t port) {
    const auto evaluation = std::make_shared<Evaluation>(observer);
    evaluation->script = script;
    // Always https:// and no path, whatever the scheme the client asked
    // about: the form the scripts are called with, kept on purpose.
    std::ostringstream url;
    url << "https://" << target << ":" << port;
    evaluation->url = url.str();
    evaluation->target = target;
    return evaluation;
}

// Runs the evaluation on a worker within the script time-out; true when it
// finished, false (with the reason traced) when it was abandoned or never
// started.
bool RunWithinTimeout(tracefunc &tf, const std::shared_ptr<Evaluation> &evaluation) {
    // The engine cannot be stopped from another thread, so the script runs
    // on a worker and the caller waits no longer than the script time-out.
    const uint32_t seconds = ReadRegistryDword("PACScriptTimeout", kDefaultScriptTimeoutSeconds);
    const WaitBounds bounds{kNoBound, seconds == kNoScriptTimeout ? kNoBound : BoundFromSeconds(seconds)};
    HRESULT interrupted = S_OK;
    const BoundedRun run = RunBounded(
        [evaluation](WorkProgress &) { RunEvaluation(*evaluation); }, bounds,
        [&tf](DWORD id) { tf << "Script runs on worker thread " << id << endtrace; },
        [evaluation, &interrupted] { interrupted = evaluation->Interrupt(); });
    switch (run.outcome) {
    case BoundedOutcome::Done:
        return true;
    case BoundedOutcome::Stalled:
    case BoundedOutcome::TimedOut:
        evaluation->Detach();
        tf << "Script timed out: PACScriptTimeout (" << bounds.totalMs
           << " ms) passed; InterruptScriptThread:  " << ZelHexValue(interrupted) << endtrace;
        return false;
    case BoundedOutcome::Refused:
    case BoundedOutcome::NoThread:
        TraceNeverStarted(run.outcome, "Script", tf);
        return false;
    }
    return true;
}

}  // namespace

uint32_t Routvane::RunAutoProxyURL(uint32_t, const std::string &target, uint32_t port,
                                   const std::string &pacUrl) {
    ZelComponent component("Routvane");
    tracefunc tf(__LINE__, "Routvane", "Routvane::RunAutoProxyURL");
    tf << target << "," << static_cast<int>(port) << "," << pacUrl << endtrace;

    std::string script;
    const uint32_t fetched = FetchAutoProxyScript(pacUrl, script);
    if (fetched == ROUTVANE_FAILED) return ROUTVANE_FAILED;
    return EvaluateAutoProxyScript(script, target, port, fetched);
}

uint32_t Routvane::FetchAutoProxyScript(const std::string &pacUrl, std::string &script) {
    // Lines are written in the name of RunAutoProxyURL, whose halves these are.
    tracefunc tf(__LINE__, "Routvane", "Routvane::RunAutoProxyURL", 0, true);
    const size_t slashes = static_cast<size_t>(std::count(pacUrl.begin(), pacUrl.end(), '/'));
    if (slashes < 2) {
        tf << "Invalid input URL" << endtrace;
        return ROUTVANE_FAILED;
    }

    uint32_t downloaded = ROUTVANE_FAILED;
    const std::string completed = CompletedUrl(pacUrl, slashes);
    if (!completed.empty()) {
        downloaded = readURL(completed, script);
        if (downloaded == ROUTVANE_FAILED) return ROUTVANE_FAILED;
    }
    if (script.empty()) {
        // Either no completion was made or its text was no script: the URL
        // as given gets its turn. An empty text here goes on to evaluation,
        // which then fails.
        downloaded = readURL(pacUrl, script);
    }
    return downloaded;
}

uint32_t Routvane::EvaluateAutoProxyScript(const std::string &script, const std::string &target,
                                           uint32_t port, uint32_t fetched) {
    // Lines are written in the name of RunAutoProxyURL, whose halves these are.
    tracefunc tf(__LINE__, "Routvane", "Routvane::RunAutoProxyURL", 0, true);
    autoConfigScript_ = script;
    tf << "--- BEGIN SCRIPT ---" << endtrace;
    tf << script << endtrace;
    tf << "--- END SCRIPT ---" << endtrace;

    const auto evaluation = NewEvaluation(observer_, script, target, port);
    if (!RunWithinTimeout(tf, evaluation)) return ROUTVANE_FAILED;
    const Evaluation &done = *evaluation;
    if (!done.parsed) {
        tf << "host.Parse failed:  " << done.message << ";" << done.detail << endtrace;
        return fetched;
    }
    if (!done.executed) {
        tf << "host.ExecuteSSS failed:  " << done.message << ";" << done.detail << endtrace;
        return fetched;
    }
    tf << "FindProxyForURL returned:  " << done.answer << endtrace;
    return ParseFindProxyForURLReturn(done.answer);
}
