#include "server/http/HttpServer.h"

#include <boost/asio/post.hpp>
#include <boost/asio/strand.hpp>
#include <stdexcept>
#include <system_error>

#include "server/http/HttpSession.h"

namespace qlm::ingest {

namespace net = boost::asio;
using net::ip::tcp;

namespace {

constexpr int kListenBacklog = 128;
// When a stop cuts the connections, how long their last operations may take to unwind.
constexpr std::chrono::milliseconds kCutGrace{1000};

net::ip::address_v4 resolveIPv4(net::io_context& context, const std::string& host) {
    boost::system::error_code error;
    const auto address = net::ip::make_address_v4(host, error);
    if (!error) return address;
    tcp::resolver resolver(context);
    const auto found = resolver.resolve(tcp::v4(), host, "", error);
    if (error || found.empty()) throw std::invalid_argument("not an IPv4 address or a name of one: " + host);
    return found.begin()->endpoint().address().to_v4();
}

}  // namespace

HttpServer::HttpServer(HttpServerOptions options, Handler handler)
    : options_(std::move(options)), handler_(std::move(handler)) {}

HttpServer::~HttpServer() {
    stop();
}

void HttpServer::listen() {
    if (io_) return;
    auto io = std::make_unique<HttpServerIo>();
    const tcp::endpoint endpoint(resolveIPv4(io->context, options_.host), options_.port);
    boost::system::error_code error;
    io->acceptor.open(endpoint.protocol(), error);
    if (!error) io->acceptor.set_option(net::socket_base::reuse_address(true), error);
    if (!error) io->acceptor.bind(endpoint, error);
    if (!error) io->acceptor.listen(kListenBacklog, error);
    if (error) throw std::system_error(error.value(), std::generic_category(), "listening on " + options_.host);
    port_ = io->acceptor.local_endpoint().port();
    io_ = std::move(io);
}

void HttpServer::start() {
    if (!threads_.empty()) return;
    listen();
    stopping_ = false;
    net::post(io_->acceptor.get_executor(), [this] { acceptNext(); });
    const std::size_t count = std::max<std::size_t>(1, options_.threads);
    for (std::size_t i = 0; i < count; ++i) threads_.emplace_back([this] { io_->context.run(); });
}

void HttpServer::acceptNext() {
    if (stopping_) return;
    io_->acceptor.async_accept(net::make_strand(io_->context), [this](boost::system::error_code error,
                                                                     tcp::socket socket) {
        if (error == net::error::operation_aborted || stopping_) return;
        if (!error) {
            socket.set_option(tcp::no_delay(true), error);
            try {
                std::make_shared<HttpSession>(*this, std::move(socket))->run();
            } catch (...) {
                // Out of memory: this client is dropped and the server goes on.
            }
        }
        std::lock_guard lock(mutex_);
        // At the cap the listening socket is not served: new clients wait in the backlog.
        if (sessions_.size() >= options_.maxConnections) {
            acceptPaused_ = true;
        } else {
            acceptNext();
        }
    });
}

bool HttpServer::opened(HttpSession* session, const std::string& address,
                        const std::weak_ptr<HttpSession>& self) {
    std::lock_guard lock(mutex_);
    std::size_t& fromThere = perAddress_[address];
    if (options_.maxConnectionsPerClient != 0 && fromThere >= options_.maxConnectionsPerClient) {
        if (fromThere == 0) perAddress_.erase(address);
        return false;
    }
    ++fromThere;
    sessions_.emplace(session, self);
    return true;
}

void HttpServer::closed(HttpSession* session, const std::string& address) {
    {
        std::lock_guard lock(mutex_);
        sessions_.erase(session);
        if (auto it = perAddress_.find(address); it != perAddress_.end() && --it->second == 0) perAddress_.erase(it);
        if (acceptPaused_ && sessions_.size() < options_.maxConnections && io_ && !stopping_) {
            acceptPaused_ = false;
            net::post(io_->acceptor.get_executor(), [this] { acceptNext(); });
        }
    }
    sessionsChanged_.notify_all();
}

std::size_t HttpServer::activeConnections() const {
    std::lock_guard lock(mutex_);
    return sessions_.size();
}

void HttpServer::stop() {
    if (!io_) return;
    if (threads_.empty()) {
        io_.reset();
        return;
    }
    stopping_ = true;
    net::post(io_->acceptor.get_executor(), [this] {
        boost::system::error_code ignored;
        io_->acceptor.close(ignored);
    });
    // Sessions are told outside the lock: dropping the last reference to one ends up in closed().
    const auto eachSession = [this](auto&& action) {
        std::vector<std::shared_ptr<HttpSession>> live;
        {
            std::lock_guard lock(mutex_);
            for (const auto& [session, weak] : sessions_) {
                if (auto strong = weak.lock()) live.push_back(std::move(strong));
            }
        }
        for (const auto& session : live) action(*session);
    };
    const auto waitForNone = [this](std::chrono::milliseconds grace) {
        std::unique_lock lock(mutex_);
        sessionsChanged_.wait_for(lock, grace, [this] { return sessions_.empty(); });
    };
    // Reading ends at once for every connection; one that is in its handler still gets to answer.
    eachSession([](HttpSession& session) { session.stopReading(); });
    waitForNone(options_.stopGrace);
    eachSession([](HttpSession& session) { session.cut(); });
    waitForNone(kCutGrace);
    io_->context.stop();
    for (auto& thread : threads_) thread.join();
    threads_.clear();
    io_.reset();
}

}  // namespace qlm::ingest
