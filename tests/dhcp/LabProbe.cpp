// The lab's diagnostic program: runs WPAD discovery as the library does it
// and prints what was found and the trace lines that show the way.
//
//   dhcp_lab_probe dhcp <destination> <timeout>   DiscoverProxyUrlViaDHCP
//   dhcp_lab_probe detect <flags> <host>          Routvane::RunAutoDetect
//   dhcp_lab_probe host                           the host name as Winsock sees it
//
// Only for the lab namespaces: it broadcasts and looks up wpad names.
#include <winsock2.h>
#include <windows.h>
#include <objbase.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "TestSupport.h"
#include "dhcp/dhcp.h"
#include "resolver/Routvane.h"
#include "trace/ZelTraceManager.h"

namespace {

void PrintTrace(const ScopedTrace &trace) {
    for (const std::string &line : trace.lines()) {
        const std::string text = LineText(line);
        // Entry and exit lines say nothing about the way taken.
        if (text.find("):  Entered") != std::string::npos ||
            text.find("): Exited") != std::string::npos)
            continue;
        const std::string::size_type tail = text.rfind(" (tid=");
        std::printf("  trace: %s\n", text.substr(0, tail).c_str());
    }
}

int Usage() {
    std::fprintf(stderr, "usage: dhcp_lab_probe dhcp DEST TIMEOUT | detect FLAGS HOST | host\n");
    return 2;
}

}  // namespace

int main(int argc, char **argv) {
    // Only the lab sets this: anywhere else the broadcast could leave the
    // machine.
    if (!std::getenv("ROUTVANE_LAB_DIR")) {
        std::fprintf(stderr, "dhcp_lab_probe runs in the lab only (lab/demo.sh)\n");
        return 2;
    }
    if (argc < 2) return Usage();
    const std::string command = argv[1];
    ZelTraceStartup();
    // The PAC script engine runs on the caller's thread, in its apartment.
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    int rc = 0;
    {
        TempDir dir;
        ScopedTrace trace(dir.file("probe.log"));
        if (command == "dhcp" && argc == 4) {
            std::string url;
            uint32_t server = 0;
            const DWORD start = GetTickCount();
            const bool found =
                DiscoverProxyUrlViaDHCP(false, argv[2], url, std::strtoul(argv[3], nullptr, 10),
                                        &server);
            const DWORD elapsed = GetTickCount() - start;
            in_addr address;
            address.s_addr = server;
            std::printf("DiscoverProxyUrlViaDHCP: %s url=\"%s\" server=%s after %lu ms\n",
                        found ? "true" : "false", url.c_str(),
                        found ? inet_ntoa(address) : "-", static_cast<unsigned long>(elapsed));
            rc = found ? 0 : 1;
        } else if (command == "detect" && argc == 4) {
            Routvane *resolver = new Routvane;
            resolver->AddRef();
            const DWORD start = GetTickCount();
            const uint32_t status =
                resolver->RunAutoDetect(std::strtoul(argv[2], nullptr, 0), argv[3], 80);
            const DWORD elapsed = GetTickCount() - start;
            std::printf("RunAutoDetect: status %u after %lu ms\n", status,
                        static_cast<unsigned long>(elapsed));
            resolver->Release();
        } else if (command == "host") {
            WinsockSession winsock;
            char name[256] = {};
            gethostname(name, sizeof name);
            const hostent *entry = gethostbyname(name);
            std::printf("gethostname: %s; official name: %s\n", name,
                        entry && entry->h_name ? entry->h_name : "(none)");
        } else {
            rc = Usage();
        }
        PrintTrace(trace);
    }
    CoUninitialize();
    ZelTraceShutdown();
    return rc;
}
