#include "capture/network/NetworkEvents.h"

#include <optional>

#include "capture/network/JsonValue.h"
#include "platform/foundation/NSString.h"

namespace quillmere {
namespace {

std::string reqIdText(int64_t reqID) {
    return "ios-" + std::to_string(reqID);
}

std::optional<qm::utils::Value> bodyValue(const std::shared_ptr<platform::NSData>& body) {
    // Bytes that aren't UTF-8 have no JSON form: none.
    return body ? jsonValue(std::string(body->view())) : std::nullopt;
}

template <class Map>
void fillHeaders(const std::optional<std::map<std::string, std::string>>& headers, Map& out) {
    if (!headers) return;
    for (const auto& [name, value] : *headers) {
        if (platform::NSStringIsValidUTF8(name) && platform::NSStringIsValidUTF8(value)) out[name] = value;
    }
}

std::string urlText(const std::optional<std::string>& url) {
    return url && platform::NSStringIsValidUTF8(*url) ? *url : std::string();
}

}  // namespace

qm::network::RequestEvent makeRequestEvent(const Request& request) {
    qm::network::RequestEvent event;
    event.set_reqid(reqIdText(request.reqID()));
    event.set_url(urlText(request.url()));
    fillHeaders(request.headers(), *event.mutable_headers());
    if (auto body = bodyValue(request.body())) *event.mutable_body() = std::move(*body);
    event.set_method(methodTypeFrom(request.method()));
    return event;
}

qm::network::ResponseEvent makeResponseEvent(const Response& response, double elapsedSeconds) {
    qm::network::ResponseEvent event;
    event.set_reqid(reqIdText(response.reqID()));
    event.set_status(response.status());
    fillHeaders(response.headers(), *event.mutable_headers());
    if (auto body = bodyValue(response.body())) *event.mutable_body() = std::move(*body);
    event.set_url(urlText(response.url()));
    event.set_method(methodTypeFrom(response.method()));
    // Divided, not multiplied: the field has always been sent in these units.
    event.set_duration(elapsedSeconds / 1000.0);
    return event;
}

qm::network::MethodType methodTypeFrom(const std::string& text) {
    // The wire's names are the methods' own, compared exactly; anything else counts as GET.
    qm::network::MethodType type = qm::network::GET;
    qm::network::MethodType_Parse(text, &type);
    return type;
}

}  // namespace quillmere
