#include "platform/url/NSMutableURLRequest.h"

namespace platform {

std::shared_ptr<NSMutableURLRequest> NSMutableURLRequest::requestWithURL(std::shared_ptr<NSURL> url) {
    return std::make_shared<NSMutableURLRequest>(std::move(url));
}

std::shared_ptr<NSMutableURLRequest> NSMutableURLRequest::requestWithURL(std::shared_ptr<NSURL> url,
                                                                         NSURLRequestCachePolicy cachePolicy,
                                                                         double timeoutInterval) {
    return std::make_shared<NSMutableURLRequest>(std::move(url), cachePolicy, timeoutInterval);
}

void NSMutableURLRequest::setHTTPMethod(std::string method) {
    if (!method.empty()) method_ = std::move(method);
}

void NSMutableURLRequest::setValue(std::optional<std::string> value, std::string_view field) {
    if (!value && !headers_) return;
    auto it = findField(field);
    if (!value) {
        if (it != headers_->end()) headers_->erase(it);
    } else if (it == headers_->end()) {
        headers_->emplace_back(std::string(field), std::move(*value));
    } else {
        it->second = std::move(*value);
    }
}

void NSMutableURLRequest::addValue(std::string value, std::string_view field) {
    auto it = findField(field);
    if (it == headers_->end()) {
        headers_->emplace_back(std::string(field), std::move(value));
    } else {
        it->second += "," + value;
    }
}

void NSMutableURLRequest::setAllHTTPHeaderFields(std::optional<std::map<std::string, std::string>> fields) {
    if (!fields) {
        headers_.reset();
        return;
    }
    headers_.emplace();
    for (auto& [name, value] : *fields) setValue(value, name);
}

void NSMutableURLRequest::setHTTPBody(std::shared_ptr<NSData> body) {
    body_ = std::move(body);
    if (body_) bodyStream_.reset();
}

void NSMutableURLRequest::setHTTPBodyStream(std::shared_ptr<NSInputStream> stream) {
    bodyStream_ = std::move(stream);
    if (bodyStream_) body_.reset();
}

}  // namespace platform
