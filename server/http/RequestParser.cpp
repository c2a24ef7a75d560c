#include "server/http/RequestParser.h"

#include <cctype>

namespace qlm::ingest {

namespace {

bool isTokenChar(unsigned char c) {
    if (std::isalnum(c)) return true;
    switch (c) {
        case '!':
        case '#':
        case '$':
        case '%':
        case '&':
        case '\'':
        case '*':
        case '+':
        case '-':
        case '.':
        case '^':
        case '_':
        case '`':
        case '|':
        case '~':
            return true;
        default:
            return false;
    }
}

bool isToken(std::string_view text) {
    if (text.empty()) return false;
    for (unsigned char c : text) {
        if (!isTokenChar(c)) return false;
    }
    return true;
}

// Visible ASCII and any byte above it; identifiers in the target are not escaped by every client.
bool isTargetChar(unsigned char c) {
    return c > 0x20 && c != 0x7F;
}

bool isFieldValueChar(unsigned char c) {
    return c == '\t' || (c >= 0x20 && c != 0x7F);
}

std::string_view trim(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
    return text;
}

HttpError bad(std::string message) {
    return HttpError{400, std::move(message)};
}

std::variant<HttpRequest, HttpError> parseRequestLine(std::string_view line) {
    const std::size_t firstSpace = line.find(' ');
    const std::size_t lastSpace = line.rfind(' ');
    if (firstSpace == std::string_view::npos || firstSpace == lastSpace) return bad("malformed request line");
    HttpRequest request;
    request.method = std::string(line.substr(0, firstSpace));
    request.target = std::string(line.substr(firstSpace + 1, lastSpace - firstSpace - 1));
    request.version = std::string(line.substr(lastSpace + 1));
    if (!isToken(request.method) || request.method.size() > 32) return bad("malformed method");
    if (request.target.empty() || request.target.front() != '/') return bad("the target must be a path");
    for (unsigned char c : request.target) {
        if (!isTargetChar(c)) return bad("malformed target");
    }
    if (request.version != "HTTP/1.1" && request.version != "HTTP/1.0") {
        if (request.version.starts_with("HTTP/")) return HttpError{505, "only HTTP/1.0 and HTTP/1.1"};
        return bad("malformed version");
    }
    const std::size_t question = request.target.find('?');
    request.path = request.target.substr(0, question);
    if (question != std::string::npos) request.rawQuery = request.target.substr(question + 1);
    return request;
}

bool parseDecimal(std::string_view text, std::size_t& value) {
    if (text.empty() || text.size() > 18) return false;
    value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return false;
        value = value * 10 + static_cast<std::size_t>(c - '0');
    }
    return true;
}

}  // namespace

std::variant<HttpRequest, HttpError> parseRequestHead(std::string_view head) {
    for (char c : head) {
        if (c == '\0') return bad("NUL in the request head");
    }
    std::size_t lineEnd = head.find("\r\n");
    const std::string_view requestLine = head.substr(0, lineEnd);
    if (requestLine.find_first_of("\r\n") != std::string_view::npos) return bad("bare CR or LF");
    auto parsed = parseRequestLine(requestLine);
    if (std::holds_alternative<HttpError>(parsed)) return parsed;
    HttpRequest& request = std::get<HttpRequest>(parsed);

    while (lineEnd != std::string_view::npos) {
        const std::size_t start = lineEnd + 2;
        lineEnd = head.find("\r\n", start);
        const std::string_view line =
            head.substr(start, lineEnd == std::string_view::npos ? std::string_view::npos : lineEnd - start);
        if (line.find_first_of("\r\n") != std::string_view::npos) return bad("bare CR or LF");
        if (line.empty()) return bad("empty header line inside the head");
        if (line.front() == ' ' || line.front() == '\t') return bad("folded header lines are not accepted");
        const std::size_t colon = line.find(':');
        if (colon == std::string_view::npos) return bad("header line without ':'");
        const std::string_view name = line.substr(0, colon);
        if (!isToken(name)) return bad("malformed header name");
        const std::string_view value = trim(line.substr(colon + 1));
        for (unsigned char c : value) {
            if (!isFieldValueChar(c)) return bad("control character in a header value");
        }
        if (request.headers.size() == kMaxHeaderFields) return HttpError{431, "too many header fields"};
        request.headers.emplace_back(std::string(name), std::string(value));
    }
    return parsed;
}

std::variant<BodyFraming, HttpError> bodyFraming(const HttpRequest& request, std::size_t maxBodyBytes) {
    BodyFraming framing;
    bool sawLength = false;
    for (const auto& [name, value] : request.headers) {
        if (equalsIgnoringCase(name, "Transfer-Encoding")) {
            return HttpError{411, "send the body with Content-Length; Transfer-Encoding is not accepted"};
        }
        if (equalsIgnoringCase(name, "Content-Length")) {
            std::size_t length = 0;
            if (!parseDecimal(value, length)) return bad("malformed Content-Length");
            if (sawLength && length != framing.contentLength) return bad("conflicting Content-Length");
            framing.contentLength = length;
            sawLength = true;
        }
    }
    if (framing.contentLength > maxBodyBytes) {
        return HttpError{413, "the body is larger than " + std::to_string(maxBodyBytes) + " bytes"};
    }
    if (auto expect = request.header("Expect")) {
        if (!equalsIgnoringCase(*expect, "100-continue")) return HttpError{417, "unknown expectation"};
        framing.expectContinue = request.version == "HTTP/1.1";
    }
    return framing;
}

bool wantsKeepAlive(const HttpRequest& request) {
    const auto connection = request.header("Connection");
    if (request.version == "HTTP/1.0") return connection && equalsIgnoringCase(*connection, "keep-alive");
    return !(connection && equalsIgnoringCase(*connection, "close"));
}

}  // namespace qlm::ingest
