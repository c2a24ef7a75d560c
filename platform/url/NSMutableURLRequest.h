#pragma once
// A request that can be changed; see NSURLRequest for threading.
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "platform/url/NSURLRequest.h"

namespace platform {

class NSMutableURLRequest : public NSURLRequest {
    PLATFORM_OBJC_CLASS(NSMutableURLRequest, NSURLRequest)
public:
    using NSURLRequest::NSURLRequest;
    explicit NSMutableURLRequest(const NSURLRequest& other) : NSURLRequest(other) {}

    static std::shared_ptr<NSMutableURLRequest> requestWithURL(std::shared_ptr<NSURL> url);
    static std::shared_ptr<NSMutableURLRequest> requestWithURL(std::shared_ptr<NSURL> url,
                                                               NSURLRequestCachePolicy cachePolicy,
                                                               double timeoutInterval);

    void setURL(std::shared_ptr<NSURL> url) { url_ = std::move(url); }
    void setCachePolicy(NSURLRequestCachePolicy policy) { cachePolicy_ = policy; }
    void setTimeoutInterval(double seconds) { timeoutInterval_ = seconds; }
    void setHTTPMethod(std::string method);
    // Sets a field, replacing any value under the same name in any case; nullopt removes it.
    void setValue(std::optional<std::string> value, std::string_view field);
    // Appends to a field's value with a comma, or sets it.
    void addValue(std::string value, std::string_view field);
    void setAllHTTPHeaderFields(std::optional<std::map<std::string, std::string>> fields);
    // Setting a body clears the body stream, and the other way round.
    void setHTTPBody(std::shared_ptr<NSData> body);
    void setHTTPBodyStream(std::shared_ptr<NSInputStream> stream);
};

}  // namespace platform
