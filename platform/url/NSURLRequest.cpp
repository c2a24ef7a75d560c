#include "platform/url/NSURLRequest.h"

#include "platform/url/NSMutableURLRequest.h"
#include "platform/url/detail/CaseInsensitive.h"

namespace platform {

NSURLRequest::NSURLRequest(std::shared_ptr<NSURL> url, NSURLRequestCachePolicy cachePolicy,
                           double timeoutInterval)
    : url_(std::move(url)), cachePolicy_(cachePolicy), timeoutInterval_(timeoutInterval) {}

NSURLRequest::NSURLRequest(const NSURLRequest& other)
    : NSObject(),
      url_(other.url_),
      cachePolicy_(other.cachePolicy_),
      timeoutInterval_(other.timeoutInterval_),
      method_(other.method_),
      headers_(other.headers_),
      body_(other.body_),
      bodyStream_(other.bodyStream_),
      properties_(other.properties_) {}

std::shared_ptr<NSURLRequest> NSURLRequest::requestWithURL(std::shared_ptr<NSURL> url) {
    return std::make_shared<NSURLRequest>(std::move(url));
}

std::shared_ptr<NSURLRequest> NSURLRequest::requestWithURL(std::shared_ptr<NSURL> url,
                                                           NSURLRequestCachePolicy cachePolicy,
                                                           double timeoutInterval) {
    return std::make_shared<NSURLRequest>(std::move(url), cachePolicy, timeoutInterval);
}

std::optional<std::map<std::string, std::string>> NSURLRequest::allHTTPHeaderFields() const {
    if (!headers_) return std::nullopt;
    return std::map<std::string, std::string>(headers_->begin(), headers_->end());
}

std::optional<std::string> NSURLRequest::valueForHTTPHeaderField(std::string_view field) const {
    if (!headers_) return std::nullopt;
    for (const auto& [name, value] : *headers_) {
        if (detail::equalsIgnoringCase(name, field)) return value;
    }
    return std::nullopt;
}

NSURLRequest::HeaderFields::iterator NSURLRequest::findField(std::string_view field) {
    if (!headers_) headers_.emplace();
    auto it = headers_->begin();
    while (it != headers_->end() && !detail::equalsIgnoringCase(it->first, field)) ++it;
    return it;
}

std::shared_ptr<NSURLRequest> NSURLRequest::copy() const {
    // An immutable request is its own copy; a mutable one is copied into an immutable one.
    if (dynamic_cast<const NSMutableURLRequest*>(this) == nullptr) {
        if (auto self = std::const_pointer_cast<NSObject>(weak_from_this().lock())) {
            return std::dynamic_pointer_cast<NSURLRequest>(self);
        }
    }
    return std::shared_ptr<NSURLRequest>(new NSURLRequest(*this));
}

std::shared_ptr<NSMutableURLRequest> NSURLRequest::mutableCopy() const {
    return std::make_shared<NSMutableURLRequest>(*this);
}

std::string NSURLRequest::description() const {
    return "<" + NSStringFromClass(objcClass()) + "> { URL: " + (url_ ? url_->absoluteString() : "(null)") +
           " }";
}

}  // namespace platform
