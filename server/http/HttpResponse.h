#pragma once
// A reply as a handler builds it. The server adds Content-Length, Connection and Server itself, so
// handlers never set those.
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qlm::ingest {

struct HttpResponse {
    int status = 200;
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;

    static HttpResponse text(int status, std::string body);
    static HttpResponse html(int status, std::string body);
    static HttpResponse json(int status, std::string body);
    HttpResponse& withHeader(std::string name, std::string value);
};

// The standard phrase for a status, "Unknown" for a status this server never sends.
std::string_view reasonPhrase(int status);

}  // namespace qlm::ingest
