#pragma once
// Parsing of an HTTP/1.1 request head and the decisions that follow from it (body length,
// 100-continue, keep-alive). Pure functions of their input, so they are fuzzed and tested without a
// socket. Strict on purpose: anything ambiguous (bare CR or LF, folded lines, conflicting lengths,
// Transfer-Encoding) is refused rather than guessed at, since guessing is how requests get smuggled.
#include <cstddef>
#include <string>
#include <string_view>
#include <variant>

#include "server/http/HttpRequest.h"

namespace qlm::ingest {

// The status to answer with when a request is refused; the connection is then closed.
struct HttpError {
    int status = 400;
    std::string message;
};

struct BodyFraming {
    std::size_t contentLength = 0;
    bool expectContinue = false;  // the client waits for "100 Continue" before sending the body
};

inline constexpr std::size_t kMaxHeaderFields = 100;

// `head` is everything before the blank line that ends the head, lines separated by CRLF.
// The result's body is empty.
std::variant<HttpRequest, HttpError> parseRequestHead(std::string_view head);

// Request bodies come only with Content-Length; chunked uploads get 411, over-long ones 413.
std::variant<BodyFraming, HttpError> bodyFraming(const HttpRequest& request, std::size_t maxBodyBytes);

// HTTP/1.1 keeps the connection unless told "close"; HTTP/1.0 only when asked for "keep-alive".
bool wantsKeepAlive(const HttpRequest& request);

}  // namespace qlm::ingest
