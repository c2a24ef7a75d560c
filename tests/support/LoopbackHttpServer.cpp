#include "tests/support/LoopbackHttpServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <exception>

namespace qlm_test {
namespace {

constexpr std::size_t kMaximumHeaderBytes = 64 * 1024;
constexpr std::size_t kMaximumBodyBytes = 64 * 1024 * 1024;
// How long a request under way may pause between its bytes.
constexpr std::chrono::milliseconds kRequestIdle{10000};

char lower(char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() &&
           std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) { return lower(x) == lower(y); });
}

std::string_view trimmed(std::string_view text) {
    const auto begin = text.find_first_not_of(" \t");
    if (begin == std::string_view::npos) return {};
    return text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

const char* reasonFor(int status) {
    switch (status) {
        case 100:
            return "Continue";
        case 200:
            return "OK";
        case 201:
            return "Created";
        case 204:
            return "No Content";
        case 301:
            return "Moved Permanently";
        case 302:
            return "Found";
        case 303:
            return "See Other";
        case 304:
            return "Not Modified";
        case 307:
            return "Temporary Redirect";
        case 308:
            return "Permanent Redirect";
        case 400:
            return "Bad Request";
        case 401:
            return "Unauthorized";
        case 403:
            return "Forbidden";
        case 404:
            return "Not Found";
        case 500:
            return "Internal Server Error";
        case 503:
            return "Service Unavailable";
        default:
            return "Status";
    }
}

bool hasHeader(const std::vector<std::pair<std::string, std::string>>& headers, std::string_view name) {
    return std::any_of(headers.begin(), headers.end(),
                       [&](const auto& h) { return equalsIgnoringCase(h.first, name); });
}

}  // namespace

std::optional<std::string> HttpRequest::header(std::string_view name) const {
    for (const auto& [field, value] : headers) {
        if (equalsIgnoringCase(field, name)) return value;
    }
    return std::nullopt;
}

HttpResponse HttpResponse::text(int status, std::string body, std::string contentType) {
    HttpResponse response;
    response.status = status;
    response.headers.emplace_back("Content-Type", std::move(contentType));
    response.chunks.push_back(std::move(body));
    return response;
}

HttpResponse& HttpResponse::withHeader(std::string name, std::string value) {
    headers.emplace_back(std::move(name), std::move(value));
    return *this;
}

LoopbackHttpServer::LoopbackHttpServer() : LoopbackHttpServer(Options{}) {}

LoopbackHttpServer::LoopbackHttpServer(Options options) : options_(options) {}

LoopbackHttpServer::~LoopbackHttpServer() {
    stop();
}

void LoopbackHttpServer::route(std::string method, std::string path, HttpHandler handler) {
    std::lock_guard lock(mutex_);
    routes_[{std::move(method), std::move(path)}] = std::move(handler);
}

bool LoopbackHttpServer::start() {
    {
        std::lock_guard lock(mutex_);
        if (started_) return false;
    }
    listenFd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (listenFd_ < 0) return false;
    const int yes = 1;
    ::setsockopt(listenFd_, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(options_.port);
    socklen_t length = sizeof address;
    if (::bind(listenFd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listenFd_, 64) != 0 ||
        ::getsockname(listenFd_, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        ::close(listenFd_);
        listenFd_ = -1;
        return false;
    }
    port_ = ntohs(address.sin_port);
    wakeFd_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wakeFd_ < 0) {
        ::close(listenFd_);
        listenFd_ = -1;
        return false;
    }
    {
        std::lock_guard lock(mutex_);
        started_ = true;
    }
    acceptThread_ = std::thread([this] { acceptLoop(); });
    return true;
}

void LoopbackHttpServer::stop() {
    {
        std::lock_guard lock(mutex_);
        if (!started_ || stopping_) return;
        stopping_ = true;
        // Wakes connection threads blocked in a read or a write.
        for (auto& connection : connections_) {
            if (connection.fd >= 0) ::shutdown(connection.fd, SHUT_RDWR);
        }
    }
    changed_.notify_all();
    const uint64_t one = 1;
    [[maybe_unused]] auto written = ::write(wakeFd_, &one, sizeof one);
    if (acceptThread_.joinable()) acceptThread_.join();
    std::list<Connection> connections;
    {
        std::lock_guard lock(mutex_);
        connections.swap(connections_);
    }
    for (auto& connection : connections) {
        if (connection.thread.joinable()) connection.thread.join();
        if (connection.fd >= 0) ::close(connection.fd);
    }
    ::close(listenFd_);
    ::close(wakeFd_);
    listenFd_ = -1;
    wakeFd_ = -1;
}

std::string LoopbackHttpServer::url(std::string_view pathAndQuery) const {
    return "http://127.0.0.1:" + std::to_string(port_) + std::string(pathAndQuery);
}

std::vector<HttpRequest> LoopbackHttpServer::requests() const {
    std::lock_guard lock(mutex_);
    return received_;
}

std::size_t LoopbackHttpServer::requestCount() const {
    std::lock_guard lock(mutex_);
    return received_.size();
}

bool LoopbackHttpServer::waitForRequests(std::size_t count, std::chrono::milliseconds timeout) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, timeout, [&] { return received_.size() >= count; });
}

void LoopbackHttpServer::reapFinished() {
    std::list<Connection> finished;
    {
        std::lock_guard lock(mutex_);
        for (auto it = connections_.begin(); it != connections_.end();) {
            auto next = std::next(it);
            if (it->done) finished.splice(finished.end(), connections_, it);
            it = next;
        }
    }
    for (auto& connection : finished) {
        connection.thread.join();
        if (connection.fd >= 0) ::close(connection.fd);
    }
}

void LoopbackHttpServer::acceptLoop() {
    for (;;) {
        reapFinished();
        {
            std::unique_lock lock(mutex_);
            changed_.wait(lock, [&] {
                const auto active = std::count_if(connections_.begin(), connections_.end(),
                                                  [](const Connection& c) { return !c.done; });
                return stopping_ || static_cast<std::size_t>(active) < options_.maxConnections;
            });
            if (stopping_) return;
        }
        pollfd fds[2] = {{listenFd_, POLLIN, 0}, {wakeFd_, POLLIN, 0}};
        // Wakes for a connection, for stop(), or to reap finished connections now and then.
        if (::poll(fds, 2, 1000) < 0 && errno != EINTR) return;
        if ((fds[1].revents & POLLIN) != 0) return;
        if ((fds[0].revents & POLLIN) == 0) continue;
        const int fd = ::accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) continue;
        const int yes = 1;
        ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
        if (options_.resetOnAccept) {
            resetAndClose(fd);
            continue;
        }
        std::lock_guard lock(mutex_);
        if (stopping_) {
            ::close(fd);
            return;
        }
        Connection& connection = connections_.emplace_back();
        connection.fd = fd;
        connection.thread = std::thread([this, &connection] { serve(&connection); });
    }
}

void LoopbackHttpServer::serve(Connection* connection) {
    const int fd = connection->fd;
    std::string buffer;
    for (;;) {
        auto request = readRequest(fd, buffer);
        if (!request) break;
        {
            std::lock_guard lock(mutex_);
            received_.push_back(*request);
        }
        changed_.notify_all();
        const auto connectionField = request->header("Connection");
        const bool keepAlive = request->version == "HTTP/1.1" &&
                               !(connectionField && equalsIgnoringCase(trimmed(*connectionField), "close"));
        HttpResponse response = dispatch(*request);
        if (!pause(response.delayBeforeReply) || response.closeWithoutReply) break;
        if (response.resetWithoutReply) {
            std::lock_guard lock(mutex_);
            resetAndClose(connection->fd);
            connection->fd = -1;
            connection->done = true;
            changed_.notify_all();
            return;
        }
        if (!reply(fd, *request, response, keepAlive) || !keepAlive) break;
    }
    ::shutdown(fd, SHUT_RDWR);
    {
        std::lock_guard lock(mutex_);
        connection->done = true;
    }
    changed_.notify_all();
}

HttpResponse LoopbackHttpServer::dispatch(const HttpRequest& request) {
    HttpHandler handler;
    {
        std::lock_guard lock(mutex_);
        auto it = routes_.find({request.method, request.path});
        if (it == routes_.end()) it = routes_.find({"*", request.path});
        if (it != routes_.end()) handler = it->second;
    }
    if (!handler) return HttpResponse::text(404, "no route for " + request.path);
    try {
        return handler(request);
    } catch (const std::exception& e) {
        return HttpResponse::text(500, e.what());
    }
}

bool LoopbackHttpServer::pause(std::chrono::milliseconds delay) {
    std::unique_lock lock(mutex_);
    if (delay.count() > 0) changed_.wait_for(lock, delay, [&] { return stopping_; });
    return !stopping_;
}

bool LoopbackHttpServer::readMore(int fd, std::string& buffer, std::chrono::milliseconds timeout) {
    pollfd fds[2] = {{fd, POLLIN, 0}, {wakeFd_, POLLIN, 0}};
    const int ready = ::poll(fds, 2, static_cast<int>(timeout.count()));
    if (ready <= 0 || (fds[1].revents & POLLIN) != 0) return false;
    char chunk[16 * 1024];
    const ssize_t count = ::recv(fd, chunk, sizeof chunk, 0);
    if (count <= 0) return false;
    buffer.append(chunk, static_cast<std::size_t>(count));
    return true;
}

std::optional<HttpRequest> LoopbackHttpServer::readRequest(int fd, std::string& buffer) {
    std::size_t headerEnd;
    while ((headerEnd = buffer.find("\r\n\r\n")) == std::string::npos) {
        if (buffer.size() > kMaximumHeaderBytes) return std::nullopt;
        if (!readMore(fd, buffer, buffer.empty() ? options_.keepAliveIdle : kRequestIdle))
            return std::nullopt;
    }
    HttpRequest request;
    const std::string_view head(buffer.data(), headerEnd);
    const auto lineEnd = head.find("\r\n");
    const std::string_view requestLine = head.substr(0, lineEnd);
    const auto firstSpace = requestLine.find(' ');
    const auto secondSpace = requestLine.rfind(' ');
    if (firstSpace == std::string_view::npos || secondSpace == firstSpace) return std::nullopt;
    request.method = std::string(requestLine.substr(0, firstSpace));
    request.target = std::string(requestLine.substr(firstSpace + 1, secondSpace - firstSpace - 1));
    request.version = std::string(requestLine.substr(secondSpace + 1));
    const auto question = request.target.find('?');
    request.path = request.target.substr(0, question);
    if (question != std::string::npos) request.query = request.target.substr(question + 1);
    std::size_t at = lineEnd == std::string_view::npos ? head.size() : lineEnd + 2;
    while (at < head.size()) {
        auto end = head.find("\r\n", at);
        if (end == std::string_view::npos) end = head.size();
        const std::string_view line = head.substr(at, end - at);
        if (const auto colon = line.find(':'); colon != std::string_view::npos) {
            request.headers.emplace_back(std::string(trimmed(line.substr(0, colon))),
                                         std::string(trimmed(line.substr(colon + 1))));
        }
        at = end + 2;
    }
    buffer.erase(0, headerEnd + 4);

    if (auto expect = request.header("Expect");
        expect && equalsIgnoringCase(trimmed(*expect), "100-continue")) {
        if (!sendAll(fd, "HTTP/1.1 100 Continue\r\n\r\n")) return std::nullopt;
    }
    const auto encoding = request.header("Transfer-Encoding");
    if (encoding && equalsIgnoringCase(trimmed(*encoding), "chunked")) {
        request.chunked = true;
        for (;;) {
            std::size_t sizeEnd;
            while ((sizeEnd = buffer.find("\r\n")) == std::string::npos) {
                if (!readMore(fd, buffer, kRequestIdle)) return std::nullopt;
            }
            std::size_t size = 0;
            const auto sizeText = trimmed(std::string_view(buffer).substr(0, buffer.find_first_of(";\r")));
            std::from_chars(sizeText.data(), sizeText.data() + sizeText.size(), size, 16);
            buffer.erase(0, sizeEnd + 2);
            if (size == 0) {
                // Trailers, if any, up to the empty line.
                std::size_t end;
                while ((end = buffer.find("\r\n")) != 0) {
                    if (end != std::string::npos) {
                        buffer.erase(0, end + 2);
                    } else if (!readMore(fd, buffer, kRequestIdle)) {
                        return std::nullopt;
                    }
                }
                buffer.erase(0, 2);
                break;
            }
            if (request.body.size() + size > kMaximumBodyBytes) return std::nullopt;
            while (buffer.size() < size + 2) {
                if (!readMore(fd, buffer, kRequestIdle)) return std::nullopt;
            }
            request.body.append(buffer, 0, size);
            buffer.erase(0, size + 2);
        }
    } else if (auto length = request.header("Content-Length")) {
        std::size_t size = 0;
        const auto text = trimmed(*length);
        std::from_chars(text.data(), text.data() + text.size(), size);
        if (size > kMaximumBodyBytes) return std::nullopt;
        while (buffer.size() < size) {
            if (!readMore(fd, buffer, kRequestIdle)) return std::nullopt;
        }
        request.body = buffer.substr(0, size);
        buffer.erase(0, size);
    }
    return request;
}

void LoopbackHttpServer::resetAndClose(int fd) {
    const linger now{1, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &now, sizeof now);
    ::close(fd);
}

bool LoopbackHttpServer::sendAll(int fd, std::string_view data) {
    while (!data.empty()) {
        const ssize_t sent = ::send(fd, data.data(), data.size(), MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) continue;
        if (sent <= 0) return false;
        data.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

bool LoopbackHttpServer::reply(int fd, const HttpRequest& request, const HttpResponse& response,
                               bool keepAlive) {
    const bool explicitLength = hasHeader(response.headers, "Content-Length");
    const bool explicitEncoding = hasHeader(response.headers, "Transfer-Encoding");
    const bool chunked = !explicitLength && !explicitEncoding && response.chunks.size() > 1;
    const bool sendsBody = request.method != "HEAD" && response.status != 204 && response.status != 304;

    std::string head = "HTTP/1.1 " + std::to_string(response.status) + " " +
                       (response.reason.empty() ? reasonFor(response.status) : response.reason) + "\r\n";
    for (const auto& [name, value] : response.headers) head += name + ": " + value + "\r\n";
    if (chunked) {
        head += "Transfer-Encoding: chunked\r\n";
    } else if (!explicitLength && !explicitEncoding) {
        std::size_t total = 0;
        for (const auto& piece : response.chunks) total += piece.size();
        total *= response.repeat;
        head += "Content-Length: " + std::to_string(total) + "\r\n";
    }
    if (!keepAlive) head += "Connection: close\r\n";
    head += "\r\n";
    if (!sendAll(fd, head)) return false;
    if (!sendsBody) return true;

    const std::size_t pieces = response.chunks.size() * response.repeat;
    for (std::size_t i = 0; i < pieces; ++i) {
        if (i > 0) {
            if (!pause(response.delayBetweenChunks)) return false;
            if (response.beforeChunk) response.beforeChunk(i);
        }
        const std::string& piece = response.chunks[i % response.chunks.size()];
        if (chunked) {
            if (piece.empty()) continue;  // an empty chunk would end the body
            char size[32];
            auto [end, error] = std::to_chars(size, size + sizeof size, piece.size(), 16);
            (void)error;
            if (!sendAll(fd, std::string(size, end) + "\r\n" + piece + "\r\n")) return false;
        } else if (!sendAll(fd, piece)) {
            return false;
        }
    }
    return !chunked || sendAll(fd, "0\r\n\r\n");
}

}  // namespace qlm_test
