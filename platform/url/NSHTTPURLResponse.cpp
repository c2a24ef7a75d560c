#include "platform/url/NSHTTPURLResponse.h"

#include <charconv>

#include "platform/foundation/NSString.h"
#include "platform/url/detail/CaseInsensitive.h"

namespace platform {
namespace {

std::optional<std::string> fieldValue(const NSDictionary* fields, std::string_view name) {
    if (fields == nullptr) return std::nullopt;
    for (const auto& [key, value] : *fields) {
        auto keyText = NSStringValue(key);
        if (keyText && detail::equalsIgnoringCase(*keyText, name)) return NSStringValue(value);
    }
    return std::nullopt;
}

std::string trimmed(std::string_view text) {
    const auto begin = text.find_first_not_of(" \t");
    if (begin == std::string_view::npos) return {};
    const auto end = text.find_last_not_of(" \t");
    return std::string(text.substr(begin, end - begin + 1));
}

struct ContentType {
    std::optional<std::string> mimeType;
    std::optional<std::string> encoding;
};

// "text/html; charset=UTF-8" gives the MIME type "text/html" and the encoding name "utf-8".
ContentType contentTypeOf(const NSDictionary* fields) {
    ContentType result;
    const auto field = fieldValue(fields, "Content-Type");
    if (!field) return result;
    const std::string_view text(*field);
    std::size_t at = 0;
    for (bool first = true;; first = false) {
        const auto next = text.find(';', at);
        const std::string part = trimmed(text.substr(at, next == std::string_view::npos ? next : next - at));
        if (first) {
            if (!part.empty()) result.mimeType = detail::asciiLowercased(part);
        } else if (detail::asciiLowercased(part).starts_with("charset=")) {
            std::string value = part.substr(8);
            if (value.size() >= 2 && value.front() == '"' && value.back() == '"')
                value = value.substr(1, value.size() - 2);
            result.encoding = detail::asciiLowercased(value);
        }
        if (next == std::string_view::npos) break;
        at = next + 1;
    }
    return result;
}

long long contentLength(const std::optional<std::string>& text) {
    if (!text) return NSURLResponseUnknownLength;
    const std::string value = trimmed(*text);
    long long length = 0;
    auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), length);
    if (error != std::errc() || end != value.data() + value.size() || length < 0)
        return NSURLResponseUnknownLength;
    return length;
}

}  // namespace

NSHTTPURLResponse::NSHTTPURLResponse(std::shared_ptr<NSURL> url, long statusCode,
                                     std::optional<std::string> HTTPVersion,
                                     std::shared_ptr<NSDictionary> headerFields)
    : NSURLResponse(std::move(url), contentTypeOf(headerFields.get()).mimeType,
                    contentLength(fieldValue(headerFields.get(), "Content-Length")),
                    contentTypeOf(headerFields.get()).encoding),
      statusCode_(statusCode),
      httpVersion_(std::move(HTTPVersion)),
      headerFields_(headerFields ? std::move(headerFields) : std::make_shared<NSDictionary>()) {}

std::shared_ptr<NSHTTPURLResponse> NSHTTPURLResponse::initWithURL(
    std::shared_ptr<NSURL> url, long statusCode, std::optional<std::string> HTTPVersion,
    std::shared_ptr<NSDictionary> headerFields) {
    return std::make_shared<NSHTTPURLResponse>(std::move(url), statusCode, std::move(HTTPVersion),
                                               std::move(headerFields));
}

std::optional<std::string> NSHTTPURLResponse::valueForHTTPHeaderField(std::string_view field) const {
    return fieldValue(headerFields_.get(), field);
}

std::string NSHTTPURLResponse::localizedStringForStatusCode(long statusCode) {
    switch (statusCode) {
        case 100:
            return "continue";
        case 101:
            return "switching protocols";
        case 200:
            return "no error";
        case 201:
            return "created";
        case 202:
            return "accepted";
        case 204:
            return "no content";
        case 206:
            return "partial content";
        case 301:
            return "moved permanently";
        case 302:
            return "found";
        case 303:
            return "see other";
        case 304:
            return "not modified";
        case 307:
            return "temporarily redirected";
        case 308:
            return "permanent redirect";
        case 400:
            return "bad request";
        case 401:
            return "unauthorized";
        case 403:
            return "forbidden";
        case 404:
            return "not found";
        case 405:
            return "method not allowed";
        case 408:
            return "request timed out";
        case 409:
            return "conflict";
        case 410:
            return "no longer exists";
        case 413:
            return "request too large";
        case 429:
            return "too many requests";
        case 500:
            return "internal server error";
        case 501:
            return "unimplemented";
        case 502:
            return "bad gateway";
        case 503:
            return "service unavailable";
        case 504:
            return "gateway timed out";
        default:
            break;
    }
    if (statusCode >= 100 && statusCode < 200) return "informational";
    if (statusCode >= 200 && statusCode < 300) return "success";
    if (statusCode >= 300 && statusCode < 400) return "redirected";
    if (statusCode >= 400 && statusCode < 500) return "client error";
    return "server error";
}

}  // namespace platform
