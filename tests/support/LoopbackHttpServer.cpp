#include "tests/support/LoopbackHttpServer.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/chunk_encode.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/serializer.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/http/write.hpp>
#include <exception>

#include "tests/support/DeadlineStream.h"

namespace qlm_test {
namespace net = boost::asio;
namespace http = boost::beast::http;
using tcp = net::ip::tcp;

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

bool hasHeader(const std::vector<std::pair<std::string, std::string>>& headers, std::string_view name) {
    return std::any_of(headers.begin(), headers.end(),
                       [&](const auto& h) { return equalsIgnoringCase(h.first, name); });
}

HttpRequest recorded(const http::request<http::string_body>& message) {
    HttpRequest request;
    request.method = std::string(message.method_string());
    request.target = std::string(message.target());
    const auto question = request.target.find('?');
    request.path = request.target.substr(0, question);
    if (question != std::string::npos) request.query = request.target.substr(question + 1);
    request.version = "HTTP/" + std::to_string(message.version() / 10) + "." + std::to_string(message.version() % 10);
    for (const auto& field : message) {
        request.headers.emplace_back(std::string(field.name_string()), std::string(field.value()));
    }
    request.body = message.body();
    request.chunked = message.chunked();
    return request;
}

// Writes `response` as the handler scripted it; `pause` sleeps between pieces and says false once
// the server stops. False when the connection failed or the server stopped.
bool reply(DeadlineStream& stream, const HttpRequest& request, const HttpResponse& response, bool keepAlive,
           const std::function<bool(std::chrono::milliseconds)>& pause) {
    const bool explicitLength = hasHeader(response.headers, "Content-Length");
    const bool explicitEncoding = hasHeader(response.headers, "Transfer-Encoding");
    const bool chunked = !explicitLength && !explicitEncoding && response.chunks.size() > 1;
    const bool sendsBody = request.method != "HEAD" && response.status != 204 && response.status != 304;

    http::response<http::empty_body> head;
    head.version(11);
    head.result(static_cast<unsigned>(response.status));
    if (!response.reason.empty()) head.reason(response.reason);
    for (const auto& [name, value] : response.headers) head.insert(name, value);
    if (chunked) {
        head.chunked(true);
    } else if (!explicitLength && !explicitEncoding) {
        std::size_t total = 0;
        for (const auto& piece : response.chunks) total += piece.size();
        head.content_length(total * response.repeat);
    }
    if (!keepAlive) head.set(http::field::connection, "close");
    boost::beast::error_code error;
    http::response_serializer<http::empty_body> serializer(head);
    http::write_header(stream, serializer, error);
    if (error) return false;
    if (!sendsBody || response.chunks.empty()) return true;

    const std::size_t pieces = response.chunks.size() * response.repeat;
    for (std::size_t i = 0; i < pieces; ++i) {
        if (i > 0) {
            if (!pause(response.delayBetweenChunks)) return false;
            if (response.beforeChunk) response.beforeChunk(i);
        }
        const std::string& piece = response.chunks[i % response.chunks.size()];
        if (chunked) {
            if (piece.empty()) continue;  // an empty chunk would end the body
            net::write(stream, http::make_chunk(net::buffer(piece)), error);
        } else {
            net::write(stream, net::buffer(piece), error);
        }
        if (error) return false;
    }
    if (chunked) net::write(stream, http::make_chunk_last(), error);
    return !error;
}

void resetAndClose(tcp::socket& socket) {
    boost::beast::error_code error;
    socket.set_option(net::socket_base::linger(true, 0), error);
    socket.close(error);
}

}  // namespace

struct LoopbackHttpServer::Listener {
    net::io_context context;
    tcp::acceptor acceptor{context};
};

struct LoopbackHttpServer::Connection {
    explicit Connection(tcp::socket s) : socket(std::move(s)) {}
    // Used by the serving thread only, then closed by whoever joins that thread.
    tcp::socket socket;
    std::thread thread;
    bool done = false;  // guarded by mutex_
};

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
    auto listener = std::make_unique<Listener>();
    boost::beast::error_code error;
    const tcp::endpoint endpoint(net::ip::address_v4::loopback(), options_.port);
    listener->acceptor.open(endpoint.protocol(), error);
    if (!error) listener->acceptor.set_option(net::socket_base::reuse_address(true), error);
    if (!error) listener->acceptor.bind(endpoint, error);
    if (!error) listener->acceptor.listen(64, error);
    if (error) return false;
    port_ = listener->acceptor.local_endpoint(error).port();
    wakeFd_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (error || wakeFd_ < 0) return false;
    listener_ = std::move(listener);
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
    }
    changed_.notify_all();
    // Wakes every wait on a socket: the accept loop's and each connection's.
    const uint64_t one = 1;
    [[maybe_unused]] auto written = ::write(wakeFd_, &one, sizeof one);
    if (acceptThread_.joinable()) acceptThread_.join();
    std::list<std::unique_ptr<Connection>> connections;
    {
        std::lock_guard lock(mutex_);
        connections.swap(connections_);
    }
    for (auto& connection : connections) {
        if (connection->thread.joinable()) connection->thread.join();
    }
    connections.clear();
    listener_.reset();
    ::close(wakeFd_);
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
    std::list<std::unique_ptr<Connection>> finished;
    {
        std::lock_guard lock(mutex_);
        for (auto it = connections_.begin(); it != connections_.end();) {
            auto next = std::next(it);
            if ((*it)->done) finished.splice(finished.end(), connections_, it);
            it = next;
        }
    }
    for (auto& connection : finished) connection->thread.join();
}

void LoopbackHttpServer::acceptLoop() {
    tcp::acceptor& acceptor = listener_->acceptor;
    for (;;) {
        reapFinished();
        {
            std::unique_lock lock(mutex_);
            changed_.wait(lock, [&] {
                const auto active = std::count_if(connections_.begin(), connections_.end(),
                                                  [](const auto& c) { return !c->done; });
                return stopping_ || static_cast<std::size_t>(active) < options_.maxConnections;
            });
            if (stopping_) return;
        }
        // Wakes for a connection, for stop(), or to reap finished connections now and then.
        DeadlineStream listening(acceptor.native_handle(), wakeFd_);
        listening.setReadTimeout(std::chrono::milliseconds(1000));
        boost::beast::error_code error;
        if (!listening.waitForReadable(error)) {
            if (error == net::error::operation_aborted) return;
            continue;
        }
        tcp::socket socket(listener_->context);
        acceptor.accept(socket, error);
        if (error) continue;
        socket.set_option(tcp::no_delay(true), error);
        if (options_.resetOnAccept) {
            resetAndClose(socket);
            continue;
        }
        std::lock_guard lock(mutex_);
        if (stopping_) return;
        Connection* connection = connections_.emplace_back(std::make_unique<Connection>(std::move(socket))).get();
        connection->thread = std::thread([this, connection] { serve(connection); });
    }
}

void LoopbackHttpServer::serve(Connection* connection) {
    DeadlineStream stream(connection->socket.native_handle(), wakeFd_);
    stream.setReadTimeoutAfterData(kRequestIdle);
    const auto pauseFor = [this](std::chrono::milliseconds delay) { return pause(delay); };
    boost::beast::flat_buffer buffer;
    bool reset = false;
    for (;;) {
        stream.setReadTimeout(buffer.size() == 0 ? options_.keepAliveIdle : kRequestIdle);
        http::request_parser<http::string_body> parser;
        parser.header_limit(kMaximumHeaderBytes);
        parser.body_limit(kMaximumBodyBytes);
        boost::beast::error_code error;
        http::read_header(stream, buffer, parser, error);
        if (error) break;
        if (const auto expect = parser.get()[http::field::expect];
            equalsIgnoringCase(std::string_view(expect.data(), expect.size()), "100-continue")) {
            http::response<http::empty_body> proceed(http::status::continue_, 11);
            http::response_serializer<http::empty_body> serializer(proceed);
            http::write_header(stream, serializer, error);
            if (error) break;
        }
        http::read(stream, buffer, parser, error);
        if (error) break;
        const HttpRequest request = recorded(parser.get());
        {
            std::lock_guard lock(mutex_);
            received_.push_back(request);
        }
        changed_.notify_all();
        const auto connectionField = request.header("Connection");
        const bool keepAlive = request.version == "HTTP/1.1" &&
                               !(connectionField && equalsIgnoringCase(*connectionField, "close"));
        HttpResponse response = dispatch(request);
        if (!pause(response.delayBeforeReply) || response.closeWithoutReply) break;
        if (response.resetWithoutReply) {
            reset = true;
            break;
        }
        if (!reply(stream, request, response, keepAlive, pauseFor) || !keepAlive) break;
    }
    boost::beast::error_code ignored;
    if (reset) {
        resetAndClose(connection->socket);
    } else {
        connection->socket.shutdown(tcp::socket::shutdown_both, ignored);
    }
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

}  // namespace qlm_test
