#include "server/http/HttpConnection.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <exception>

namespace qlm::ingest {

namespace {

constexpr std::size_t kReadChunk = 256 * 1024;
constexpr std::size_t kDrainLimit = 4 * 1024 * 1024;
constexpr std::chrono::milliseconds kDrainTime{1000};

int millisecondsUntil(std::chrono::steady_clock::time_point deadline) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    return static_cast<int>(std::clamp<long long>(left.count(), 0, 24 * 3600 * 1000));
}

}  // namespace

HttpConnection::HttpConnection(int fd, const HttpServerOptions& options, const Handler& handler,
                               const std::function<bool()>& stopping)
    : fd_(fd), options_(options), handler_(handler), stopping_(stopping) {}

void HttpConnection::serve() noexcept {
    try {
        serveRequests();
    } catch (...) {
        // Allocation failure or similar: the connection is dropped, the server goes on.
    }
}

void HttpConnection::serveRequests() {
    for (bool first = true; !stopping_(); first = false) {
        std::size_t headEnd = 0;
        if (!readHead(first, headEnd)) return;
        auto parsed = parseRequestHead(std::string_view(buffer_).substr(0, headEnd));
        buffer_.erase(0, headEnd + 4);
        if (auto* error = std::get_if<HttpError>(&parsed)) return refuse(*error);
        HttpRequest& request = std::get<HttpRequest>(parsed);

        auto framing = bodyFraming(request, options_.maxBodyBytes);
        if (auto* error = std::get_if<HttpError>(&framing)) return refuse(*error);
        const BodyFraming& body = std::get<BodyFraming>(framing);
        if (body.expectContinue && buffer_.size() < body.contentLength &&
            !writeAll("HTTP/1.1 100 Continue\r\n\r\n")) {
            return;
        }
        if (!readBody(request.body, body.contentLength)) return;

        const HttpResponse response = handle(request);
        // After a 400 nothing that follows on the connection can be trusted to be framed right.
        const bool keepAlive = wantsKeepAlive(request) && response.status != 400 && !stopping_();
        if (!writeAll(response.serialize(keepAlive, request.method == "HEAD")) || !keepAlive) return;
    }
}

bool HttpConnection::readHead(bool firstRequest, std::size_t& headEnd) {
    // A kept-alive connection may sit idle for a while; once a request has begun, it must be quick.
    auto deadline = Clock::now() + (firstRequest ? options_.readTimeout : options_.idleTimeout);
    bool begun = false;
    std::size_t searchFrom = 0;
    while (true) {
        // Empty lines before a request line are tolerated, as HTTP/1.1 asks.
        while (buffer_.starts_with("\r\n")) buffer_.erase(0, 2);
        if (!buffer_.empty() && !begun) {
            begun = true;
            deadline = Clock::now() + options_.readTimeout;
        }
        headEnd = buffer_.find("\r\n\r\n", searchFrom);
        if (headEnd != std::string::npos) {
            if (headEnd <= options_.maxHeaderBytes) return true;
            refuse({431, "the request head is too large"});
            return false;
        }
        if (buffer_.size() > options_.maxHeaderBytes) {
            refuse({431, "the request head is too large"});
            return false;
        }
        searchFrom = buffer_.size() < 3 ? 0 : buffer_.size() - 3;
        const std::size_t room =
            options_.maxHeaderBytes + 4 - std::min(buffer_.size(), options_.maxHeaderBytes);
        switch (readSome(buffer_, deadline, room)) {
            case ReadResult::Data:
                break;
            case ReadResult::Closed:
                return false;
            case ReadResult::TimedOut:
                if (begun) refuse({408, "the request head did not arrive in time"});
                return false;
        }
    }
}

bool HttpConnection::readBody(std::string& body, std::size_t length) {
    const std::size_t buffered = std::min(length, buffer_.size());
    body.reserve(length);
    body.assign(buffer_, 0, buffered);
    buffer_.erase(0, buffered);
    while (body.size() < length) {
        const auto deadline = Clock::now() + options_.readTimeout;
        switch (readSome(body, deadline, std::min(kReadChunk, length - body.size()))) {
            case ReadResult::Data:
                break;
            case ReadResult::Closed:
                return false;
            case ReadResult::TimedOut:
                refuse({408, "the request body stalled"});
                return false;
        }
    }
    return true;
}

HttpResponse HttpConnection::handle(const HttpRequest& request) noexcept {
    try {
        return handler_(request);
    } catch (const std::exception& e) {
        try {
            return HttpResponse::text(500, std::string("internal error: ") + e.what() + "\n");
        } catch (...) {
        }
    } catch (...) {
    }
    return HttpResponse{500, {}, {}};
}

HttpConnection::ReadResult HttpConnection::readSome(std::string& into, Clock::time_point deadline,
                                                    std::size_t maxBytes) {
    maxBytes = std::clamp<std::size_t>(maxBytes, 1, kReadChunk);
    while (true) {
        pollfd pfd{fd_, POLLIN, 0};
        const int ready = ::poll(&pfd, 1, millisecondsUntil(deadline));
        if (ready < 0 && errno == EINTR) continue;
        if (ready < 0) return ReadResult::Closed;
        if (ready == 0) return ReadResult::TimedOut;
        const std::size_t old = into.size();
        into.resize(old + maxBytes);
        const ssize_t got = ::recv(fd_, into.data() + old, maxBytes, MSG_DONTWAIT);
        into.resize(old + (got > 0 ? static_cast<std::size_t>(got) : 0));
        if (got > 0) return ReadResult::Data;
        if (got < 0 && (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK)) continue;
        return ReadResult::Closed;
    }
}

bool HttpConnection::writeAll(std::string_view data) {
    while (!data.empty()) {
        pollfd pfd{fd_, POLLOUT, 0};
        const int ready = ::poll(&pfd, 1, static_cast<int>(options_.writeTimeout.count()));
        if (ready < 0 && errno == EINTR) continue;
        if (ready <= 0) return false;
        const ssize_t sent = ::send(fd_, data.data(), data.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0 && (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK)) continue;
        if (sent <= 0) return false;
        data.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

void HttpConnection::refuse(const HttpError& error) {
    if (!writeAll(HttpResponse::text(error.status, error.message + "\n").serialize(false))) return;
    ::shutdown(fd_, SHUT_WR);
    const auto deadline = Clock::now() + kDrainTime;
    std::size_t drained = 0;
    std::string sink;
    while (drained < kDrainLimit && readSome(sink, deadline, kReadChunk) == ReadResult::Data) {
        drained += sink.size();
        sink.clear();
    }
}

}  // namespace qlm::ingest
