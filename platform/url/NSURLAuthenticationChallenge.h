#pragma once
// A server's demand for credentials. Immutable once made; the sender is held strongly.
#include <memory>

#include "platform/foundation/NSError.h"
#include "platform/foundation/NSObject.h"
#include "platform/url/NSURLAuthenticationChallengeSender.h"
#include "platform/url/NSURLCredential.h"
#include "platform/url/NSURLProtectionSpace.h"
#include "platform/url/NSURLResponse.h"

namespace platform {

class NSURLAuthenticationChallenge : public NSObject {
    PLATFORM_OBJC_CLASS(NSURLAuthenticationChallenge, NSObject)
public:
    // Every argument but the protection space may be null.
    NSURLAuthenticationChallenge(std::shared_ptr<NSURLProtectionSpace> protectionSpace,
                                 std::shared_ptr<NSURLCredential> proposedCredential,
                                 long previousFailureCount, std::shared_ptr<NSURLResponse> failureResponse,
                                 std::shared_ptr<NSError> error,
                                 std::shared_ptr<NSURLAuthenticationChallengeSender> sender)
        : protectionSpace_(std::move(protectionSpace)),
          proposedCredential_(std::move(proposedCredential)),
          previousFailureCount_(previousFailureCount),
          failureResponse_(std::move(failureResponse)),
          error_(std::move(error)),
          sender_(std::move(sender)) {}

    // A copy of `challenge` answered through `sender` instead, as a protocol that passes on a
    // challenge it received makes one.
    static std::shared_ptr<NSURLAuthenticationChallenge> initWithAuthenticationChallenge(
        const std::shared_ptr<NSURLAuthenticationChallenge>& challenge,
        std::shared_ptr<NSURLAuthenticationChallengeSender> sender) {
        return std::make_shared<NSURLAuthenticationChallenge>(
            challenge->protectionSpace_, challenge->proposedCredential_, challenge->previousFailureCount_,
            challenge->failureResponse_, challenge->error_, std::move(sender));
    }

    const std::shared_ptr<NSURLProtectionSpace>& protectionSpace() const { return protectionSpace_; }
    const std::shared_ptr<NSURLCredential>& proposedCredential() const { return proposedCredential_; }
    long previousFailureCount() const { return previousFailureCount_; }
    const std::shared_ptr<NSURLResponse>& failureResponse() const { return failureResponse_; }
    const std::shared_ptr<NSError>& error() const { return error_; }
    const std::shared_ptr<NSURLAuthenticationChallengeSender>& sender() const { return sender_; }

private:
    const std::shared_ptr<NSURLProtectionSpace> protectionSpace_;
    const std::shared_ptr<NSURLCredential> proposedCredential_;
    const long previousFailureCount_;
    const std::shared_ptr<NSURLResponse> failureResponse_;
    const std::shared_ptr<NSError> error_;
    const std::shared_ptr<NSURLAuthenticationChallengeSender> sender_;
};

}  // namespace platform
