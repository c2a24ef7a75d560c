#pragma once
// Serves the requests of one accepted socket, one after another (keep-alive and pipelining), until
// the client closes, a request is refused, a time-out passes or the server stops. Lives on the
// connection's own thread and touches nothing shared but the handler, which must be thread-safe.
// Does not own the socket: the server closes it after this thread has been joined, so that the
// descriptor cannot be reused while stop() may still shut it down.
#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "server/http/HttpRequest.h"
#include "server/http/HttpResponse.h"
#include "server/http/HttpServerOptions.h"
#include "server/http/RequestParser.h"

namespace qlm::ingest {

class HttpConnection {
public:
    using Handler = std::function<HttpResponse(const HttpRequest&)>;

    // `stopping` is read between requests; it turns the last reply into one with "Connection: close".
    HttpConnection(int fd, const HttpServerOptions& options, const Handler& handler,
                   const std::function<bool()>& stopping);

    // Never throws; a handler's exception becomes a 500 reply.
    void serve() noexcept;

private:
    enum class ReadResult { Data, Closed, TimedOut };
    using Clock = std::chrono::steady_clock;

    void serveRequests();
    // Reads the next head into buffer_; false when the connection should end (already answered).
    bool readHead(bool firstRequest, std::size_t& headEnd);
    bool readBody(std::string& body, std::size_t length);
    HttpResponse handle(const HttpRequest& request) noexcept;
    // Appends at most `maxBytes` to `into`; waits no longer than `deadline`.
    ReadResult readSome(std::string& into, Clock::time_point deadline, std::size_t maxBytes);
    bool writeAll(std::string_view data);
    // Answers, then closes: shuts down sending and reads what the client still sends for a short
    // while, so the reply is not destroyed by a reset before the client has read it.
    void refuse(const HttpError& error);

    const int fd_;
    const HttpServerOptions& options_;
    const Handler& handler_;
    const std::function<bool()>& stopping_;
    std::string buffer_;  // received bytes not yet consumed; only this thread touches it
};

}  // namespace qlm::ingest
