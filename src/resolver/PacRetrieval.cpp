// PAC retrieval: the script text behind an auto-config URL, fetched over
// WinINet, with the one indirection of an Internet settings (.ins) file that
// names the real script URL.
#include <windows.h>
#include <wininet.h>
#include <io.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "resolver/Routvane.h"
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

// The whole body behind an open URL handle. The result of InternetReadFile
// is deliberately not consulted: a read error ends the text early, as the
// end of the body does, and only a zero byte count stops the loop.
std::string ReadAll(HINTERNET url) {
    std::string text;
    std::vector<char> buffer(kReadChunk);
    for (;;) {
        // Cleared before every call so that a failing read that leaves the
        // count untouched still ends the loop.
        DWORD read = 0;
        WinInetDownload().InternetReadFile(url, buffer.data(), kReadChunk, &read);
        if (read == 0) break;
        text.append(buffer.data(), read);
    }
    return text;
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

}  // namespace

uint32_t Routvane::readURL(const std::string &url, std::string &script) {
    tracefunc tf(__LINE__, "Routvane", "Routvane::readURL");
    script.clear();

    // Declared first so that it goes last: the session is closed before
    // the URL handle.
    InternetHandle urlHandle;
    // The PAC file itself is always fetched directly, never through a proxy.
    InternetHandle session(
        WinInetDownload().InternetOpenA(kAgent, INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0));
    if (!session) {
        const DWORD error = GetLastError();
        tf << "InternetOpen failed:  " << error << endtrace;
        return ROUTVANE_FAILED;
    }

    DWORD timeout = ReadRegistryDword("WPADConnectTimeout", kDefaultConnectTimeoutSeconds) * 1000;
    tf << "Using WPAD Connect timeout: " << timeout << " ms" << endtrace;
    WinInetDownload().InternetSetOptionA(session.get(), INTERNET_OPTION_CONNECT_TIMEOUT, &timeout,
                                         sizeof timeout);

    autoConfigURL_ = url;
    urlHandle.reset(WinInetDownload().InternetOpenUrlA(session.get(), url.c_str(), nullptr,
                                                       static_cast<DWORD>(-1), kOpenFlags, 0));
    if (!urlHandle) {
        const DWORD error = GetLastError();
        tf << "InternetOpenUrl failed:  " << error << endtrace;
        return ROUTVANE_FAILED;
    }
    std::string text = ReadAll(urlHandle.get());

    if (IsInsUrl(url)) {
        std::string scriptUrl;
        switch (ScriptUrlFromIns(text, scriptUrl)) {
        case InsResult::NoName:
            // Without a temporary name the settings text stands as the
            // download; it rarely holds a script.
            break;
        case InsResult::Failed:
            return ROUTVANE_FAILED;
        case InsResult::Found:
            urlHandle.reset();
            urlHandle.reset(WinInetDownload().InternetOpenUrlA(
                session.get(), scriptUrl.c_str(), nullptr, static_cast<DWORD>(-1), kOpenFlags, 0));
            if (!urlHandle) {
                const DWORD error = GetLastError();
                tf << "InternetOpenUrl (2) failed:  " << error << endtrace;
                return ROUTVANE_FAILED;
            }
            text = ReadAll(urlHandle.get());
            break;
        }
    }

    if (text.find("FindProxyForURL") != std::string::npos) script = text;
    return kDownloaded;
}
