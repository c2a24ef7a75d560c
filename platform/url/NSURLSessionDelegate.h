#pragma once
// A session's delegate, as a C++ class whose default methods do what the platform does for a
// delegate that does not implement them. The session calls every method on its delegate queue, one
// at a time. A completion handler may be called on any thread, later or at once, and only once.
//
// The C++ names map to the platform's selectors:
//   URLSession_didBecomeInvalidWithError                URLSession:didBecomeInvalidWithError:
//   URLSession_didReceiveChallenge_completionHandler    URLSession:didReceiveChallenge:completionHandler:
//   URLSessionDidFinishEventsForBackgroundURLSession    URLSessionDidFinishEventsForBackgroundURLSession:
#include <functional>
#include <memory>

#include "platform/foundation/NSError.h"
#include "platform/foundation/NSObject.h"
#include "platform/url/NSURLAuthenticationChallenge.h"
#include "platform/url/NSURLCredential.h"

namespace platform {

class NSURLSession;

enum NSURLSessionAuthChallengeDisposition : long {
    NSURLSessionAuthChallengeUseCredential = 0,
    NSURLSessionAuthChallengePerformDefaultHandling = 1,
    NSURLSessionAuthChallengeCancelAuthenticationChallenge = 2,
    NSURLSessionAuthChallengeRejectProtectionSpace = 3,
};

using NSURLSessionChallengeCompletion =
    std::function<void(NSURLSessionAuthChallengeDisposition, std::shared_ptr<NSURLCredential>)>;

class NSURLSessionDelegate : public virtual NSObject {
public:
    // The last call a delegate gets from a session; the session lets go of it afterwards.
    virtual void URLSession_didBecomeInvalidWithError(const std::shared_ptr<NSURLSession>& session,
                                                      const std::shared_ptr<NSError>& error) {
        (void)session;
        (void)error;
    }

    // Default: completion(PerformDefaultHandling, nullptr).
    virtual void URLSession_didReceiveChallenge_completionHandler(
        const std::shared_ptr<NSURLSession>& session,
        const std::shared_ptr<NSURLAuthenticationChallenge>& challenge,
        NSURLSessionChallengeCompletion completion) {
        (void)session;
        (void)challenge;
        completion(NSURLSessionAuthChallengePerformDefaultHandling, nullptr);
    }

    virtual void URLSessionDidFinishEventsForBackgroundURLSession(
        const std::shared_ptr<NSURLSession>& session) {
        (void)session;
    }
};

}  // namespace platform
