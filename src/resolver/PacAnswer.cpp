// The answer of a PAC script's FindProxyForURL as the resolver reads it:
// entries separated by ";", each "DIRECT" or "PROXY host[:port]".
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "resolver/Routvane.h"
#include "trace/ZelComponent.h"
#include "trace/tracefunc.h"

namespace {

const uint32_t kDefaultProxyPort = 80;

// One entry of the answer appended to the list: true when one was added,
// false (and traced) for an entry the resolver does not take.
bool AppendEntry(const char *token, std::vector<ProxyEntry> &proxies, tracefunc &tf) {
    const size_t size = strlen(token) + 1;
    std::vector<char> keyword(size, '\0');
    std::vector<char> host(size, '\0');
    int port = 0;
    // The host ends at the first ":", so an IPv6 literal cannot be
    // given; the port is a signed decimal, not range-checked.
    const int fields = sscanf(token, "%s %[^:]:%d", keyword.data(), host.data(), &port);
    switch (fields) {
    case 0:
        proxies.push_back(ProxyEntry{PROXY_ENTRY_DIRECT, std::string(), 0});
        return true;
    case 1:
        if (_stricmp(keyword.data(), "direct") == 0) {
            proxies.push_back(ProxyEntry{PROXY_ENTRY_DIRECT, std::string(), 0});
            return true;
        }
        if (_stricmp(keyword.data(), "socks") == 0)
            tf << "SOCKS proxy requested; we don't support SOCKS:  " << token << endtrace;
        else
            tf << "Unknown proxy requested:  " << token << endtrace;
        return false;
    case 2:
    case 3:
        if (_stricmp(keyword.data(), "proxy") == 0) {
            proxies.push_back(ProxyEntry{PROXY_ENTRY_PROXY, host.data(),
                                         fields == 3 ? static_cast<uint32_t>(port)
                                                     : kDefaultProxyPort});
            return true;
        }
        // A SOCKS entry with a host is reported as unknown too.
        tf << "Unknown proxy requested:  " << token << endtrace;
        return false;
    default:  // a token of blanks only
        tf << "Unknown proxy requested:  " << token << endtrace;
        return false;
    }
}

}  // namespace

uint32_t Routvane::ParseFindProxyForURLReturn(const std::string &returned) {
    ZelComponent component("Routvane");
    tracefunc tf(__LINE__, "Routvane", "ParseFindProxyForURLReturn");
    if (returned.empty()) {
        // The doubled word belongs to the message.
        tf << "Found empty proxy return return...assuming no proxy" << endtrace;
        return ROUTVANE_DIRECT;
    }

    uint32_t status = ROUTVANE_FAILED;
    std::vector<char> text(returned.c_str(), returned.c_str() + returned.size() + 1);
    // strtok_r skips empty tokens, so doubled and trailing separators cost
    // nothing; a token of blanks only is reported as unknown.
    char *context = nullptr;
    for (char *token = strtok_r(text.data(), ";", &context); token;
         token = strtok_r(nullptr, ";", &context)) {
        if (AppendEntry(token, proxies_, tf)) status = ROUTVANE_PROXY;
    }
    return status;
}
