#include "capture/network/Response.h"

#include <limits>

#include "platform/foundation/NSString.h"

namespace quillmere {

std::shared_ptr<Response> responseFrom(const std::shared_ptr<platform::NSHTTPURLResponse>& urlResponse,
                                       const platform::NSURLRequest& urlRequest,
                                       std::shared_ptr<platform::NSData> body, int64_t reqID) {
    std::shared_ptr<platform::NSURL> url = urlResponse ? urlResponse->URL() : nullptr;
    if (!url) url = urlRequest.URL();
    if (!url) return nullptr;

    uint32_t status = 0;
    if (urlResponse) {
        // Codes from a server are three digits; anything else a protocol makes up stays in range.
        const long code = urlResponse->statusCode();
        if (code > 0 && static_cast<unsigned long>(code) <= std::numeric_limits<uint32_t>::max())
            status = static_cast<uint32_t>(code);
    }
    auto response =
        std::make_shared<Response>(Response::ConstructionKey(), urlRequest.HTTPMethod(), reqID, status);
    response->setUrl(url->absoluteString());
    std::optional<Response::Headers> headers;
    if (urlResponse) headers = stringHeadersFrom(urlResponse->allHeaderFields());
    response->setHeaders(headers ? std::move(headers) : Response::Headers{});
    response->setBody(std::move(body));
    return response;
}

std::optional<std::map<std::string, std::string>> stringHeadersFrom(
    const std::shared_ptr<platform::NSDictionary>& fields) {
    if (!fields) return std::nullopt;
    std::map<std::string, std::string> headers;
    for (const auto& [key, value] : *fields) {
        auto name = platform::NSStringValue(key);
        auto text = platform::NSStringValue(value);
        if (!name || !text) return std::nullopt;
        headers.emplace(std::move(*name), std::move(*text));
    }
    return headers;
}

std::shared_ptr<Response> Response::detachedCopy(const std::shared_ptr<platform::NSData>& ownBody) const {
    auto copy = std::make_shared<Response>(ConstructionKey(), method_, reqID_, status_);
    copy->url_ = url_;
    copy->headers_ = headers_;
    copy->body_ =
        body_ == ownBody || !body_ ? body_ : platform::NSData::dataWithBytes(body_->bytes(), body_->length());
    return copy;
}

}  // namespace quillmere
