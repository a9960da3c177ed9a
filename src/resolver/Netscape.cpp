// The Netscape Navigator path: the proxy preferences of the user's prefs.js,
// a PAC URL run through the evaluation path or a manual proxy stored as is.
#include <share.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "resolver/NetscapePrefs.h"
#include "resolver/Routvane.h"
#include "trace/ZelComponent.h"
#include "trace/tracefunc.h"
#include "util/Owners.h"
#include "util/Registry.h"

namespace {

const char kNavigatorKey[] = "Software\\Netscape\\Netscape Navigator";
const char kBiffKey[] = "Software\\Netscape\\Netscape Navigator\\biff";
const size_t kRegistryText = 512;
const size_t kReadChunk = 1024;
const uint32_t kDefaultProxyPort = 80;

const char kProxyType[] = "network.proxy.type";
const char kAutoConfigUrl[] = "network.proxy.autoconfig_url";
const char kSslProxy[] = "network.proxy.ssl";
const char kSslPort[] = "network.proxy.ssl_port";
const char kHttpProxy[] = "network.proxy.http";
const char kHttpPort[] = "network.proxy.http_port";

enum : int { kTypeNone = 0, kTypeManual = 1, kTypeAutoConfig = 2 };


// The text from the first user_pref("name" of the text on, or null. Comments
// are not skipped: a commented-out line that comes first is the one read.
const char *FindPreference(const std::string &text, const std::string &pattern) {
    return strstr(text.c_str(), pattern.c_str());
}

std::string Pattern(const char *name) { return std::string("user_pref(\"") + name + "\""; }

}  // namespace

bool GetNetscapePrefsFilename(std::string &path) {
    ZelComponent component("Routvane");
    tracefunc tf(__LINE__, "Routvane", "GetNetscapePrefsFilename");
    std::string version;
    std::string installDirectory;
    std::string user;
    if (!ReadRegistryString(HKEY_LOCAL_MACHINE, kNavigatorKey, "CurrentVersion", kRegistryText,
                            version) ||
        !ReadRegistryString(HKEY_LOCAL_MACHINE,
                            (std::string(kNavigatorKey) + "\\" + version + "\\Main").c_str(),
                            "Install Directory", kRegistryText, installDirectory) ||
        !ReadRegistryString(HKEY_CURRENT_USER, kBiffKey, "CurrentUser", kRegistryText, user)) {
        tf << "Unable to find user's Netscape preference file" << endtrace;
        return false;
    }
    if (installDirectory.empty() || installDirectory.back() != '\\') installDirectory += '\\';
    // The user profiles lie beside the program directory.
    path = installDirectory + "..\\Users\\" + user + "\\prefs.js";
    return true;
}

bool ReadIntegerPreference(const std::string &text, const char *name, int &value) {
    const std::string pattern = Pattern(name);
    const char *at = FindPreference(text, pattern);
    if (!at) return false;
    const std::string format = pattern + ", %d";
    int read = 0;
    if (sscanf(at, format.c_str(), &read) != 1) return false;
    value = read;
    return true;
}

bool ReadStringPreference(const std::string &text, const char *name, std::string &value) {
    const std::string pattern = Pattern(name);
    const char *at = FindPreference(text, pattern);
    if (!at) return false;
    const std::string format = pattern + ", \"%[^\"]";
    // Room for the rest of the text: a value left open runs to its end.
    std::vector<char> buffer(strlen(at) + 1, '\0');
    if (sscanf(at, format.c_str(), buffer.data()) != 1) return false;
    value = buffer.data();
    return true;
}

namespace {

// The whole preferences file. Navigator may hold it open; nothing is denied
// to it. Read as bytes, so that a stray end-of-file character does not cut
// the preferences short.
bool ReadPreferencesFile(const std::string &path, std::string &text, tracefunc &tf) {
    FileOwner in(_fsopen(path.c_str(), "rb", _SH_DENYNO));
    if (!in) {
        tf << "Unable to open Netscape preferences file:  " << path << endtrace;
        return false;
    }
    tf << "Using Netscape preferences file " << path << endtrace;
    char chunk[kReadChunk];
    size_t got = 0;
    while ((got = fread(chunk, 1, sizeof chunk, in.get())) > 0) text.append(chunk, got);
    if (ferror(in.get())) {
        tf << "Error reading preferences file:  " << path << endtrace;
        return false;
    }
    return true;
}

// The manual proxy of the preferences text. The SSL proxy is preferred for
// every target, whatever its scheme.
bool ManualProxy(const std::string &text, std::string &host, int &port, tracefunc &tf) {
    if (ReadStringPreference(text, kSslProxy, host) && !host.empty()) {
        tf << "Using SSL proxy" << endtrace;
        if (!ReadIntegerPreference(text, kSslPort, port)) {
            // Names the HTTP port preference although the SSL port was
            // missing; the message is kept so deliberately.
            tf << "Unable to find " << kHttpPort << "; using default port of " << kDefaultProxyPort
               << endtrace;
            port = static_cast<int>(kDefaultProxyPort);
        }
        return true;
    }
    if (!ReadStringPreference(text, kHttpProxy, host) || host.empty()) {
        tf << "Unable to find HTTP or HTTPS proxy" << kHttpProxy << endtrace;
        return false;
    }
    tf << "Using HTTP proxy" << endtrace;
    if (!ReadIntegerPreference(text, kHttpPort, port)) {
        tf << "Unable to find " << kHttpPort << endtrace;
        port = static_cast<int>(kDefaultProxyPort);
    }
    return true;
}

}  // namespace

uint32_t Routvane::GetProxyFromNetscape(uint32_t options, const std::string &target,
                                        uint32_t port) {
    ZelComponent component("Routvane");
    tracefunc tf(__LINE__, "Routvane", "GetProxyFromNetscape");
    std::string path;
    std::string text;
    if (!GetNetscapePrefsFilename(path) || !ReadPreferencesFile(path, text, tf))
        return ROUTVANE_FAILED;

    int type = kTypeNone;
    if (!ReadIntegerPreference(text, kProxyType, type) || type == kTypeNone) {
        // The message ends in a blank with nothing after it.
        tf << "Unable to find proxy in Netscape config file " << endtrace;
        return ROUTVANE_FAILED;
    }
    tf << "Proxy type is " << type << endtrace;

    if (type == kTypeAutoConfig) {
        std::string url;
        if (ReadStringPreference(text, kAutoConfigUrl, url)) {
            const uint32_t status = RunAutoProxyURL(options, target, port, url);
            if (status != ROUTVANE_FAILED) return status;
        } else {
            tf << "Unable to find " << kAutoConfigUrl << endtrace;
        }
        // An automatic configuration that fails falls back to the manual
        // proxies of the same file.
    } else if (type != kTypeManual) {
        return ROUTVANE_FAILED;
    }

    std::string host;
    int proxyPort = 0;
    if (!ManualProxy(text, host, proxyPort, tf)) return ROUTVANE_FAILED;
    proxies_.push_back(ProxyEntry{PROXY_ENTRY_PROXY, host, static_cast<uint32_t>(proxyPort)});
    return ROUTVANE_PROXY;
}
