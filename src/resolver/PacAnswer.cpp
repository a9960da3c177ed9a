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
    // nothing; a token of blanks only is reported below.
    char *context = nullptr;
    auto skipped = [this](const char *token) {
        if (!observer_) return;
        std::string entry(token);
        entry.erase(0, entry.find_first_not_of(" \t"));
        entry.erase(entry.find_last_not_of(" \t") + 1);
        observer_->Note("answer entry skipped (only PROXY and DIRECT are read): \"" + entry +
                        "\"");
    };
    for (char *token = strtok_r(text.data(), ";", &context); token;
         token = strtok_r(nullptr, ";", &context)) {
        const size_t size = strlen(token) + 1;
        std::vector<char> keyword(size, '\0');
        std::vector<char> host(size, '\0');
        int port = 0;
        // The host ends at the first ":", so an IPv6 literal cannot be
        // given; the port is a signed decimal, not range-checked.
        const int fields = sscanf(token, "%s %[^:]:%d", keyword.data(), host.data(), &port);
        switch (fields) {
        case 0:
            proxies_.push_back(ProxyEntry{PROXY_ENTRY_DIRECT, std::string(), 0});
            status = ROUTVANE_PROXY;
            break;
        case 1:
            if (_stricmp(keyword.data(), "direct") == 0) {
                proxies_.push_back(ProxyEntry{PROXY_ENTRY_DIRECT, std::string(), 0});
                status = ROUTVANE_PROXY;
            } else if (_stricmp(keyword.data(), "socks") == 0) {
                tf << "SOCKS proxy requested; we don't support SOCKS:  " << token << endtrace;
                skipped(token);
            } else {
                tf << "Unknown proxy requested:  " << token << endtrace;
                skipped(token);
            }
            break;
        case 2:
        case 3:
            if (_stricmp(keyword.data(), "proxy") == 0) {
                proxies_.push_back(
                    ProxyEntry{PROXY_ENTRY_PROXY, host.data(),
                               fields == 3 ? static_cast<uint32_t>(port) : kDefaultProxyPort});
                status = ROUTVANE_PROXY;
            } else {
                // A SOCKS entry with a host is reported as unknown too.
                tf << "Unknown proxy requested:  " << token << endtrace;
                skipped(token);
            }
            break;
        default:  // a token of blanks only
            // Other runtimes skip an empty entry too: nothing to report.
            tf << "Unknown proxy requested:  " << token << endtrace;
            break;
        }
    }
    return status;
}
