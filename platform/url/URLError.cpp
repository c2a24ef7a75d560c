#include "platform/url/URLError.h"

#include "platform/foundation/NSString.h"

namespace platform {
namespace {

const char* descriptionFor(long code) {
    switch (code) {
        case NSURLErrorCancelled:
            return "cancelled";
        case NSURLErrorBadURL:
            return "bad URL";
        case NSURLErrorTimedOut:
            return "The request timed out.";
        case NSURLErrorUnsupportedURL:
            return "unsupported URL";
        case NSURLErrorCannotFindHost:
            return "A server with the specified hostname could not be found.";
        case NSURLErrorCannotConnectToHost:
            return "Could not connect to the server.";
        case NSURLErrorNetworkConnectionLost:
            return "The network connection was lost.";
        case NSURLErrorHTTPTooManyRedirects:
            return "too many HTTP redirects";
        case NSURLErrorBadServerResponse:
            return "bad server response";
        case NSURLErrorUserCancelledAuthentication:
            return "cancelled";
        case NSURLErrorCannotDecodeContentData:
            return "cannot decode content data";
        case NSURLErrorRequestBodyStreamExhausted:
            return "request body stream exhausted";
        case NSURLErrorSecureConnectionFailed:
            return "An SSL error has occurred and a secure connection to the server cannot be made.";
        default:
            return "unknown error";
    }
}

}  // namespace

std::shared_ptr<NSError> NSURLErrorWithCode(long code, const std::shared_ptr<NSURL>& failingURL) {
    auto info = std::make_shared<NSMutableDictionary>();
    info->setObjectForKey(NSStr(descriptionFor(code)), NSLocalizedDescriptionKey);
    if (failingURL) {
        info->setObjectForKey(NSStr(failingURL->absoluteString()), NSURLErrorFailingURLStringErrorKey);
        info->setObjectForKey(failingURL, NSURLErrorFailingURLErrorKey);
    }
    return NSError::errorWithDomain(NSURLErrorDomain, code, std::move(info));
}

}  // namespace platform
