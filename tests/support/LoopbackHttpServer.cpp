#include "LoopbackHttpServer.h"

#include <ws2tcpip.h>

#include <algorithm>

namespace {

// A socket listening on 127.0.0.1 at a port the system chose (port), or
// INVALID_SOCKET.
SOCKET LoopbackListener(int backlog, unsigned short &port) {
    SOCKET s = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    if (s == INVALID_SOCKET) return s;
    sockaddr_in address = {AF_INET, 0, {}, {}};  // port 0: the system chooses
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int length = sizeof address;
    if (bind(s, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
        listen(s, backlog) != 0 ||
        getsockname(s, reinterpret_cast<sockaddr *>(&address), &length) != 0) {
        closesocket(s);
        return INVALID_SOCKET;
    }
    port = ntohs(address.sin_port);
    return s;
}

// Sends all of data unless the peer goes; false when it went.
bool SendAll(SOCKET s, const char *data, size_t size) {
    while (size > 0) {
        const int chunk = static_cast<int>(std::min<size_t>(size, 64 * 1024));
        const int sent = send(s, data, chunk, 0);
        if (sent <= 0) return false;
        data += sent;
        size -= static_cast<size_t>(sent);
    }
    return true;
}

}  // namespace

HttpResponse HttpResponse::Text(std::string body, std::string contentType) {
    HttpResponse r;
    r.body = std::move(body);
    r.contentType = std::move(contentType);
    return r;
}

LoopbackHttpServer::LoopbackHttpServer() {
    WSADATA data;
    WSAStartup(MAKEWORD(2, 2), &data);
    stop_ = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    listener_ = LoopbackListener(SOMAXCONN, port_);
    if (listener_ != INVALID_SOCKET) acceptor_ = std::thread([this] { acceptLoop(); });
}

LoopbackHttpServer::~LoopbackHttpServer() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
        // Wakes a connection blocked in recv or send; its handler closes it.
        for (SOCKET s : open_) shutdown(s, SD_BOTH);
    }
    SetEvent(stop_);
    if (listener_ != INVALID_SOCKET) closesocket(listener_);
    if (acceptor_.joinable()) acceptor_.join();
    CloseHandle(stop_);
    WSACleanup();
}

std::string LoopbackHttpServer::url(const std::string &path) const {
    return "http://127.0.0.1:" + std::to_string(port_) + path;
}

void LoopbackHttpServer::serve(const std::string &target, HttpResponse response) {
    std::lock_guard<std::mutex> lock(mutex_);
    routes_[target] = std::move(response);
}

std::vector<std::string> LoopbackHttpServer::requests() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return std::vector<std::string>(requests_.begin(), requests_.end());
}

std::string LoopbackHttpServer::lastRequestHead() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return lastHead_;
}

HttpResponse LoopbackHttpServer::lookup(const std::string &target) const {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto found = routes_.find(target);
    if (found != routes_.end()) return found->second;
    return {404, "Not Found", "text/html", "<html><body><h1>404 Not Found</h1></body></html>"};
}

namespace {
thread_local bool t_serving = false;
}  // namespace

bool LoopbackHttpServer::OnServingThread() { return t_serving; }

void LoopbackHttpServer::acceptLoop() {
    t_serving = true;
    // One connection at a time: a download opens one connection per request
    // and closes it before the next, and a server without worker threads
    // leaves the process's handle count alone.
    for (;;) {
        SOCKET client = accept(listener_, nullptr, nullptr);
        {
            std::lock_guard<std::mutex> lock(mutex_);
            if (stopping_) {
                if (client != INVALID_SOCKET) closesocket(client);
                return;
            }
            if (client != INVALID_SOCKET) open_.push_back(client);
        }
        // A failed accept while the server runs (a connection reset while
        // it queued, a short shortage of sockets) ends only that connection:
        // a loop that stopped here would leave every later client queued
        // for an answer that never comes. Only a closed listener ends it.
        if (client == INVALID_SOCKET) {
            const int error = WSAGetLastError();
            if (error == WSAENOTSOCK || error == WSAEINVAL) return;
            // A shortage that lasts is waited out rather than spun on.
            WaitForSingleObject(stop_, 10);
            continue;
        }
        handle(client);
    }
}

void LoopbackHttpServer::handle(SOCKET client) {
    // A client that connects and sends nothing must not hold up the
    // connections queued behind it.
    const DWORD receiveTimeoutMs = 5000;
    setsockopt(client, SOL_SOCKET, SO_RCVTIMEO, reinterpret_cast<const char *>(&receiveTimeoutMs),
               sizeof receiveTimeoutMs);
    std::string head;
    char buffer[4096];
    while (head.find("\r\n\r\n") == std::string::npos && head.size() < 64 * 1024) {
        const int got = recv(client, buffer, sizeof buffer, 0);
        if (got <= 0) break;
        head.append(buffer, static_cast<size_t>(got));
    }
    // The request target between the first two blanks (npos + 1 is 0: no blank, no target).
    const size_t space = head.find(' '), end = head.find(' ', space + 1);
    const std::string target =
        end == std::string::npos ? std::string() : head.substr(space + 1, end - space - 1);
    if (target.empty()) {
        ++silentConnections_;
    } else {
        std::lock_guard<std::mutex> lock(mutex_);
        requests_.push_back(target);
        if (requests_.size() > kRequestsKept) requests_.pop_front();
        lastHead_ = head;
    }
    const HttpResponse r = lookup(target);
    if (!target.empty() &&
        (r.delayMs == 0 || WaitForSingleObject(stop_, r.delayMs) == WAIT_TIMEOUT)) {
        std::string reply = "HTTP/1.1 " + std::to_string(r.status) + " " + r.reason + "\r\n";
        reply += "Content-Type: " + r.contentType + "\r\n";
        if (r.announcedLength == HttpResponse::kBodySize)
            reply += "Content-Length: " + std::to_string(r.body.size()) + "\r\n";
        else if (r.announcedLength >= 0)
            reply += "Content-Length: " + std::to_string(r.announcedLength) + "\r\n";
        reply += "Connection: close\r\n\r\n";
        const size_t bodyBytes = std::min(r.sendLimit, r.body.size());
        const size_t piece = r.dripMs ? r.dripBytes : SIZE_MAX;  // undripped: all at once
        bool sent = SendAll(client, reply.data(), reply.size());
        for (size_t i = 0; sent && i < bodyBytes; i += piece)
            sent = WaitForSingleObject(stop_, r.dripMs) == WAIT_TIMEOUT &&
                   SendAll(client, r.body.data() + i, std::min(piece, bodyBytes - i));
        if (sent && r.holdMs > 0) WaitForSingleObject(stop_, r.holdMs);
    }
    shutdown(client, SD_SEND);
    {
        std::lock_guard<std::mutex> lock(mutex_);
        open_.erase(std::remove(open_.begin(), open_.end(), client), open_.end());
    }
    closesocket(client);
}

unsigned short UnusedLoopbackPort() {
    WSADATA data;
    WSAStartup(MAKEWORD(2, 2), &data);
    unsigned short port = 0;
    const SOCKET s = LoopbackListener(1, port);
    if (s != INVALID_SOCKET) closesocket(s);
    WSACleanup();
    return port;
}
