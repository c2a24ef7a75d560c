#pragma once
// An HTTP response: status code and header fields. Immutable once made.
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/foundation/NSDictionary.h"
#include "platform/url/NSURLResponse.h"

namespace platform {

class NSHTTPURLResponse : public NSURLResponse {
    PLATFORM_OBJC_CLASS(NSHTTPURLResponse, NSURLResponse)
public:
    // `headerFields` may be null. Its values need not all be strings: the platform takes what it is
    // given, and so does this. MIME type, text encoding and expected length come from the
    // Content-Type and Content-Length fields when those are strings.
    static std::shared_ptr<NSHTTPURLResponse> initWithURL(std::shared_ptr<NSURL> url, long statusCode,
                                                          std::optional<std::string> HTTPVersion,
                                                          std::shared_ptr<NSDictionary> headerFields);

    NSHTTPURLResponse(std::shared_ptr<NSURL> url, long statusCode, std::optional<std::string> HTTPVersion,
                      std::shared_ptr<NSDictionary> headerFields);

    long statusCode() const { return statusCode_; }
    // Never null; empty when the response was made without fields.
    const std::shared_ptr<NSDictionary>& allHeaderFields() const { return headerFields_; }
    // The field's value when it is a string, its name compared without regard to case.
    std::optional<std::string> valueForHTTPHeaderField(std::string_view field) const;
    const std::optional<std::string>& HTTPVersion() const { return httpVersion_; }

    // The platform's text for a status code ("not found" for 404), "server error" when unknown.
    static std::string localizedStringForStatusCode(long statusCode);

private:
    const long statusCode_;
    const std::optional<std::string> httpVersion_;
    const std::shared_ptr<NSDictionary> headerFields_;
};

}  // namespace platform
