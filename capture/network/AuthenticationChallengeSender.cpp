#include "capture/network/AuthenticationChallengeSender.h"

namespace quillmere {

using platform::NSURLAuthenticationChallenge;
using platform::NSURLCredential;

std::shared_ptr<AuthenticationChallengeSender> AuthenticationChallengeSender::make(Handler handler) {
    return std::shared_ptr<AuthenticationChallengeSender>(
        new AuthenticationChallengeSender(std::move(handler)));
}

void AuthenticationChallengeSender::useCredential(const std::shared_ptr<NSURLCredential>& credential,
                                                  const std::shared_ptr<NSURLAuthenticationChallenge>&) {
    handler_(platform::NSURLSessionAuthChallengeUseCredential, credential);
}

void AuthenticationChallengeSender::continueWithoutCredentialForAuthenticationChallenge(
    const std::shared_ptr<NSURLAuthenticationChallenge>&) {
    handler_(platform::NSURLSessionAuthChallengeUseCredential, nullptr);
}

void AuthenticationChallengeSender::cancelAuthenticationChallenge(
    const std::shared_ptr<NSURLAuthenticationChallenge>&) {
    handler_(platform::NSURLSessionAuthChallengeCancelAuthenticationChallenge, nullptr);
}

void AuthenticationChallengeSender::performDefaultHandlingForAuthenticationChallenge(
    const std::shared_ptr<NSURLAuthenticationChallenge>&) {
    handler_(platform::NSURLSessionAuthChallengePerformDefaultHandling, nullptr);
}

void AuthenticationChallengeSender::rejectProtectionSpaceAndContinueWithChallenge(
    const std::shared_ptr<NSURLAuthenticationChallenge>&) {
    handler_(platform::NSURLSessionAuthChallengeRejectProtectionSpace, nullptr);
}

}  // namespace quillmere
