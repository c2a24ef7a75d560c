#include "server/http/HttpServer.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "server/http/HttpConnection.h"

namespace qlm::ingest {

namespace {

constexpr int kListenBacklog = 128;

in_addr resolveIPv4(const std::string& host) {
    in_addr address{};
    if (::inet_pton(AF_INET, host.c_str(), &address) == 1) return address;
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (::getaddrinfo(host.c_str(), nullptr, &hints, &found) != 0 || found == nullptr) {
        throw std::invalid_argument("not an IPv4 address or a name of one: " + host);
    }
    address = reinterpret_cast<const sockaddr_in*>(found->ai_addr)->sin_addr;
    ::freeaddrinfo(found);
    return address;
}

[[noreturn]] void throwErrno(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

HttpServer::HttpServer(HttpServerOptions options, Handler handler)
    : options_(std::move(options)),
      handler_(std::move(handler)),
      isStopping_([this] { return stopping_.load(); }) {}

HttpServer::~HttpServer() {
    stop();
}

void HttpServer::listen() {
    if (listenFd_ >= 0) return;
    const in_addr address = resolveIPv4(options_.host);
    listenFd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (listenFd_ < 0) throwErrno("socket");
    const int on = 1;
    ::setsockopt(listenFd_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in bound{};
    bound.sin_family = AF_INET;
    bound.sin_addr = address;
    bound.sin_port = htons(options_.port);
    socklen_t length = sizeof bound;
    if (::bind(listenFd_, reinterpret_cast<const sockaddr*>(&bound), sizeof bound) != 0 ||
        ::listen(listenFd_, kListenBacklog) != 0 ||
        ::getsockname(listenFd_, reinterpret_cast<sockaddr*>(&bound), &length) != 0) {
        const int error = errno;
        ::close(listenFd_);
        listenFd_ = -1;
        throw std::system_error(error, std::generic_category(), "listening on " + options_.host);
    }
    port_ = ntohs(bound.sin_port);
    wakeFd_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wakeFd_ < 0) {
        ::close(listenFd_);
        listenFd_ = -1;
        throwErrno("eventfd");
    }
}

void HttpServer::start() {
    if (acceptThread_.joinable()) return;
    listen();
    stopping_ = false;
    acceptThread_ = std::thread([this] { acceptLoop(); });
}

void HttpServer::stop() {
    if (!acceptThread_.joinable()) {
        // Listening without ever accepting: only the descriptors to give back.
        if (listenFd_ >= 0) ::close(listenFd_);
        if (wakeFd_ >= 0) ::close(wakeFd_);
        listenFd_ = wakeFd_ = -1;
        return;
    }
    stopping_ = true;
    wake();
    acceptThread_.join();
    ::close(listenFd_);
    listenFd_ = -1;

    std::unique_lock lock(mutex_);
    // Reading ends at once for every connection; one that is in its handler still gets to answer.
    for (Connection& connection : connections_) ::shutdown(connection.fd, SHUT_RD);
    finishedChanged_.wait_for(lock, options_.stopGrace, [this] {
        for (const Connection& connection : connections_) {
            if (!connection.finished) return false;
        }
        return true;
    });
    for (Connection& connection : connections_) ::shutdown(connection.fd, SHUT_RDWR);
    std::list<Connection> remaining;
    remaining.swap(connections_);
    lock.unlock();
    for (Connection& connection : remaining) {
        connection.thread.join();
        ::close(connection.fd);
    }
    ::close(wakeFd_);
    wakeFd_ = -1;
}

std::size_t HttpServer::activeConnections() const {
    std::lock_guard lock(mutex_);
    std::size_t active = 0;
    for (const Connection& connection : connections_) active += connection.finished ? 0 : 1;
    return active;
}

void HttpServer::wake() {
    const eventfd_t one = 1;
    [[maybe_unused]] const int ignored = ::eventfd_write(wakeFd_, one);
}

void HttpServer::reapFinished() {
    for (auto it = connections_.begin(); it != connections_.end();) {
        if (!it->finished) {
            ++it;
            continue;
        }
        it->thread.join();
        ::close(it->fd);
        it = connections_.erase(it);
    }
}

void HttpServer::acceptLoop() {
    while (!stopping_) {
        bool room = false;
        {
            std::lock_guard lock(mutex_);
            reapFinished();
            room = connections_.size() < options_.maxConnections;
        }
        // At the cap the listening socket is not polled: new clients wait in the backlog.
        pollfd fds[2] = {{wakeFd_, POLLIN, 0}, {listenFd_, POLLIN, 0}};
        if (::poll(fds, room ? 2 : 1, -1) < 0) continue;
        if (fds[0].revents & POLLIN) {
            eventfd_t drained = 0;
            [[maybe_unused]] const int ignored = ::eventfd_read(wakeFd_, &drained);
        }
        if (!room || !(fds[1].revents & POLLIN) || stopping_) continue;
        const int fd = ::accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) {
            if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
                // Out of descriptors: wait for a connection to end instead of spinning on the backlog.
                pollfd wait{wakeFd_, POLLIN, 0};
                ::poll(&wait, 1, 100);
            }
            continue;
        }
        accepted(fd);
    }
}

void HttpServer::accepted(int fd) {
    const int on = 1;
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    std::lock_guard lock(mutex_);
    try {
        Connection& connection = connections_.emplace_back();
        connection.fd = fd;
        connection.thread = std::thread([this, &connection] {
            HttpConnection(connection.fd, options_, handler_, isStopping_).serve();
            ::shutdown(connection.fd, SHUT_RDWR);
            {
                std::lock_guard finishedLock(mutex_);
                connection.finished = true;
            }
            finishedChanged_.notify_all();
            wake();
        });
    } catch (...) {
        // Out of threads or memory: this client is dropped and the server goes on.
        if (!connections_.empty() && !connections_.back().thread.joinable()) connections_.pop_back();
        ::close(fd);
    }
}

}  // namespace qlm::ingest
