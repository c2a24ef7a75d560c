#pragma once
// A reply as a handler builds it. The server adds Content-Length (or Transfer-Encoding), Connection
// and Server itself, so handlers never set those.
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qlm::ingest {

struct HttpResponse {
    int status = 200;
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;
    // For a body too large to hold at once, instead of `body`: called again and again on the
    // connection's thread, each time for the next piece, until it returns nullopt. The reply then
    // goes out chunked (to an HTTP/1.0 client, ended by closing the connection). What it throws
    // cuts the connection, which tells the client the body is incomplete: the status is sent.
    std::function<std::optional<std::string>()> stream{};

    static HttpResponse text(int status, std::string body);
    static HttpResponse html(int status, std::string body);
    static HttpResponse json(int status, std::string body);
    HttpResponse& withHeader(std::string name, std::string value);
};

// The standard phrase for a status (RFC 9110's and a few more), "Unknown" for one it lacks. The
// server sends only some; exports of recorded exchanges name the others.
std::string_view reasonPhrase(int status);

}  // namespace qlm::ingest
