#pragma once
// A real HTTP/1.1 server on 127.0.0.1 for tests: an ephemeral port, a thread per connection (at
// most Options::maxConnections at once), keep-alive, request bodies by Content-Length or chunked,
// and replies made by route handlers. Requests are read and replies written by Boost.Beast. A reply may come in pieces with pauses between them, after a
// pause, or not at all (the connection closes). Every request received is recorded.
//
// start() returns once the port listens; stop() (and the destructor) closes every connection,
// cuts short any pause and joins every thread. Routes are set before start().
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace qlm_test {

struct HttpRequest {
    std::string method;
    std::string target;  // as on the request line
    std::string path;    // the target up to '?'
    std::string query;   // after '?'; empty when none
    std::string version;
    std::vector<std::pair<std::string, std::string>> headers;  // in arrival order
    std::string body;                                          // de-chunked
    bool chunked = false;                                      // the body came chunked

    // The first field of that name, compared without regard to case.
    std::optional<std::string> header(std::string_view name) const;
};

struct HttpResponse {
    int status = 200;
    std::string reason;  // empty: the usual phrase for the status
    std::vector<std::pair<std::string, std::string>> headers;
    // Body pieces, each written (and flushed) on its own. Several pieces go out chunked unless a
    // handler sets Content-Length or Transfer-Encoding itself; one goes with a Content-Length.
    std::vector<std::string> chunks;
    std::chrono::milliseconds delayBeforeReply{0};
    std::chrono::milliseconds delayBetweenChunks{0};
    // Called on the connection's thread before each piece after the first (after the delay), so a
    // test can pace the reply on its own conditions. It must return in bounded time.
    std::function<void(std::size_t piece)> beforeChunk;
    bool closeWithoutReply = false;
    // As closeWithoutReply, but the connection is reset (RST) rather than closed.
    bool resetWithoutReply = false;
    // The body is `chunks` this many times over, for bodies too large to hold.
    std::size_t repeat = 1;

    static HttpResponse text(int status, std::string body, std::string contentType = "text/plain");
    HttpResponse& withHeader(std::string name, std::string value);
};

using HttpHandler = std::function<HttpResponse(const HttpRequest&)>;

class LoopbackHttpServer {
public:
    struct Options {
        std::size_t maxConnections = 32;
        std::chrono::milliseconds keepAliveIdle{2000};  // an idle connection closes after this
        uint16_t port = 0;                              // 0: an ephemeral one
        bool resetOnAccept = false;                     // every connection is reset before its request
    };

    LoopbackHttpServer();
    explicit LoopbackHttpServer(Options options);
    ~LoopbackHttpServer();
    LoopbackHttpServer(const LoopbackHttpServer&) = delete;
    LoopbackHttpServer& operator=(const LoopbackHttpServer&) = delete;

    // `method` "*" matches any method; paths match exactly (without the query). Unrouted requests
    // get 404.
    void route(std::string method, std::string path, HttpHandler handler);

    bool start();
    void stop();

    uint16_t port() const { return port_; }
    // "http://127.0.0.1:<port>" followed by `pathAndQuery`.
    std::string url(std::string_view pathAndQuery = "/") const;

    std::vector<HttpRequest> requests() const;
    std::size_t requestCount() const;
    // Waits until at least `count` requests have arrived; false when `timeout` passed first.
    bool waitForRequests(std::size_t count,
                         std::chrono::milliseconds timeout = std::chrono::milliseconds(5000)) const;

private:
    struct Connection;  // a socket and the thread serving it
    struct Listener;    // the listening socket

    void acceptLoop();
    void serve(Connection* connection);
    // Sleeps for `delay` unless stop() comes first; false when stopping.
    bool pause(std::chrono::milliseconds delay);
    HttpResponse dispatch(const HttpRequest& request);
    void reapFinished();

    const Options options_;
    std::unique_ptr<Listener> listener_;  // set by start() before the accept thread runs; reset by stop() after
    int wakeFd_ = -1;                     // eventfd, readable once stopping
    uint16_t port_ = 0;  // set by start()
    std::thread acceptThread_;

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::map<std::pair<std::string, std::string>, HttpHandler> routes_;  // guarded by mutex_
    std::vector<HttpRequest> received_;                                  // guarded by mutex_
    std::list<std::unique_ptr<Connection>> connections_;                 // guarded by mutex_
    bool stopping_ = false;                                              // guarded by mutex_
    bool started_ = false;                                               // guarded by mutex_
};

}  // namespace qlm_test
