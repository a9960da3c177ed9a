// Sources this build does not carry yet. Each answers 2 so that the settings
// walk goes on to the next source, as it does when a source fails.
#include "resolver/Routvane.h"
#include "trace/ZelComponent.h"
#include "trace/tracefunc.h"

namespace {

uint32_t NotAvailable(const char *function) {
    ZelComponent component("Routvane");
    tracefunc tf(__LINE__, "Routvane", function);
    tf << function << " is not available in this build" << endtrace;
    return ROUTVANE_FAILED;
}

}  // namespace

uint32_t Routvane::GetProxyFromNetscape(uint32_t, const std::string &, uint32_t) {
    return NotAvailable("GetProxyFromNetscape");
}

uint32_t Routvane::RunAutoProxyURL(uint32_t, const std::string &, uint32_t, const std::string &) {
    return NotAvailable("Routvane::RunAutoProxyURL");
}

uint32_t Routvane::RunAutoDetect(uint32_t, const std::string &, uint32_t) {
    return NotAvailable("Routvane::RunAutoDetect");
}
