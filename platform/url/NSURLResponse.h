#pragma once
// The metadata of a response. Immutable once made, so any thread may read it.
#include <memory>
#include <optional>
#include <string>

#include "platform/foundation/NSObject.h"
#include "platform/url/NSURL.h"

namespace platform {

inline constexpr long long NSURLResponseUnknownLength = -1;

class NSURLResponse : public NSObject {
    PLATFORM_OBJC_CLASS(NSURLResponse, NSObject)
public:
    NSURLResponse(std::shared_ptr<NSURL> url, std::optional<std::string> mimeType,
                  long long expectedContentLength, std::optional<std::string> textEncodingName)
        : url_(std::move(url)),
          mimeType_(std::move(mimeType)),
          expectedContentLength_(expectedContentLength),
          textEncodingName_(std::move(textEncodingName)) {}

    static std::shared_ptr<NSURLResponse> initWithURL(std::shared_ptr<NSURL> url,
                                                      std::optional<std::string> mimeType,
                                                      long long expectedContentLength,
                                                      std::optional<std::string> textEncodingName) {
        return std::make_shared<NSURLResponse>(std::move(url), std::move(mimeType), expectedContentLength,
                                               std::move(textEncodingName));
    }

    const std::shared_ptr<NSURL>& URL() const { return url_; }
    const std::optional<std::string>& MIMEType() const { return mimeType_; }
    // NSURLResponseUnknownLength when the length is not known.
    long long expectedContentLength() const { return expectedContentLength_; }
    const std::optional<std::string>& textEncodingName() const { return textEncodingName_; }

private:
    const std::shared_ptr<NSURL> url_;
    const std::optional<std::string> mimeType_;
    const long long expectedContentLength_;
    const std::optional<std::string> textEncodingName_;
};

}  // namespace platform
