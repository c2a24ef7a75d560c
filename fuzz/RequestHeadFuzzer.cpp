// Feeds arbitrary request heads to the parser every connection uses. An accepted head must have
// the shape the rest of the server relies on.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "server/http/RequestParser.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace qlm::ingest;
    auto parsed = parseRequestHead(std::string_view(reinterpret_cast<const char*>(data), size));
    if (auto* error = std::get_if<HttpError>(&parsed)) {
        if (error->status < 400 || error->status > 599 || error->message.empty()) __builtin_trap();
        return 0;
    }
    const HttpRequest& request = std::get<HttpRequest>(parsed);
    if (request.target.empty() || request.target.front() != '/' ||
        !request.target.starts_with(request.path)) {
        __builtin_trap();
    }
    if (request.headers.size() > kMaxHeaderFields) __builtin_trap();
    auto framing = bodyFraming(request, 1024);
    if (auto* body = std::get_if<BodyFraming>(&framing); body != nullptr && body->contentLength > 1024) {
        __builtin_trap();
    }
    (void)wantsKeepAlive(request);
    return 0;
}
