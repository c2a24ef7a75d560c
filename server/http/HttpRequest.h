#pragma once
// One HTTP/1.1 request as the server hands it to a handler: a plain value, owned by the caller.
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qlm::ingest {

struct HttpRequest {
    std::string method;    // as sent, case kept ("GET", "POST")
    std::string target;    // the request target as on the request line
    std::string path;      // the target up to '?', still percent-encoded
    std::string rawQuery;  // after '?', still percent-encoded; empty when there is none
    std::string version;   // "HTTP/1.1" or "HTTP/1.0"
    std::vector<std::pair<std::string, std::string>> headers;  // in arrival order, values trimmed
    std::string body;                                          // empty when the request had none

    // The value of the first field of that name, compared without regard to case.
    std::optional<std::string_view> header(std::string_view name) const;
};

bool equalsIgnoringCase(std::string_view a, std::string_view b);

}  // namespace qlm::ingest
