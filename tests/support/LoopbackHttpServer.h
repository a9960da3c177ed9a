// An HTTP server on 127.0.0.1 inside the test program, on a port the system
// chooses, serving fixed answers per path: scripts, settings files, error
// pages, and the misbehaviours a download must survive (late answers, early
// closes, bodies longer or shorter than announced, stalls). Every
// connection gets one answer and is closed; connections are served one at a
// time on one thread. Stopped and joined when it goes. Its memory stays flat
// however many requests a long run sends.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <cstddef>
#include <atomic>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

struct HttpResponse {
    int status = 200;
    std::string reason = "OK";
    std::string contentType = "application/x-ns-proxy-autoconfig";
    std::string body;
    // The Content-Length sent: the body's size unless set; kNoLength sends
    // none, so the body ends where the connection closes.
    static constexpr int64_t kBodySize = -1;
    static constexpr int64_t kNoLength = -2;
    int64_t announcedLength = kBodySize;
    // Milliseconds the server waits before it answers at all.
    DWORD delayMs = 0;
    // Bytes of the body sent before the server stops sending; the rest is
    // never sent.
    size_t sendLimit = SIZE_MAX;
    // Milliseconds the connection is held open, silent, after the last byte
    // sent (the stop of the server ends the wait early).
    DWORD holdMs = 0;
    // Milliseconds before each piece of dripBytes bytes of the body; 0
    // sends it at once.
    DWORD dripMs = 0;
    size_t dripBytes = 1;

    static HttpResponse Text(std::string body,
                             std::string contentType = "application/x-ns-proxy-autoconfig");
    // The misbehaviours, one setter each, to be chained on a Text answer.
    HttpResponse withStatus(int s) const { return with([&](HttpResponse &r) { r.status = s; }); }
    HttpResponse announcing(int64_t n) const {
        return with([&](HttpResponse &r) { r.announcedLength = n; });
    }
    HttpResponse delayedBy(DWORD ms) const { return with([&](HttpResponse &r) { r.delayMs = ms; }); }
    HttpResponse stoppingAfter(size_t bytes, DWORD holdFor) const {
        return with([&](HttpResponse &r) { r.sendLimit = bytes, r.holdMs = holdFor; });
    }
    HttpResponse dripping(DWORD ms, size_t bytes = 1) const {
        return with([&](HttpResponse &r) { r.dripMs = ms, r.dripBytes = bytes; });
    }

private:
    template <typename F>
    HttpResponse with(F change) const {
        HttpResponse r = *this;
        change(r);
        return r;
    }
};

class LoopbackHttpServer {
public:
    LoopbackHttpServer();
    ~LoopbackHttpServer();
    LoopbackHttpServer(const LoopbackHttpServer &) = delete;
    LoopbackHttpServer &operator=(const LoopbackHttpServer &) = delete;

    // "http://127.0.0.1:<port>" followed by the path.
    std::string url(const std::string &path) const;

    // The answer for a request target (path and query as sent); other
    // targets get a 404 page.
    void serve(const std::string &target, HttpResponse response);
    // The request targets received, in order of arrival: the latest
    // kRequestsKept of them, so that a run of many thousand downloads does not
    // grow the process it measures.
    static constexpr size_t kRequestsKept = 1024;
    std::vector<std::string> requests() const;
    // Request headers of the last request, as sent.
    std::string lastRequestHead() const;
    // Connections that closed or fell silent before a request line came.
    int silentConnections() const { return silentConnections_; }
    // Whether the calling thread is one that serves connections: a test
    // counting the allocations of the code under test leaves these out.
    static bool OnServingThread();

private:
    void acceptLoop();
    void handle(SOCKET client);
    HttpResponse lookup(const std::string &target) const;

    SOCKET listener_ = INVALID_SOCKET;
    unsigned short port_ = 0;
    HANDLE stop_ = nullptr;  // manual-reset: set when the server goes
    mutable std::mutex mutex_;
    std::map<std::string, HttpResponse> routes_;
    std::deque<std::string> requests_;
    std::string lastHead_;
    std::vector<SOCKET> open_;
    std::thread acceptor_;
    bool stopping_ = false;
    std::atomic<int> silentConnections_{0};
};

// A port on 127.0.0.1 that was free a moment ago: nothing listens there, so
// a connection attempt is refused at once.
unsigned short UnusedLoopbackPort();
