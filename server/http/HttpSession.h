#pragma once
// One accepted connection of an HttpServer, served asynchronously on the connection's own strand:
// requests one after another (keep-alive and pipelining) until the client closes, a request is
// refused, a deadline passes or the server stops. Owned by its pending operations (shared_ptr);
// the server sees it only through a weak_ptr. Beast's headers stay in this header and the two
// files that include it.
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/serializer.hpp>
#include <boost/beast/http/string_body.hpp>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace qlm::ingest {

class HttpServer;
struct HttpResponse;

struct HttpServerIo {
    boost::asio::io_context context;
    boost::asio::ip::tcp::acceptor acceptor{context};
};

class HttpSession : public std::enable_shared_from_this<HttpSession> {
public:
    HttpSession(HttpServer& server, boost::asio::ip::tcp::socket socket);
    ~HttpSession();

    void run();
    // From any thread: ends reading at once; a request being handled still gets its answer.
    void stopReading();
    // From any thread: cuts the connection.
    void cut();

private:
    using Parser = boost::beast::http::request_parser<boost::beast::http::string_body>;
    using Reply = boost::beast::http::response<boost::beast::http::string_body>;
    using StreamedHead = boost::beast::http::response<boost::beast::http::empty_body>;
    using StreamedHeadWriter = boost::beast::http::response_serializer<boost::beast::http::empty_body>;

    void waitForRequest(std::chrono::milliseconds idle);
    void readHead();
    void onHead(boost::beast::error_code error);
    void onBody(boost::beast::error_code error);
    // After a bad version: whether the request line names one ("HTTP/2.0"), which is answered 505.
    bool namesAnotherVersion() const;
    // Puts the reply into reply_ with the server's own fields, and starts the write deadline.
    void prepareReply(HttpResponse response, bool keepAlive, bool omitBody);
    void respond(HttpResponse response, bool keepAlive, bool omitBody, bool http10);
    // A reply whose body comes from response.stream: the head, then a piece at a time, each write
    // under the write deadline.
    void respondInPieces(HttpResponse response, bool keepAlive, bool omitBody, bool http10);
    void writeNextPiece(bool keepAlive);
    void onWritten(boost::beast::error_code error, bool keepAlive);
    // Answers, then closes: shuts down sending and reads what the client still sends for a short
    // while, so the reply is not destroyed by a reset before the client has read it.
    void refuse(int status, std::string message);
    void drain();
    void close();
    // Our own deadlines, not the stream's: a stream that times out closes its socket, and a 408
    // could no longer be sent. Expiry cancels the pending operation and sets timedOut_.
    void arm(std::chrono::steady_clock::duration timeout);

    HttpServer& server_;
    boost::beast::tcp_stream stream_;  // used on the strand only, like every member below
    boost::asio::steady_timer timer_;
    boost::beast::flat_buffer buffer_;
    std::optional<Parser> parser_;
    std::optional<Reply> reply_;
    std::optional<StreamedHead> streamedHead_;
    std::optional<StreamedHeadWriter> streamedHeadWriter_;
    std::function<std::optional<std::string>()> pieces_;  // of the reply being streamed
    std::string piece_;                                   // the piece being written
    bool chunked_ = false;                                // the streamed reply goes out in chunks
    std::string address_;
    std::string sink_;
    std::size_t drained_ = 0;
    bool counted_ = false;  // opened() accepted it, so closed() must be told
    bool handling_ = false;  // between a complete request and its reply written
    bool stopped_ = false;   // stopReading() came
    bool timedOut_ = false;  // the armed deadline passed
};

}  // namespace qlm::ingest
