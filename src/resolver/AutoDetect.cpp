// Automatic discovery of the PAC script: the DHCP server's auto-proxy URL
// first, then the well-known wpad host names of the machine's DNS domain,
// walking up one label at a time.
#include <winsock2.h>

#include <algorithm>
#include <string>
#include <vector>

#include "dhcp/dhcp.h"
#include "resolver/Routvane.h"
#include "trace/ZelComponent.h"
#include "trace/tracefunc.h"

namespace {

const uint32_t kDefaultDhcpTimeoutSeconds = 2;

// The machine's fully qualified name, looked up from its host name; empty
// (and traced) when that fails or the name has no domain.
std::string FullyQualifiedHostName(tracefunc &tf) {
    char name[128] = {};
    if (gethostname(name, sizeof name) != 0) {
        tf << "gethostname failed:  " << WSAGetLastError() << endtrace;
        return std::string();
    }
    name[sizeof name - 1] = 0;
    const hostent *entry = gethostbyname(name);
    if (!entry || !entry->h_name) {
        tf << "gethostbyname(" << name << ") failed:  " << WSAGetLastError() << endtrace;
        return std::string();
    }
    const std::string official = entry->h_name;
    if (official.find('.') == std::string::npos) {
        tf << official << " is not fully qualified" << endtrace;
        return std::string();
    }
    return official;
}

// The well-known URLs of a fully qualified name, one label up at a time.
// The last has two labels: a top-level domain alone is never asked for.
std::vector<std::string> WpadUrls(const std::string &official) {
    std::vector<std::string> urls;
    std::string suffix = official.substr(official.find('.'));
    while (std::count(suffix.begin(), suffix.end(), '.') >= 2) {
        urls.push_back("http://wpad" + suffix + "/wpad.dat");
        suffix = suffix.substr(suffix.find('.', 1));
    }
    return urls;
}

}  // namespace

uint32_t Routvane::RunAutoDetect(uint32_t options, const std::string &target, uint32_t port) {
    ZelComponent component("Routvane");
    tracefunc tf(__LINE__, "Routvane", "Routvane::RunAutoDetect");
    tf << target << ":" << static_cast<int>(port) << endtrace;
    uint32_t status = ROUTVANE_FAILED;

    const uint32_t timeout = ReadRegistryDword("DHCPTimeout", kDefaultDhcpTimeoutSeconds);
    tf << "Using DHCP timeout: " << static_cast<int>(timeout) << " secs" << endtrace;

    bool fromDhcp = false;
    std::string url;
    if (!(options & ROUTVANE_SKIP_DHCP)) {
        uint32_t server = 0;
        fromDhcp = DiscoverProxyUrlViaDHCP((options & ROUTVANE_FORCE_DHCP) != 0, target, url,
                                           timeout, &server);
    }
    if (fromDhcp) {
        tf << "DiscoverProxyUrlViaDHCP returned true" << endtrace;
        status = RunAutoProxyURL(options, target, port, url);
        if (status != ROUTVANE_FAILED) return status;
    } else {
        // Traced when the DHCP stage is skipped as well, so that the trace
        // always shows how DHCP went.
        tf << "DiscoverProxyUrlViaDHCP returned false" << endtrace;
    }

    if (options & ROUTVANE_SKIP_DNS) return ROUTVANE_DIRECT;

    WinsockSession winsock;
    const std::string official = FullyQualifiedHostName(tf);
    if (official.empty()) return status;
    for (const std::string &candidate : WpadUrls(official)) {
        tf << "Trying WPAD well-known URL " << candidate << endtrace;
        status = RunAutoProxyURL(options, target, port, candidate);
        if (status == ROUTVANE_PROXY || status == ROUTVANE_DIRECT) break;
    }
    return status;
}
