#include "server/http/HttpSession.h"

#include <boost/asio/dispatch.hpp>
#include <boost/asio/post.hpp>
#include <boost/beast/http/chunk_encode.hpp>
#include <boost/beast/http/error.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/write.hpp>
#include <cctype>
#include <exception>

#include "server/http/HttpServer.h"

namespace qlm::ingest {

namespace net = boost::asio;
namespace http = boost::beast::http;
using boost::beast::error_code;

namespace {

constexpr std::size_t kMaxHeaderFields = 100;
constexpr std::size_t kDrainLimit = 4 * 1024 * 1024;
constexpr std::chrono::milliseconds kDrainTime{1000};
const std::string kContinue = "HTTP/1.1 100 Continue\r\n\r\n";

std::string_view toStd(boost::beast::string_view text) {
    return {text.data(), text.size()};
}

HttpResponse handleSafely(const HttpServer::Handler& handler, const HttpRequest& request) noexcept {
    try {
        return handler(request);
    } catch (const std::exception& e) {
        try {
            return HttpResponse::text(500, std::string("internal error: ") + e.what() + "\n");
        } catch (...) {
        }
    } catch (...) {
    }
    return HttpResponse{500, {}, {}};
}

// The fields every reply has, whatever its body.
void fillHead(http::response_header<>& head, const HttpServerOptions& options, const HttpResponse& response,
              bool keepAlive) {
    head.version(11);
    head.result(static_cast<unsigned>(response.status));
    const std::string_view reason = reasonPhrase(response.status);
    head.reason(boost::beast::string_view(reason.data(), reason.size()));
    for (const auto& [name, value] : options.headers) head.insert(name, value);
    for (const auto& [name, value] : response.headers) head.insert(name, value);
    head.set(http::field::connection, keepAlive ? "keep-alive" : "close");
    head.set(http::field::server, "quillmere-ingest");
}

HttpRequest toRequest(http::request<http::string_body>&& message) {
    HttpRequest request;
    request.method = std::string(toStd(message.method_string()));
    request.target = std::string(toStd(message.target()));
    const auto question = request.target.find('?');
    request.path = request.target.substr(0, question);
    if (question != std::string::npos) request.rawQuery = request.target.substr(question + 1);
    request.version = message.version() == 10 ? "HTTP/1.0" : "HTTP/1.1";
    for (const auto& field : message) {
        request.headers.emplace_back(toStd(field.name_string()), toStd(field.value()));
    }
    request.body = std::move(message.body());
    return request;
}

}  // namespace

HttpSession::HttpSession(HttpServer& server, net::ip::tcp::socket socket)
    : server_(server), stream_(std::move(socket)), timer_(stream_.get_executor()) {}

HttpSession::~HttpSession() {
    if (counted_) server_.closed(this, address_);
}

void HttpSession::run() {
    error_code ignored;
    address_ = stream_.socket().remote_endpoint(ignored).address().to_string(ignored);
    counted_ = server_.opened(this, address_, weak_from_this());
    net::dispatch(stream_.get_executor(), [self = shared_from_this()] {
        if (!self->counted_) return self->refuse(503, "too many connections from this address");
        self->waitForRequest(self->server_.options_.readTimeout);
    });
}

void HttpSession::stopReading() {
    net::post(stream_.get_executor(), [self = shared_from_this()] {
        self->stopped_ = true;
        if (self->handling_) return;
        error_code ignored;
        self->stream_.socket().shutdown(net::ip::tcp::socket::shutdown_receive, ignored);
        self->stream_.cancel();
    });
}

void HttpSession::cut() {
    net::post(stream_.get_executor(), [self = shared_from_this()] { self->close(); });
}

void HttpSession::waitForRequest(std::chrono::milliseconds idle) {
    if (stopped_ || server_.stopping()) return close();
    if (buffer_.size() > 0) return readHead();
    // Until its first byte a request is only awaited; its head's deadline starts with that byte.
    arm(idle);
    stream_.async_read_some(buffer_.prepare(16 * 1024),
                            [self = shared_from_this()](error_code error, std::size_t got) {
                                self->buffer_.commit(got);
                                if (error || got == 0) return self->close();
                                self->readHead();
                            });
}

void HttpSession::readHead() {
    const HttpServerOptions& options = server_.options_;
    parser_.emplace();
    parser_->header_limit(static_cast<std::uint32_t>(options.maxHeaderBytes));
    parser_->body_limit(options.maxBodyBytes);
    arm(options.readTimeout);
    http::async_read_header(stream_, buffer_, *parser_,
                            [self = shared_from_this()](error_code error, std::size_t) { self->onHead(error); });
}

void HttpSession::onHead(error_code error) {
    if (timedOut_) return refuse(408, "the request head did not arrive in time");
    if (error == http::error::end_of_stream || error == net::error::operation_aborted || stopped_) return close();
    if (error == http::error::bad_version && namesAnotherVersion()) return refuse(505, "only HTTP/1.0 and 1.1 are served");
    if (error == http::error::header_limit) return refuse(431, "the request head is too large");
    if (error == http::error::body_limit) return refuse(413, "the request body is too large");
    if (error) return refuse(400, "malformed request: " + error.message());

    const auto& head = parser_->get();
    if (static_cast<std::size_t>(std::distance(head.begin(), head.end())) > kMaxHeaderFields)
        return refuse(431, "the request has too many header fields");
    if (head.version() != 10 && head.version() != 11) return refuse(505, "only HTTP/1.0 and 1.1 are served");
    if (!toStd(head.target()).starts_with('/')) return refuse(400, "the request target must be a path");
    // A body only by Content-Length: every other framing is one more way to disagree with a proxy.
    if (head.count(http::field::transfer_encoding) > 0) return refuse(411, "a body needs a Content-Length");
    bool expectContinue = false;
    if (const auto expect = head.find(http::field::expect); expect != head.end()) {
        if (!equalsIgnoringCase(toStd(expect->value()), "100-continue")) return refuse(417, "unknown expectation");
        expectContinue = true;
    }
    if (parser_->is_done()) return onBody({});

    const HttpServerOptions& options = server_.options_;
    const std::uint64_t length = parser_->content_length().value_or(0);
    const auto allowance = std::chrono::milliseconds(length * 1000 / std::max<std::size_t>(1, options.minBodyBytesPerSecond));
    arm(options.readTimeout + allowance);
    const auto readBody = [self = shared_from_this()] {
        http::async_read(self->stream_, self->buffer_, *self->parser_,
                         [self](error_code error, std::size_t) { self->onBody(error); });
    };
    if (!expectContinue || buffer_.size() >= length) return readBody();
    net::async_write(stream_, net::buffer(kContinue), [self = shared_from_this(), readBody](error_code error, std::size_t) {
        if (error) return self->close();
        readBody();
    });
}

bool HttpSession::namesAnotherVersion() const {
    // The parser stops at the request line without consuming it.
    const std::string_view received(static_cast<const char*>(buffer_.data().data()), buffer_.size());
    const std::string_view line = received.substr(0, received.find("\r\n"));
    const auto space = line.rfind(' ');
    const std::string_view version = space == std::string_view::npos ? "" : line.substr(space + 1);
    return version.size() == 8 && version.starts_with("HTTP/") && std::isdigit(static_cast<unsigned char>(version[5])) &&
           version[6] == '.' && std::isdigit(static_cast<unsigned char>(version[7]));
}

void HttpSession::onBody(error_code error) {
    if (timedOut_) return refuse(408, "the request body arrived too slowly");
    if (error == http::error::body_limit) return refuse(413, "the request body is too large");
    if (error || stopped_) return close();

    auto message = parser_->release();
    parser_.reset();
    const bool keepAlive = message.keep_alive();
    const bool omitBody = message.method() == http::verb::head;
    const bool http10 = message.version() == 10;
    const HttpRequest request = toRequest(std::move(message));
    handling_ = true;
    HttpResponse response = handleSafely(server_.handler_, request);
    // After a 400 nothing that follows on the connection can be trusted to be framed right.
    const bool keep = keepAlive && response.status != 400 && !server_.stopping();
    respond(std::move(response), keep, omitBody, http10);
}

void HttpSession::prepareReply(HttpResponse response, bool keepAlive, bool omitBody) {
    reply_.emplace();
    fillHead(*reply_, server_.options_, response, keepAlive);
    reply_->set(http::field::content_length, std::to_string(response.body.size()));
    if (!omitBody) reply_->body() = std::move(response.body);
    arm(server_.options_.writeTimeout);
}

void HttpSession::respond(HttpResponse response, bool keepAlive, bool omitBody, bool http10) {
    if (response.stream) return respondInPieces(std::move(response), keepAlive, omitBody, http10);
    prepareReply(std::move(response), keepAlive, omitBody);
    http::async_write(stream_, *reply_, [self = shared_from_this(), keepAlive](error_code error, std::size_t) {
        self->onWritten(error, keepAlive);
    });
}

void HttpSession::respondInPieces(HttpResponse response, bool keepAlive, bool omitBody, bool http10) {
    // HTTP/1.0 knows no chunks: there the body ends where the connection does.
    chunked_ = !http10;
    keepAlive = keepAlive && chunked_;
    pieces_ = std::move(response.stream);
    streamedHead_.emplace();
    fillHead(*streamedHead_, server_.options_, response, keepAlive);
    if (chunked_) streamedHead_->chunked(true);
    streamedHeadWriter_.emplace(*streamedHead_);
    arm(server_.options_.writeTimeout);
    http::async_write_header(stream_, *streamedHeadWriter_,
                             [self = shared_from_this(), keepAlive, omitBody](error_code error, std::size_t) {
                                 if (error) return self->close();
                                 if (omitBody) return self->onWritten({}, keepAlive);
                                 self->writeNextPiece(keepAlive);
                             });
}

void HttpSession::writeNextPiece(bool keepAlive) {
    std::optional<std::string> piece;
    try {
        do {
            piece = pieces_();
        } while (piece && piece->empty());  // an empty chunk would end the body
    } catch (...) {
        return close();
    }
    arm(server_.options_.writeTimeout);
    if (!piece) {
        if (!chunked_) return onWritten({}, false);
        return net::async_write(stream_, http::make_chunk_last(),
                                [self = shared_from_this(), keepAlive](error_code error, std::size_t) {
                                    self->onWritten(error, keepAlive);
                                });
    }
    piece_ = std::move(*piece);
    const auto next = [self = shared_from_this(), keepAlive](error_code error, std::size_t) {
        if (error) return self->close();
        self->writeNextPiece(keepAlive);
    };
    if (chunked_) return net::async_write(stream_, http::make_chunk(net::buffer(piece_)), next);
    net::async_write(stream_, net::buffer(piece_), next);
}

void HttpSession::onWritten(error_code error, bool keepAlive) {
    handling_ = false;
    reply_.reset();
    streamedHeadWriter_.reset();
    streamedHead_.reset();
    pieces_ = nullptr;
    piece_.clear();
    if (error || !keepAlive) return close();
    waitForRequest(server_.options_.idleTimeout);
}

void HttpSession::refuse(int status, std::string message) {
    handling_ = true;
    prepareReply(HttpResponse::text(status, std::move(message) + "\n"), false, false);
    http::async_write(stream_, *reply_, [self = shared_from_this()](error_code error, std::size_t) {
        self->handling_ = false;
        if (error) return self->close();
        error_code ignored;
        self->stream_.socket().shutdown(net::ip::tcp::socket::shutdown_send, ignored);
        self->arm(kDrainTime);
        self->drain();
    });
}

void HttpSession::drain() {
    if (drained_ >= kDrainLimit || stopped_) return close();
    sink_.resize(64 * 1024);
    stream_.async_read_some(net::buffer(sink_), [self = shared_from_this()](error_code error, std::size_t got) {
        self->drained_ += got;
        if (error) return self->close();
        self->drain();
    });
}

void HttpSession::arm(std::chrono::steady_clock::duration timeout) {
    timedOut_ = false;
    timer_.expires_after(timeout);
    timer_.async_wait([self = shared_from_this()](error_code error) {
        if (error) return;  // re-armed or cancelled
        self->timedOut_ = true;
        error_code ignored;
        self->stream_.socket().cancel(ignored);
    });
}

void HttpSession::close() {
    timer_.cancel();
    error_code ignored;
    stream_.socket().shutdown(net::ip::tcp::socket::shutdown_both, ignored);
    stream_.close();
}

}  // namespace qlm::ingest
