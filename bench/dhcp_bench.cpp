// DHCP discovery timing, in the lab only (lab/bench.sh): it broadcasts.
//
//   dhcp_labbench respond SERVER   with a responding server: the median time of
//       DiscoverProxyUrlViaDHCP against its platform floor, interleaved in
//       one run: the IP Helper, NetBIOS and service-manager calls of
//       interface selection made directly (bench/PlatformFloor.h, which
//       must make the same calls as the library, counted), then a bare
//       socket exchange of the same packet with the same server (socket,
//       bind, send, reply, close). Target: at most 1.15 times.
//   dhcp_labbench silent SERVER    with no server: DiscoverProxyUrlViaDHCP at
//       the default time-out, and the whole of Routvane::RunAutoDetect with
//       the DNS stage off. Target: two full time-outs, 4.0 s within 5 %.
//
// Prints its figures and exits non-zero when a target is missed.
#include <winsock2.h>
#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "PlatformFloor.h"
#include "dhcp/dhcp.h"
#include "resolver/Routvane.h"
#include "trace/ZelTraceManager.h"
#include "dhcp/NetworkFacts.h"

namespace {

// One exchange of the library's own INFORM with nothing else around it:
// the yardstick. Returns the seconds taken, or a negative number.
double BareExchange(const std::string &wire, uint32_t ciaddr, uint32_t xid) {
    const double start = NowSeconds();
    SocketOwner sock(socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP));
    const BOOL on = TRUE;
    setsockopt(sock.get(), SOL_SOCKET, SO_BROADCAST, reinterpret_cast<const char *>(&on),
               sizeof on);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(DHCP_CLIENT_PORT);
    local.sin_addr.s_addr = htonl(ciaddr);
    if (bind(sock.get(), reinterpret_cast<sockaddr *>(&local), sizeof local) != 0) return -1;
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(DHCP_SERVER_PORT);
    to.sin_addr.s_addr = INADDR_BROADCAST;
    if (sendto(sock.get(), wire.data(), static_cast<int>(wire.size()), 0,
               reinterpret_cast<sockaddr *>(&to), sizeof to) == SOCKET_ERROR)
        return -1;
    std::vector<char> buffer(DHCP_RECEIVE_SIZE);
    for (int packets = 0; packets < 16; ++packets) {
        fd_set readable;
        FD_ZERO(&readable);
        FD_SET(sock.get(), &readable);
        timeval wait = {2, 0};
        if (select(0, &readable, nullptr, nullptr, &wait) != 1) return -1;
        const int n = recv(sock.get(), buffer.data(), static_cast<int>(buffer.size()), 0);
        if (n >= 8) {
            uint32_t got = 0;
            std::memcpy(&got, buffer.data() + 4, 4);
            if (ntohl(got) == xid) {
                sock.reset();
                return NowSeconds() - start;
            }
        }
    }
    return -1;
}

// Platform calls of interface selection, by kind, while a CountedPlatform
// is in scope.
enum CallKind { kIpHelper, kNetbios, kServiceManager, kCallKinds };
long long platformCalls[kCallKinds];

class CountedPlatform {
public:
    CountedPlatform() {
        for (long long &n : platformCalls) n = 0;
        scope_->GetIpAddrTable = [](MIB_IPADDRTABLE *t, ULONG *s, BOOL o) {
            ++platformCalls[kIpHelper];
            return RealNetworkFacts().GetIpAddrTable(t, s, o);
        };
        scope_->GetBestRoute = [](DWORD d, DWORD s, MIB_IPFORWARDROW *r) {
            ++platformCalls[kIpHelper];
            return RealNetworkFacts().GetBestRoute(d, s, r);
        };
        scope_->GetIfEntry = [](MIB_IFROW *r) {
            ++platformCalls[kIpHelper];
            return RealNetworkFacts().GetIfEntry(r);
        };
        scope_->GetAdaptersInfo = [](IP_ADAPTER_INFO *i, ULONG *s) {
            ++platformCalls[kIpHelper];
            return RealNetworkFacts().GetAdaptersInfo(i, s);
        };
        scope_->Netbios = [](NCB *n) {
            ++platformCalls[kNetbios];
            return RealNetworkFacts().Netbios(n);
        };
        scope_->GetVersionExA = [](OSVERSIONINFOA *v) {
            ++platformCalls[kServiceManager];
            return RealNetworkFacts().GetVersionExA(v);
        };
        scope_->OpenSCManagerA = [](const char *m, const char *d, DWORD a) {
            ++platformCalls[kServiceManager];
            return RealNetworkFacts().OpenSCManagerA(m, d, a);
        };
        scope_->EnumServicesStatusA = [](SC_HANDLE m, DWORD t, DWORD s, ENUM_SERVICE_STATUSA *e,
                                         DWORD n, DWORD *need, DWORD *ret, DWORD *res) {
            ++platformCalls[kServiceManager];
            return RealNetworkFacts().EnumServicesStatusA(m, t, s, e, n, need, ret, res);
        };
        scope_->closeServiceManager = [](SC_HANDLE h) {
            ++platformCalls[kServiceManager];
            return RealNetworkFacts().closeServiceManager(h);
        };
    }

private:
    ScopedNetworkFacts scope_;
};

// Whether the floor's interface selection makes the library's platform
// calls, kind by kind; prints both.
bool SameSelectionCalls(uint32_t destination) {
    long long library[kCallKinds], floor[kCallKinds];
    {
        CountedPlatform counted;
        DHCPPacket probe;
        GetNetworkInfo(probe, false, destination);
        std::copy(platformCalls, platformCalls + kCallKinds, library);
    }
    {
        CountedPlatform counted;
        platform_floor::SelectInterface(destination);
        std::copy(platformCalls, platformCalls + kCallKinds, floor);
    }
    std::printf("  interface selection's calls, library / floor: IP Helper %lld / %lld, "
                "NetBIOS %lld / %lld, service manager %lld / %lld\n",
                library[kIpHelper], floor[kIpHelper], library[kNetbios], floor[kNetbios],
                library[kServiceManager], floor[kServiceManager]);
    return std::equal(library, library + kCallKinds, floor);
}

int Respond(const std::string &server) {
    WinsockSession winsock;
    DHCPPacket request;
    if (!request.CreateInformPacket(false, server)) {
        std::printf("CreateInformPacket failed\n");
        return 1;
    }
    std::string wire;
    request.GetBuffer(wire);

    const uint32_t destination = inet_addr(server.c_str());
    Targets targets;
    targets.Check("floor calls differing from the library's", SameSelectionCalls(destination) ? 0 : 1,
                  0);

    const int rounds = 101;
    std::vector<double> bare, floor, library, selection;
    for (int i = -3; i < rounds; ++i) {  // three rounds of warm-up
        // Which goes first alternates, so that neither always finds the
        // platform's caches warmed by the other.
        bool selected = false, found = false;
        double b = -1, f = 0, d = 0;
        for (int turn = 0; turn < 2; ++turn) {
            if ((turn == 0) == (i % 2 == 0)) {
                const double f0 = NowSeconds();
                selected = platform_floor::SelectInterface(destination);
                b = BareExchange(wire, request.ciaddr, request.xid);
                f = NowSeconds() - f0;
            } else {
                std::string url;
                const double start = NowSeconds();
                found = DiscoverProxyUrlViaDHCP(false, server, url, 2);
                d = NowSeconds() - start;
            }
        }
        if (b < 0 || !found || !selected) {
            std::printf("exchange failed in round %d (floor %s, library %s)\n", i,
                        b < 0 || !selected ? "failed" : "ok", found ? "ok" : "failed");
            return 1;
        }
        // The library's interface selection alone, for the breakdown.
        DHCPPacket probe;
        const double s0 = NowSeconds();
        GetNetworkInfo(probe, false, destination);
        const double s = NowSeconds() - s0;
        if (i < 0) continue;
        bare.push_back(b);
        floor.push_back(f);
        library.push_back(d);
        selection.push_back(s);
    }
    const double mf = Median(floor), ml = Median(library);
    std::printf("responding server, %d rounds:\n", rounds);
    std::printf("  DiscoverProxyUrlViaDHCP           median %8.3f ms (min %.3f)\n", ml * 1e3,
                *std::min_element(library.begin(), library.end()) * 1e3);
    std::printf("    of which interface selection    median %8.3f ms\n", Median(selection) * 1e3);
    std::printf("  platform floor                    median %8.3f ms (min %.3f)\n", mf * 1e3,
                *std::min_element(floor.begin(), floor.end()) * 1e3);
    std::printf("    of which bare socket exchange   median %8.3f ms\n", Median(bare) * 1e3);
    targets.Check("DiscoverProxyUrlViaDHCP / platform floor", ml / mf, 1.15);
    return targets.ExitCode();
}

int Silent(const std::string &server) {
    // The default time-out, as automatic discovery reads it.
    const uint32_t timeout = ReadRegistryDword("DHCPTimeout", 2);
    std::string url;
    double start = NowSeconds();
    const bool found = DiscoverProxyUrlViaDHCP(false, server, url, timeout);
    const double discover = NowSeconds() - start;

    const auto resolver = ComPtr<Routvane>::Share(new Routvane);
    start = NowSeconds();
    const uint32_t status = resolver->RunAutoDetect(ROUTVANE_SKIP_DNS, server, 80);
    const double detect = NowSeconds() - start;

    const auto within = [](double s) { return s >= 3.8 && s <= 4.2; };
    std::printf("silent server, DHCP time-out %u s:\n", timeout);
    std::printf("  DiscoverProxyUrlViaDHCP   %.3f s, %s (target 4.0 s +- 5%%): %s\n", discover,
                found ? "found" : "not found", within(discover) ? "met" : "MISSED");
    std::printf("  RunAutoDetect (no DNS)    %.3f s, status %u (target 4.0 s +- 5%%): %s\n",
                detect, status, within(detect) ? "met" : "MISSED");
    return !found && status == ROUTVANE_DIRECT && within(discover) && within(detect) ? 0 : 1;
}

}  // namespace

int main(int argc, char **argv) {
    // Only the lab sets this: anywhere else the broadcast could leave the
    // machine.
    if (!std::getenv("ROUTVANE_LAB_DIR")) {
        std::fprintf(stderr, "dhcp_labbench runs in the lab only (lab/bench.sh)\n");
        return 2;
    }
    if (argc != 3) {
        std::fprintf(stderr, "usage: dhcp_labbench respond|silent SERVER\n");
        return 2;
    }
    ZelTraceStartup();
    const std::string mode = argv[1];
    const int rc = mode == "respond" ? Respond(argv[2]) : mode == "silent" ? Silent(argv[2]) : 2;
    ZelTraceShutdown();
    return rc;
}
