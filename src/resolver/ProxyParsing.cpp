// Proxy-server strings and the bypass list of the browser settings.
#include <mbstring.h>

#include <cctype>
#include <cstdlib>
#include <cstring>

#include "pac/SafeRegex.h"
#include "resolver/Routvane.h"
#include "trace/ZelComponent.h"
#include "trace/tracefunc.h"

namespace {

const unsigned char *Bytes(const std::string &text) {
    return reinterpret_cast<const unsigned char *>(text.c_str());
}

// strtol with base 10, as the settings have always been read: leading white
// space and a sign allowed, no digits give 0.
uint32_t DecimalPort(const char *text) {
    return static_cast<uint32_t>(strtol(text, nullptr, 10));
}

}  // namespace

int32_t Routvane::ParseProxy(const std::string &text) {
    ZelComponent component("Routvane");
    tracefunc tf(__LINE__, "Routvane", "ParseProxy");
    tf << text << endtrace;
    // Nothing is trimmed or checked: "http://proxy:8080" gives the host
    // "http" and port 0, and clients that misconfigure see exactly that.
    const unsigned char *colon = _mbschr(Bytes(text), ':');
    ProxyEntry entry{PROXY_ENTRY_PROXY, text, 80};
    if (colon) {
        const size_t at = static_cast<size_t>(colon - Bytes(text));
        entry.host = text.substr(0, at);
        entry.port = DecimalPort(text.c_str() + at + 1);
    }
    proxies_.push_back(entry);
    return 0;
}

int32_t Routvane::ParseIEProxyForScheme(const std::string &list, const std::string &scheme) {
    const std::string key = scheme + "=";
    const unsigned char *found = _mbsstr(Bytes(list), Bytes(key));
    if (!found) return 1;
    const size_t start = static_cast<size_t>(found - Bytes(list)) + key.size();
    const unsigned char *semicolon = _mbschr(Bytes(list) + start, ';');
    const size_t end = semicolon ? static_cast<size_t>(semicolon - Bytes(list)) : list.size();
    return ParseProxy(list.substr(start, end - start));
}

int32_t Routvane::ParseIEProxy(const std::string &list) {
    if (list.find('=') == std::string::npos) return ParseProxy(list);
    // Every target reaches a PAC script as an https URL, so the https proxy
    // is preferred whatever the scheme the client will use.
    if (ParseIEProxyForScheme(list, "https") == 0) return 0;
    if (ParseIEProxyForScheme(list, "http") == 0) return 0;
    return 1;
}

bool IsBypassed(const std::string &target, uint32_t port, const std::string &list) {
    size_t at = 0;
    while (at < list.size()) {
        // Tokens separated by runs of ";" as strtok splits them.
        const size_t start = list.find_first_not_of(';', at);
        if (start == std::string::npos) break;
        size_t end = list.find(';', start);
        if (end == std::string::npos) end = list.size();
        at = end;
        const std::string token = list.substr(start, end - start);

        if (_stricmp(token.c_str(), "<local>") == 0) {
            if (target.find('.') == std::string::npos) return true;
            continue;
        }
        std::string pattern;
        for (const char c : token)
            if (!isspace(static_cast<unsigned char>(c))) pattern += c;
        if (_strnicmp(pattern.c_str(), "https://", 8) == 0)
            pattern.erase(0, 8);
        else if (_strnicmp(pattern.c_str(), "http://", 7) == 0)
            pattern.erase(0, 7);
        const size_t colon = pattern.find(':');
        if (colon != std::string::npos) {
            const uint32_t tokenPort = DecimalPort(pattern.c_str() + colon + 1);
            pattern.erase(colon);
            if (tokenPort != 0 && tokenPort != port) continue;
        }
        if (pattern == target) return true;
        if (ShellExpressionMatch(target, pattern)) return true;
    }
    return false;
}
