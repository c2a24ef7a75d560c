#pragma once
// The server's HTTP/1.1 on IPv4, on Boost.Beast: at most maxConnections at once (the rest wait in
// the listen backlog) and maxConnectionsPerClient from one address, Content-Length bodies only
// (chunked uploads get 411), keep-alive (but the connection closes after any 400), a total deadline
// for each head and each body, and one handler for every request (usually Router::dispatch).
//
// start() and stop() are called by the owner on one thread; port() and activeConnections() from
// any. The handler runs on the server's threads, concurrently, and must be thread-safe; whatever it
// throws becomes a 500 reply.
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "server/http/HttpRequest.h"
#include "server/http/HttpResponse.h"
#include "server/http/HttpServerOptions.h"

namespace qlm::ingest {

class HttpSession;
struct HttpServerIo;

class HttpServer {
public:
    using Handler = std::function<HttpResponse(const HttpRequest&)>;

    HttpServer(HttpServerOptions options, Handler handler);
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    // Binds and listens, so port() is known; clients wait in the backlog until start(). Throws
    // std::system_error when the address cannot be used, std::invalid_argument when the host is no
    // IPv4 address or name of one.
    void listen();
    // Listens unless listen() already did, then accepts on threads of its own. Throws as listen().
    void start();
    // Stops accepting; requests being handled get stopGrace to answer, then every connection is
    // cut and every thread joined. Safe to call twice, and without start().
    void stop();

    uint16_t port() const { return port_.load(); }
    std::size_t activeConnections() const;

private:
    friend class HttpSession;

    void acceptNext();
    // A session's bookkeeping; false when its address already holds its share.
    bool opened(HttpSession* session, const std::string& address, const std::weak_ptr<HttpSession>& self);
    void closed(HttpSession* session, const std::string& address);
    bool stopping() const { return stopping_.load(); }

    const HttpServerOptions options_;  // immutable, read by every thread
    const Handler handler_;            // immutable; thread-safe by contract
    std::unique_ptr<HttpServerIo> io_;  // made by listen(), destroyed by stop() after its threads
    std::vector<std::thread> threads_;  // only start() and stop() touch it, on the owner's thread
    std::atomic<uint16_t> port_{0};      // atomic: written by listen(), read anywhere
    std::atomic<bool> stopping_{false};  // atomic: written by start()/stop(), read by every thread

    mutable std::mutex mutex_;
    std::condition_variable sessionsChanged_;                       // waited on by stop()
    std::map<HttpSession*, std::weak_ptr<HttpSession>> sessions_;  // guarded by mutex_
    std::map<std::string, std::size_t> perAddress_;                // guarded by mutex_
    bool acceptPaused_ = false;  // guarded by mutex_: at the cap, resumed when a session ends
};

}  // namespace qlm::ingest
