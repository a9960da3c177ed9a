// PAC retrieval: the script text behind an auto-config URL, fetched over
// WinINet, with the one indirection of an Internet settings (.ins) file that
// names the real script URL.
#include <windows.h>
#include <wininet.h>
#include <io.h>

#include <cstdio>
#include <cstdlib>
#include <algorithm>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "resolver/Routvane.h"
#include "resolver/BoundedWorker.h"
#include "resolver/WinInetDownload.h"
#include "trace/tracefunc.h"
#include "util/Owners.h"

namespace {

const char kAgent[] = "OvrenaTessel";
const uint32_t kDefaultConnectTimeoutSeconds = 5;
// Always from the server, never from or into the cache, never a dialog.
const DWORD kOpenFlags = INTERNET_FLAG_RELOAD | INTERNET_FLAG_NO_CACHE_WRITE | INTERNET_FLAG_NO_UI;
const DWORD kReadChunk = 2048;
// A completed download, whether or not its text is a script.
const uint32_t kDownloaded = 0;
// Bounds of a download whose registry values are absent or 0.
const uint32_t kDefaultMaxScriptSize = 8 * 1024 * 1024;
const uint32_t kDefaultDownloadTimeoutSeconds = 60;

// The WinINet handles of one download, shared by the caller and its worker.
// Each is closed exactly once, by whichever of the two gets there first,
// the URL handle before the session: closing the session first leaves the
// URL handle's value stale, and a second close of a stale value can close
// a handle another thread of the client has just been given. (A deliberate
// change of the order the library had; nothing depends on the old one.)
// Both close through the table the download started with.
class DownloadHandles {
public:
    explicit DownloadHandles(TabledInternetHandle session) : session_(std::move(session)) {}
    ~DownloadHandles() { CloseAll(); }
    DownloadHandles(const DownloadHandles &) = delete;
    DownloadHandles &operator=(const DownloadHandles &) = delete;

    // Null once closed: a worker's later call then fails at once. A close
    // between the worker's read of a value and its call with it still
    // reaches WinINet with that value: the window is one call's start, not
    // the whole wait, and WinINet looks the value up under its own lock.
    HINTERNET session() {
        std::lock_guard<std::mutex> lock(mutex_);
        return session_.get().handle;
    }
    HINTERNET url() {
        std::lock_guard<std::mutex> lock(mutex_);
        return url_.get().handle;
    }
    // Closes the URL handle held and takes the new one; false when
    // everything was closed meanwhile, and the new one is closed at once.
    bool ReplaceUrl(TabledInternetHandle url) {
        std::lock_guard<std::mutex> lock(mutex_);
        url_.reset();
        if (closed_) return false;
        url_ = std::move(url);
        return true;
    }
    void CloseAll() {
        std::lock_guard<std::mutex> lock(mutex_);
        url_.reset();
        session_.reset();
        closed_ = true;
    }

private:
    std::mutex mutex_;
    TabledInternetHandle session_;
    TabledInternetHandle url_;
    bool closed_ = false;
};

// One download as its worker sees it: everything it touches is here, the
// download table included, so that an abandoned worker neither reaches
// into the caller nor sees a table swapped after it started.
struct Download {
    Download(const WinInetDownloadApi &table, TabledInternetHandle session)
        : api(table), handles(std::move(session)) {}
    const WinInetDownloadApi api;
    DownloadHandles handles;
    std::string url;
    uint32_t maxSize = kDefaultMaxScriptSize;
    // Results, read by the caller only once the worker has finished.
    uint32_t status = ROUTVANE_FAILED;
    std::string text;
    std::string failure;  // the trace line of a failure
};

std::string FailureLine(const char *what, DWORD error) { return what + std::to_string(error); }

// The whole body behind the current URL handle, at most maxSize bytes;
// false when the body is longer. The result of InternetReadFile is
// deliberately not consulted: a read error ends the text early, as the end
// of the body does, and only a zero byte count stops the loop.
bool ReadAll(Download &d, WorkProgress &progress, std::string &text) {
    text.clear();
    std::vector<char> buffer(kReadChunk);
    // One byte past the limit tells a body of exactly the limit from a
    // longer one.
    const uint64_t stopAt = static_cast<uint64_t>(d.maxSize) + 1;
    while (text.size() < stopAt) {
        const DWORD ask = static_cast<DWORD>(std::min<uint64_t>(kReadChunk, stopAt - text.size()));
        // Cleared before every call so that a failing read that leaves the
        // count untouched still ends the loop.
        DWORD read = 0;
        d.api.InternetReadFile(d.handles.url(), buffer.data(), ask, &read);
        if (read == 0) return true;
        progress.Mark();
        text.append(buffer.data(), std::min(read, ask));
    }
    d.failure = "Download exceeds WPADMaxScriptSize (" + std::to_string(d.maxSize) + " bytes)";
    return false;
}

bool IsInsUrl(const std::string &url) {
    // The suffix is taken from the whole URL, so a query string that ends
    // in ".ins" counts as well.
    const size_t dot = url.rfind('.');
    return dot != std::string::npos && _stricmp(url.c_str() + dot, ".ins") == 0;
}

// The name the settings file is parked under, made unique by _mktemp in the
// directory named by TEMP or else TMP, or in the current directory when
// neither is set. Empty when no unique name is left.
std::string TemporaryInsName() {
    char name[MAX_PATH] = {};
    const char *dir = getenv("TEMP");
    if (!dir) dir = getenv("TMP");
    if (dir)
        snprintf(name, sizeof name, "%s/INSXXXXXX", dir);
    else
        snprintf(name, sizeof name, "INSXXXXXX");
    return _mktemp(name) ? std::string(name) : std::string();
}

enum class InsResult { NoName, Failed, Found };

// Parks the settings text in a temporary file so that the profile reader
// can read it, and takes the script URL from its [URL] AutoConfigJSURL.
InsResult ScriptUrlFromIns(const std::string &text, std::string &scriptUrl) {
    const std::string name = TemporaryInsName();
    if (name.empty()) return InsResult::NoName;
    // Removed when it goes, whatever path leads out.
    TemporaryFile parked(name);
    const char *parkedName = parked.get().c_str();
    size_t written = 0;
    {
        FileOwner out(fopen(parkedName, "w"));
        if (!out) return InsResult::Failed;
        written = fwrite(text.data(), 1, text.size(), out.get());
    }
    if (written != text.size()) return InsResult::Failed;
    // The profile reader looks for a name without a folder in the Windows
    // directory, so a name made in the current directory goes to it whole.
    char full[MAX_PATH] = {};
    const DWORD fullLength = GetFullPathNameA(parkedName, sizeof full, full, nullptr);
    const char *profile = fullLength > 0 && fullLength < sizeof full ? full : parkedName;
    char value[1024] = {};
    const DWORD length =
        GetPrivateProfileStringA("URL", "AutoConfigJSURL", "", value, sizeof value, profile);
    if (length == 0) return InsResult::Failed;
    scriptUrl.assign(value, length);
    return InsResult::Found;
}

// Opens a URL on the shared session for reading; false with the failure
// line when it could not be opened or everything was closed meanwhile.
bool OpenUrl(Download &d, WorkProgress &progress, const std::string &url, const char *failure) {
    TabledInternetHandle handle(TabledInternetHandle::type{
        d.api.InternetOpenUrlA(d.handles.session(), url.c_str(), nullptr, static_cast<DWORD>(-1),
                               kOpenFlags, 0),
        d.api.closeInternet});
    if (!handle) {
        d.failure = FailureLine(failure, GetLastError());
        return false;
    }
    progress.Mark();
    return d.handles.ReplaceUrl(std::move(handle));
}

// The worker's part: the download, and the one indirection of a settings
// file.
void RunDownload(Download &d, WorkProgress &progress) {
    std::string text;
    if (!OpenUrl(d, progress, d.url, "InternetOpenUrl failed:  ") || !ReadAll(d, progress, text))
        return;
    if (IsInsUrl(d.url)) {
        std::string scriptUrl;
        switch (ScriptUrlFromIns(text, scriptUrl)) {
        case InsResult::NoName:
            // Without a temporary name the settings text stands as the
            // download; it rarely holds a script.
            break;
        case InsResult::Failed:
            return;
        case InsResult::Found:
            d.handles.ReplaceUrl(TabledInternetHandle());
            if (!OpenUrl(d, progress, scriptUrl, "InternetOpenUrl (2) failed:  ") ||
                !ReadAll(d, progress, text))
                return;
            break;
        }
    }
    d.text = std::move(text);
    d.status = kDownloaded;
}

// Whether the worker finished the download; else the one trace line that
// names the bound or the refusal.
bool Finished(const BoundedRun &run, const WaitBounds &bounds, tracefunc &tf) {
    switch (run.outcome) {
    case BoundedOutcome::Done:
        return true;
    case BoundedOutcome::Stalled:
        tf << "Download stalled: no progress within WPADConnectTimeout (" << bounds.progressMs
           << " ms)" << endtrace;
        return false;
    case BoundedOutcome::TimedOut:
        tf << "Download timed out: WPADDownloadTimeout (" << bounds.totalMs << " ms) passed"
           << endtrace;
        return false;
    case BoundedOutcome::Refused:
    case BoundedOutcome::NoThread:
        TraceNeverStarted(run.outcome, "Download", tf);
        return false;
    }
    return false;
}

// The registry's connect time-out, download time-out and size limit applied
// to the download; its bounds for the waiting caller.
WaitBounds ApplyDownloadSettings(tracefunc &tf, const WinInetDownloadApi &api, Download &download) {
    DWORD timeout = BoundFromSeconds(
        ReadRegistryDword("WPADConnectTimeout", kDefaultConnectTimeoutSeconds));
    tf << "Using WPAD Connect timeout: " << timeout << " ms" << endtrace;
    api.InternetSetOptionA(download.handles.session(), INTERNET_OPTION_CONNECT_TIMEOUT, &timeout,
                           sizeof timeout);
    const WaitBounds bounds{
        timeout,
        BoundFromSeconds(ReadRegistryDword("WPADDownloadTimeout", kDefaultDownloadTimeoutSeconds))};
    download.maxSize = ReadRegistryDword("WPADMaxScriptSize", kDefaultMaxScriptSize);
    return bounds;
}

}  // namespace

uint32_t Routvane::readURL(const std::string &url, std::string &script) {
    tracefunc tf(__LINE__, "Routvane", "Routvane::readURL");
    script.clear();

    // The PAC file itself is always fetched directly, never through a proxy.
    const WinInetDownloadApi api = WinInetDownload();
    TabledInternetHandle session(TabledInternetHandle::type{
        api.InternetOpenA(kAgent, INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0),
        api.closeInternet});
    if (!session) {
        const DWORD error = GetLastError();
        tf << "InternetOpen failed:  " << error << endtrace;
        return ROUTVANE_FAILED;
    }
    const auto download = std::make_shared<Download>(api, std::move(session));
    const WaitBounds bounds = ApplyDownloadSettings(tf, api, *download);

    autoConfigURL_ = url;
    download->url = url;
    // WinINet bounds neither its connects nor its reads here, and a blocked
    // call cannot be woken: the download runs on a worker, and the caller
    // waits for it no longer than the bounds.
    const BoundedRun run = RunBounded(
        [download](WorkProgress &progress) { RunDownload(*download, progress); }, bounds,
        [&tf](DWORD id) { tf << "Download runs on worker thread " << id << endtrace; },
        [download] { download->handles.CloseAll(); });
    if (!Finished(run, bounds, tf)) return ROUTVANE_FAILED;
    download->handles.CloseAll();
    if (!download->failure.empty()) tf << download->failure << endtrace;
    if (download->status != kDownloaded) return ROUTVANE_FAILED;
    if (download->text.find("FindProxyForURL") != std::string::npos)
        script = std::move(download->text);
    return kDownloaded;
}
