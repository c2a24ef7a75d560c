#pragma once
// A small HTTP/1.1 server on IPv4: one thread per connection, at most maxConnections at once (the
// rest wait in the listen backlog), Content-Length bodies only (chunked uploads get 411),
// keep-alive (but the connection closes after any 400), and one handler for every request (usually
// Router::dispatch).
//
// start() and stop() are called by the owner on one thread; port() and activeConnections() from
// any. The handler runs on connection threads, concurrently, and must be thread-safe; whatever it
// throws becomes a 500 reply.
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <mutex>
#include <thread>

#include "server/http/HttpRequest.h"
#include "server/http/HttpResponse.h"
#include "server/http/HttpServerOptions.h"

namespace qlm::ingest {

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
    // Listens unless listen() already did, then accepts on a thread of its own. Throws as listen().
    void start();
    // Stops accepting; requests being handled get stopGrace to answer, then every connection is
    // cut and every thread joined. Safe to call twice, and without start().
    void stop();

    uint16_t port() const { return port_.load(); }
    std::size_t activeConnections() const;

private:
    struct Connection {
        int fd = -1;            // set before its thread starts; closed only after that thread is joined
        std::thread thread;     // joined under mutex_ by the reaper, or by stop() after unlinking
        bool finished = false;  // guarded by HttpServer::mutex_
    };

    void acceptLoop();
    void accepted(int fd);
    // Joins and closes the connections that have finished. Called with mutex_ held.
    void reapFinished();
    void wake();

    const HttpServerOptions options_;         // immutable, read by every thread
    const Handler handler_;                   // immutable; thread-safe by contract
    const std::function<bool()> isStopping_;  // immutable; reads stopping_
    int listenFd_ = -1;  // set by listen() before the accept thread runs; closed by stop() after joining it
    int wakeFd_ = -1;    // eventfd, as listenFd_ but closed after every thread; readable on stop or a finish
    std::atomic<uint16_t> port_{0};      // atomic: written by listen(), read anywhere
    std::atomic<bool> stopping_{false};  // atomic: written by start()/stop(), read by every thread
    std::thread acceptThread_;           // only start() and stop() touch it, on the owner's thread

    mutable std::mutex mutex_;
    std::condition_variable finishedChanged_;  // a connection finished; waited on by stop()
    std::list<Connection> connections_;        // guarded by mutex_
};

}  // namespace qlm::ingest
