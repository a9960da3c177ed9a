// The DHCPINFORM exchange: one broadcast from port 68 to port 67, a second
// one if the first goes unanswered, and the auto-proxy URL (option 252) of
// the first reply that carries the request's transaction id.
#include <winsock2.h>

#include <cstring>
#include <vector>

#include "dhcp/dhcp.h"
#include "trace/tracefunc.h"

namespace {

const int kMaxSends = 2;

// Waits the full time-out for a datagram; false when the time-out (traced)
// or select ends the wait.
bool AwaitDatagram(tracefunc &tf, const fd_set &prepared, const timeval &timeout) {
    fd_set readable = prepared;
    timeval wait = timeout;
    const int ready = select(0, &readable, nullptr, nullptr, &wait);
    if (ready == SOCKET_ERROR) return false;
    if (ready == 0) {
        tf << "Timeout while waiting for DHCP response" << endtrace;
        return false;
    }
    return true;
}

// Takes the auto-proxy URL from a reply to the request (true); false, with
// the reason traced, when the reply is not related or has no URL.
bool TakeUrl(tracefunc &tf, const DHCPPacket &request, const DHCPPacket &reply,
             const sockaddr_in &from, std::string &url, uint32_t *server) {
    // Only the transaction id relates a reply to the request: not op,
    // chaddr, message type or sender.
    if (reply.xid != request.xid) {
        tf << "received a non-related DHCP packet...waiting again" << endtrace;
        return false;
    }
    tf << "received a related DHCP packet from " << static_cast<unsigned>(from.sin_addr.s_addr)
       << endtrace;
    std::string value;
    if (!reply.GetStringOption(DHCP_OPTION_AUTO_PROXY, value)) {
        tf << "it doesn't contain a URL option...waiting again" << endtrace;
        return false;
    }
    tf << "it contains a URL option...done" << endtrace;
    url = value;
    if (server) *server = from.sin_addr.s_addr;
    return true;
}

// Waits after one send until a related reply with option 252 arrives (true),
// or the time-out, select or recvfrom ends the wait (false).
bool AwaitReply(tracefunc &tf, const SocketOwner &sock, const DHCPPacket &request,
                unsigned timeoutSeconds, std::vector<unsigned char> &received, std::string &url,
                uint32_t *server) {
    // Prepared once per send. The reply packet is not cleared again before
    // each wait: option bytes of an earlier reply beyond the end of a
    // shorter later one stay where they are.
    DHCPPacket reply;
    sockaddr_in from;
    std::memset(&from, 0, sizeof from);
    fd_set prepared;
    FD_ZERO(&prepared);
    FD_SET(sock.get(), &prepared);
    const timeval timeout = {static_cast<long>(timeoutSeconds), 0};
    // Every wait gets the full time-out, so unrelated traffic prolongs the
    // exchange.
    while (AwaitDatagram(tf, prepared, timeout)) {
        int fromLength = sizeof from;
        const int length =
            recvfrom(sock.get(), reinterpret_cast<char *>(received.data()),
                     static_cast<int>(received.size()), 0, reinterpret_cast<sockaddr *>(&from),
                     &fromLength);
        if (length == SOCKET_ERROR) {
            tf << "recvfrom failed:  " << static_cast<unsigned>(WSAGetLastError()) << endtrace;
            return false;
        }
        // A short datagram is judged by whatever fields it filled.
        reply.SetBuffer(received.data(), length);
        if (TakeUrl(tf, request, reply, from, url, server)) return true;
    }
    return false;
}

// A UDP socket that may send broadcasts; empty, with the failure traced,
// when none can be had.
SocketOwner OpenBroadcastSocket(tracefunc &tf) {
    SocketOwner sock(socket(AF_INET, 0, IPPROTO_UDP));
    if (!sock) {
        tf << "socket failed:  " << static_cast<unsigned>(WSAGetLastError()) << endtrace;
        return sock;
    }
    const BOOL broadcast = TRUE;
    if (setsockopt(sock.get(), SOL_SOCKET, SO_BROADCAST,
                   reinterpret_cast<const char *>(&broadcast), sizeof broadcast) != 0) {
        tf << "setsockopt failed:  " << static_cast<unsigned>(WSAGetLastError()) << endtrace;
        sock.reset();
    }
    return sock;
}

// An IPv4 socket address from an address and a port in host order.
sockaddr_in Ipv4Address(uint32_t address, u_short port) {
    sockaddr_in result;
    std::memset(&result, 0, sizeof result);
    result.sin_family = AF_INET;
    result.sin_port = htons(port);
    result.sin_addr.s_addr = htonl(address);
    return result;
}

// Broadcasts the request up to kMaxSends times, each followed by the wait
// for a reply that carries the URL.
bool SendUntilAnswered(tracefunc &tf, const SocketOwner &sock, const DHCPPacket &request,
                       unsigned timeoutSeconds, std::string &url, uint32_t *server) {
    const sockaddr_in to = Ipv4Address(INADDR_BROADCAST, DHCP_SERVER_PORT);
    std::string wire;
    request.GetBuffer(wire);
    // One buffer for every reply of the exchange, as AwaitReply expects.
    std::vector<unsigned char> received(DHCP_RECEIVE_SIZE);
    for (int sends = 0; sends < kMaxSends; ++sends) {
        if (sendto(sock.get(), wire.data(), static_cast<int>(wire.size()), 0,
                   reinterpret_cast<const sockaddr *>(&to), sizeof to) == SOCKET_ERROR) {
            // A send that fails once would fail again: no retry.
            tf << "sendto failed:  " << static_cast<unsigned>(WSAGetLastError()) << endtrace;
            return false;
        }
        if (AwaitReply(tf, sock, request, timeoutSeconds, received, url, server)) return true;
    }
    return false;
}

// Socket, request and the two sends; the socket is closed on every return.
bool Exchange(tracefunc &tf, bool force, const std::string &destination, std::string &url,
              unsigned timeoutSeconds, uint32_t *server) {
    const SocketOwner sock = OpenBroadcastSocket(tf);
    if (!sock) return false;
    DHCPPacket request;
    if (!request.CreateInformPacket(force, destination)) {
        tf << "CreateInformPacket failed" << endtrace;
        return false;
    }
    // The reply comes to the client's own address (ciaddr), so the socket
    // listens there and nowhere else.
    const sockaddr_in local = Ipv4Address(request.ciaddr, DHCP_CLIENT_PORT);
    if (bind(sock.get(), reinterpret_cast<const sockaddr *>(&local), sizeof local) != 0) {
        tf << "bind failed:  " << static_cast<unsigned>(WSAGetLastError()) << endtrace;
        return false;
    }
    return SendUntilAnswered(tf, sock, request, timeoutSeconds, url, server);
}

}  // namespace

bool DiscoverProxyUrlViaDHCP(bool force, std::string destination, std::string &url,
                             unsigned timeoutSeconds, uint32_t *server) {
    tracefunc tf(__LINE__, "dhcp", "DiscoverProxyUrlViaDHCP");
    WinsockSession winsock;
    if (!winsock.started()) {
        tf << "Unable to startup winsock:  " << WSAGetLastError() << endtrace;
        return false;
    }
    std::string found;
    if (Exchange(tf, force, destination, found, timeoutSeconds, server)) {
        url = found;
        tf << "Found proxy URL:  " << url << endtrace;
        return true;
    }
    tf << "Did not find proxy URL" << endtrace;
    return false;
}
