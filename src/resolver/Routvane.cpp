#include "resolver/Routvane.h"

#include <cstring>

#include "com/ComGuard.h"
#include "resolver/ProcessToken.h"
#include "trace/ZelComponent.h"
#include "trace/tracefunc.h"
#include "util/Owners.h"
#include "util/Registry.h"

namespace {

// Copies text into a caller's buffer of size bytes: at most size - 1
// characters and always a terminator; a buffer of no size is not touched.
void CopyBounded(const std::string &text, char *buffer, int size) {
    if (!buffer || size <= 0) return;
    strncpy(buffer, text.c_str(), static_cast<size_t>(size));
    buffer[size - 1] = '\0';
}

}  // namespace

Routvane::Routvane() = default;

Routvane::~Routvane() = default;

// Every IRoutvane method answers through GuardedCall: nothing thrown below
// reaches the client, which gets the method's failure answer instead.
unsigned int Routvane::RoutvaneBrowser(unsigned int options, const char *target,
                                       unsigned int port) {
    return GuardedCall("RoutvaneBrowser", static_cast<unsigned int>(ROUTVANE_FAILED),
                       [&] { return Resolve(options, target, port); });
}

unsigned int Routvane::Resolve(unsigned int options, const char *target, unsigned int port) {
    ZelComponent component("Routvane");
    tracefunc tf(__LINE__, "Routvane", "RoutvaneBrowser");
    const std::string host = target ? target : "";
    tf << host << ":" << port << endtrace;

    // Entries of earlier calls stay ahead of the new ones: clients that ask
    // about several targets read only the tail they added.
    autoConfigURL_.clear();
    autoConfigScript_ = autoConfigURL_;

    if (IsLocalSystem()) return ROUTVANE_DIRECT;
    browser_ = GetDefaultBrowser();
    switch (browser_) {
    case ROUTVANE_BROWSER_IE:
        return GetProxyFromIE(options, host, port);
    case ROUTVANE_BROWSER_NETSCAPE: {
        const uint32_t status = GetProxyFromNetscape(options, host, port);
        if (status != ROUTVANE_DIRECT) return status;
        // Navigator said "direct": the WinINet settings get a look as well.
        const uint32_t ie = GetProxyFromIE(options, host, port);
        browser_ = ROUTVANE_BROWSER_IE;
        return ie;
    }
    default:
        return ROUTVANE_DIRECT;
    }
}

long long Routvane::GetProxyCount() {
    return GuardedCall("GetProxyCount", 0LL,
                       [&] { return static_cast<long long>(proxies_.size()); });
}

bool Routvane::GetProxy(int index, bool *direct, char *host, int size, unsigned int *port) {
    return GuardedCall("GetProxy", false, [&] { return CopyProxy(index, direct, host, size, port); });
}

bool Routvane::CopyProxy(int index, bool *direct, char *host, int size, unsigned int *port) const {
    // An empty list refuses every index; otherwise the index is compared
    // unsigned, so a negative one is refused too.
    if (proxies_.empty()) return false;
    const uint64_t wide = static_cast<uint64_t>(static_cast<int64_t>(index));
    if (wide > static_cast<uint64_t>(proxies_.size() - 1)) return false;

    if (direct) *direct = false;
    if (host && size > 0) host[0] = '\0';
    if (port) *port = 0;

    const ProxyEntry &entry = proxies_[static_cast<size_t>(index)];
    if (entry.kind == PROXY_ENTRY_DIRECT || (entry.host.empty() && entry.port == 0)) {
        if (direct) *direct = true;
        return true;
    }
    CopyBounded(entry.host, host, size);
    if (port) *port = entry.port;
    return true;
}

bool Routvane::GetAutoConfigURL(char *buffer, int size) {
    return GuardedCall("GetAutoConfigURL", false, [&] {
        CopyBounded(autoConfigURL_, buffer, size);
        return !autoConfigURL_.empty();
    });
}

bool Routvane::GetAutoConfigScript(char *buffer, int size) {
    return GuardedCall("GetAutoConfigScript", false, [&] {
        CopyBounded(autoConfigScript_, buffer, size);
        return !autoConfigScript_.empty();
    });
}

bool Routvane::GetBrowser(unsigned int *code) {
    return GuardedCall("GetBrowser", false, [&] {
        if (code) *code = browser_;
        return browser_ != ROUTVANE_BROWSER_UNKNOWN;
    });
}

bool IsLocalSystem() {
    ZelComponent component("Routvane");
    tracefunc tf(__LINE__, "Routvane", "IsLocalSystem");
    SID_IDENTIFIER_AUTHORITY nt = SECURITY_NT_AUTHORITY;
    SidOwner system;
    if (!ProcessToken().AllocateAndInitializeSid(&nt, 1, SECURITY_LOCAL_SYSTEM_RID, 0, 0, 0, 0, 0,
                                                 0, 0, system.out())) {
        tf << "AllocateAndInitializeSid failed:  " << GetLastError() << endtrace;
        return false;
    }
    KernelHandle token;
    if (!ProcessToken().OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.out())) {
        tf << "OpenProcessToken failed:  " << GetLastError() << endtrace;
        return false;
    }

    DWORD needed = 0;
    if (!ProcessToken().GetTokenInformation(token.get(), TokenUser, nullptr, 0, &needed)) {
        const DWORD error = GetLastError();
        if (error != ERROR_INSUFFICIENT_BUFFER) {
            tf << "GetTokenInformation (first call) failed:  " << error << endtrace;
            return false;
        }
    }
    std::vector<BYTE> buffer(needed, 0);
    if (needed < sizeof(TOKEN_USER) ||
        !ProcessToken().GetTokenInformation(token.get(), TokenUser, buffer.data(), needed,
                                            &needed)) {
        tf << "GetTokenInformation (second call) failed:  " << GetLastError() << endtrace;
        return false;
    }
    const auto *user = reinterpret_cast<const TOKEN_USER *>(buffer.data());
    return EqualSid(user->User.Sid, system.get()) != FALSE;
}

namespace {

// A string value of at most size bytes; another type counts as unreadable.
bool QueryDefaultString(HKEY key, size_t size, std::string &out) {
    std::vector<char> buffer(size + 1, '\0');
    DWORD type = 0;
    DWORD length = static_cast<DWORD>(size);
    if (RegQueryValueExA(key, nullptr, nullptr, &type, reinterpret_cast<BYTE *>(buffer.data()),
                         &length) != ERROR_SUCCESS)
        return false;
    if (type != REG_SZ && type != REG_EXPAND_SZ) return false;
    out.assign(buffer.data());
    return true;
}

uint32_t BrowserFromAssociation(tracefunc &tf) {
    RegKey classKey;
    if (classKey.open(HKEY_CLASSES_ROOT, ".html", KEY_READ) != ERROR_SUCCESS &&
        classKey.open(HKEY_CLASSES_ROOT, ".htm", KEY_READ) != ERROR_SUCCESS) {
        tf << "Couldn't get class key for .html/.htm files" << endtrace;
        return ROUTVANE_BROWSER_UNKNOWN;
    }
    std::string documentClass;
    if (!QueryDefaultString(classKey.get(), 128, documentClass)) {
        tf << "Couldn't get class value for .html/.htm files" << endtrace;
        return ROUTVANE_BROWSER_UNKNOWN;
    }
    RegKey commandKey;
    if (commandKey.open(HKEY_CLASSES_ROOT, (documentClass + "\\shell\\open\\command").c_str(),
                        KEY_READ) != ERROR_SUCCESS) {
        tf << "Couldn't get open command key" << endtrace;
        return ROUTVANE_BROWSER_UNKNOWN;
    }
    std::string command;
    if (!QueryDefaultString(commandKey.get(), 512, command)) {
        tf << "Couldn't get open command value" << endtrace;
        return ROUTVANE_BROWSER_UNKNOWN;
    }
    std::string folded = command;
    for (char &c : folded)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    if (folded.find("iexplore") != std::string::npos) return ROUTVANE_BROWSER_IE;
    if (folded.find("netscape") != std::string::npos) return ROUTVANE_BROWSER_NETSCAPE;
    tf << "Command is \"" << command << "\"" << endtrace;
    return ROUTVANE_BROWSER_UNKNOWN;
}

}  // namespace

uint32_t GetDefaultBrowser() {
    ZelComponent component("Routvane");
    tracefunc tf(__LINE__, "Routvane", "GetDefaultBrowser");
    uint32_t code = BrowserFromAssociation(tf);
    if (code > ROUTVANE_BROWSER_NETSCAPE) {
        tf << "Defaulting to IE" << endtrace;
        code = ROUTVANE_BROWSER_IE;
    }
    tf << "Returning " << code << endtrace;
    return code;
}

uint32_t ReadRegistryDword(const char *name, uint32_t defaultValue) {
    RegKey key;
    if (key.open(HKEY_LOCAL_MACHINE, kOvrenaKey, KEY_READ) != ERROR_SUCCESS) return defaultValue;
    DWORD value = 0;
    DWORD type = 0;
    DWORD size = sizeof value;
    if (RegQueryValueExA(key.get(), name, nullptr, &type, reinterpret_cast<BYTE *>(&value),
                         &size) != ERROR_SUCCESS ||
        type != REG_DWORD || size != sizeof value || value == 0)
        return defaultValue;
    return value;
}
