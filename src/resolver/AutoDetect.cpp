// Automatic discovery of the PAC script: the DHCP server's auto-proxy URL
// first, then the well-known wpad host names of the machine's DNS domain,
// walking up one label at a time.
#include <winsock2.h>

#include <algorithm>
#include <string>

#include "dhcp/dhcp.h"
#include "resolver/Routvane.h"
#include "trace/ZelComponent.h"
#include "trace/tracefunc.h"

namespace {

const uint32_t kDefaultDhcpTimeoutSeconds = 2;

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
    char name[128] = {};
    if (gethostname(name, sizeof name) != 0) {
        tf << "gethostname failed:  " << WSAGetLastError() << endtrace;
        return status;
    }
    name[sizeof name - 1] = 0;
    const hostent *entry = gethostbyname(name);
    if (!entry || !entry->h_name) {
        tf << "gethostbyname(" << name << ") failed:  " << WSAGetLastError() << endtrace;
        return status;
    }
    const std::string official = entry->h_name;
    const std::string::size_type dot = official.find('.');
    if (dot == std::string::npos) {
        tf << official << " is not fully qualified" << endtrace;
        return status;
    }
    // The last name tried has two labels: a top-level domain alone is never
    // asked for.
    std::string suffix = official.substr(dot);
    while (std::count(suffix.begin(), suffix.end(), '.') >= 2) {
        const std::string candidate = "http://wpad" + suffix + "/wpad.dat";
        tf << "Trying WPAD well-known URL " << candidate << endtrace;
        status = RunAutoProxyURL(options, target, port, candidate);
        if (status == ROUTVANE_PROXY || status == ROUTVANE_DIRECT) break;
        suffix = suffix.substr(suffix.find('.', 1));
    }
    return status;
}
