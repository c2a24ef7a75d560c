#pragma once
// Stands in for a capturing session's own challenge completion towards the host: a challenge that
// the shim passes on carries this sender, so the host's answer, given to the sender, reaches the
// session that raised the challenge as the matching disposition.
//
// Threads: any; the handler runs on the thread of the answer.
#include <functional>
#include <memory>

#include "platform/foundation/NSObject.h"
#include "platform/url/NSURLAuthenticationChallengeSender.h"
#include "platform/url/NSURLCredential.h"
#include "platform/url/NSURLSessionDelegate.h"

namespace quillmere {

class AuthenticationChallengeSender final : public platform::NSURLAuthenticationChallengeSender {
public:
    // The session's own completion for the challenge.
    using Handler = platform::NSURLSessionChallengeCompletion;

    // The only way to make one: a sender means nothing without somewhere to send the answer.
    static std::shared_ptr<AuthenticationChallengeSender> make(Handler handler);

    void useCredential(const std::shared_ptr<platform::NSURLCredential>& credential,
                       const std::shared_ptr<platform::NSURLAuthenticationChallenge>& challenge) override;
    void continueWithoutCredentialForAuthenticationChallenge(
        const std::shared_ptr<platform::NSURLAuthenticationChallenge>& challenge) override;
    void cancelAuthenticationChallenge(
        const std::shared_ptr<platform::NSURLAuthenticationChallenge>& challenge) override;
    void performDefaultHandlingForAuthenticationChallenge(
        const std::shared_ptr<platform::NSURLAuthenticationChallenge>& challenge) override;
    void rejectProtectionSpaceAndContinueWithChallenge(
        const std::shared_ptr<platform::NSURLAuthenticationChallenge>& challenge) override;

private:
    explicit AuthenticationChallengeSender(Handler handler) : handler_(std::move(handler)) {}

    const Handler handler_;  // immutable
};

}  // namespace quillmere
