#pragma once
// URL requests. An NSURLRequest does not change once made, so any thread may read it; an
// NSMutableURLRequest belongs to one thread at a time, as on the platform. Copies carry every
// field, the body stream (shared, not duplicated) and the properties protocols set on them.
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/foundation/NSData.h"
#include "platform/foundation/NSObject.h"
#include "platform/url/NSInputStream.h"
#include "platform/url/NSURL.h"

namespace platform {

class NSMutableURLRequest;
class NSURLProtocol;

enum NSURLRequestCachePolicy : unsigned long {
    NSURLRequestUseProtocolCachePolicy = 0,
    NSURLRequestReloadIgnoringLocalCacheData = 1,
    NSURLRequestReturnCacheDataElseLoad = 2,
    NSURLRequestReturnCacheDataDontLoad = 3,
    NSURLRequestReloadIgnoringLocalAndRemoteCacheData = 4,
    NSURLRequestReloadRevalidatingCacheData = 5,
};

class NSURLRequest : public NSObject {
    PLATFORM_OBJC_CLASS(NSURLRequest, NSObject)
public:
    static constexpr double kDefaultTimeoutInterval = 60.0;

    explicit NSURLRequest(std::shared_ptr<NSURL> url,
                          NSURLRequestCachePolicy cachePolicy = NSURLRequestUseProtocolCachePolicy,
                          double timeoutInterval = kDefaultTimeoutInterval);

    static std::shared_ptr<NSURLRequest> requestWithURL(std::shared_ptr<NSURL> url);
    static std::shared_ptr<NSURLRequest> requestWithURL(std::shared_ptr<NSURL> url,
                                                        NSURLRequestCachePolicy cachePolicy,
                                                        double timeoutInterval);

    const std::shared_ptr<NSURL>& URL() const { return url_; }  // may be null
    NSURLRequestCachePolicy cachePolicy() const { return cachePolicy_; }
    double timeoutInterval() const { return timeoutInterval_; }
    const std::string& HTTPMethod() const { return method_; }
    // nullopt until a header field is set, as on the platform.
    std::optional<std::map<std::string, std::string>> allHTTPHeaderFields() const;
    // The value of a field, its name compared without regard to case.
    std::optional<std::string> valueForHTTPHeaderField(std::string_view field) const;
    const std::shared_ptr<NSData>& HTTPBody() const { return body_; }                     // may be null
    const std::shared_ptr<NSInputStream>& HTTPBodyStream() const { return bodyStream_; }  // may be null

    std::shared_ptr<NSURLRequest> copy() const;
    std::shared_ptr<NSMutableURLRequest> mutableCopy() const;

    std::string description() const override;

protected:
    NSURLRequest(const NSURLRequest& other);

    // Fields in the order they were first set; names keep the spelling first given.
    using HeaderFields = std::vector<std::pair<std::string, std::string>>;
    HeaderFields::iterator findField(std::string_view field);

    std::shared_ptr<NSURL> url_;
    NSURLRequestCachePolicy cachePolicy_;
    double timeoutInterval_;
    std::string method_ = "GET";
    std::optional<HeaderFields> headers_;
    std::shared_ptr<NSData> body_;
    std::shared_ptr<NSInputStream> bodyStream_;

private:
    friend class NSURLProtocol;  // reads and writes the protocol properties
    std::map<std::string, id> properties_;
};

}  // namespace platform
