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

// What became of one entry of the answer.
enum class EntryRead {
    kAppended,
    kSkipped,  // a keyword the resolver does not take (traced)
    kBlank,    // blanks only: other runtimes skip it too (traced)
};

// One entry of the answer appended to the list when the resolver takes it.
EntryRead AppendEntry(const char *token, std::vector<ProxyEntry> &proxies, tracefunc &tf) {
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
        return EntryRead::kAppended;
    case 1:
        if (_stricmp(keyword.data(), "direct") == 0) {
            proxies.push_back(ProxyEntry{PROXY_ENTRY_DIRECT, std::string(), 0});
            return EntryRead::kAppended;
        }
        if (_stricmp(keyword.data(), "socks") == 0)
            tf << "SOCKS proxy requested; we don't support SOCKS:  " << token << endtrace;
        else
            tf << "Unknown proxy requested:  " << token << endtrace;
        return EntryRead::kSkipped;
    case 2:
    case 3:
        if (_stricmp(keyword.data(), "proxy") == 0) {
            proxies.push_back(ProxyEntry{PROXY_ENTRY_PROXY, host.data(),
                                         fields == 3 ? static_cast<uint32_t>(port)
                                                     : kDefaultProxyPort});
            return EntryRead::kAppended;
        }
        // A SOCKS entry with a host is reported as unknown too.
        tf << "Unknown proxy requested:  " << token << endtrace;
        return EntryRead::kSkipped;
    default:  // a token of blanks only
        tf << "Unknown proxy requested:  " << token << endtrace;
        return EntryRead::kBlank;
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
        switch (AppendEntry(token, proxies_, tf)) {
        case EntryRead::kAppended: status = ROUTVANE_PROXY; break;
        case EntryRead::kSkipped: skipped(token); break;
        case EntryRead::kBlank: break;
        }
    }
    return status;
}
