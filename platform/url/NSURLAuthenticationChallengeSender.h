#pragma once
// Whoever receives the answer to an authentication challenge: the protocol that raised it, or an
// object standing in for it. Any thread may answer; a sender must take its answer on any thread
// and act on it where it works. A challenge is answered once; later answers are ignored.
#include <memory>

#include "platform/foundation/NSObject.h"

namespace platform {

class NSURLAuthenticationChallenge;
class NSURLCredential;

class NSURLAuthenticationChallengeSender : public virtual NSObject {
public:
    virtual void useCredential(const std::shared_ptr<NSURLCredential>& credential,
                               const std::shared_ptr<NSURLAuthenticationChallenge>& challenge) = 0;
    virtual void continueWithoutCredentialForAuthenticationChallenge(
        const std::shared_ptr<NSURLAuthenticationChallenge>& challenge) = 0;
    virtual void cancelAuthenticationChallenge(
        const std::shared_ptr<NSURLAuthenticationChallenge>& challenge) = 0;
    virtual void performDefaultHandlingForAuthenticationChallenge(
        const std::shared_ptr<NSURLAuthenticationChallenge>& challenge) = 0;
    virtual void rejectProtectionSpaceAndContinueWithChallenge(
        const std::shared_ptr<NSURLAuthenticationChallenge>& challenge) = 0;
};

}  // namespace platform
