#pragma once
// Errors: a domain, a code and a user-info dictionary.
#include <memory>
#include <string>

#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSObject.h"

namespace platform {

inline constexpr const char* NSURLErrorDomain = "NSURLErrorDomain";
inline constexpr const char* NSCocoaErrorDomain = "NSCocoaErrorDomain";
inline constexpr const char* NSPOSIXErrorDomain = "NSPOSIXErrorDomain";
inline constexpr const char* NSLocalizedDescriptionKey = "NSLocalizedDescription";
inline constexpr const char* NSURLErrorFailingURLStringErrorKey = "NSErrorFailingURLStringKey";
// The failing URL as an NSURL, beside NSURLErrorFailingURLStringErrorKey's text.
inline constexpr const char* NSURLErrorFailingURLErrorKey = "NSErrorFailingURLKey";

// The URL loading system's error codes that the stand-in reports.
enum NSURLErrorCode : long {
    NSURLErrorUnknown = -1,
    NSURLErrorCancelled = -999,
    NSURLErrorBadURL = -1000,
    NSURLErrorTimedOut = -1001,
    NSURLErrorUnsupportedURL = -1002,
    NSURLErrorCannotFindHost = -1003,
    NSURLErrorCannotConnectToHost = -1004,
    NSURLErrorNetworkConnectionLost = -1005,
    NSURLErrorHTTPTooManyRedirects = -1007,
    NSURLErrorBadServerResponse = -1011,
    NSURLErrorUserCancelledAuthentication = -1012,
    NSURLErrorCannotDecodeContentData = -1016,
    NSURLErrorRequestBodyStreamExhausted = -1021,
    NSURLErrorSecureConnectionFailed = -1200,
};

// The Cocoa error codes used for JSON and property-list failures.
enum NSCocoaErrorCode : long {
    NSPropertyListReadCorruptError = 3840,
    NSPropertyListWriteInvalidError = 3852,
};

class NSError : public NSObject {
    PLATFORM_OBJC_CLASS(NSError, NSObject)
public:
    NSError(std::string domain, long code, std::shared_ptr<NSDictionary> userInfo)
        : domain_(std::move(domain)), code_(code), userInfo_(std::move(userInfo)) {}

    static std::shared_ptr<NSError> errorWithDomain(std::string domain, long code,
                                                    std::shared_ptr<NSDictionary> userInfo = nullptr);
    // An error whose localizedDescription is `description`.
    static std::shared_ptr<NSError> errorWithDescription(std::string domain, long code, std::string description);

    const std::string& domain() const { return domain_; }
    long code() const { return code_; }
    const std::shared_ptr<NSDictionary>& userInfo() const { return userInfo_; }
    // The user-info's NSLocalizedDescription when it is a string; else the platform's generic text.
    std::string localizedDescription() const;
    // "Error Domain=<domain> Code=<code> \"<localizedDescription>\"", as the platform prints errors.
    std::string description() const override;

private:
    std::string domain_;
    long code_;
    std::shared_ptr<NSDictionary> userInfo_;  // may be null
};

}  // namespace platform
