#pragma once
// The built-in protocol for http and https ("_NSURLHTTPProtocol"), on libcurl.
//
// Redirects are reported, not followed: for a 3xx with a Location it buffers the body, reports
// wasRedirectedToRequest and then the 3xx response, body and end, which the loading system
// discards when it follows. For a 401 with WWW-Authenticate it buffers the body and raises a
// challenge whose sender is the instance: a credential retries with Basic authorization; no
// credential, default handling or rejecting the space delivers the 401; cancelling fails with
// NSURLErrorCancelled.
//
// Threads: loading runs on the loader thread; the sender methods may be called on any thread and
// hand over to it.
#include <chrono>
#include <memory>

#include "platform/url/NSHTTPURLResponse.h"
#include "platform/url/NSURLAuthenticationChallengeSender.h"
#include "platform/url/NSURLProtocol.h"
#include "platform/url/detail/CurlHttpTransfer.h"

namespace platform::detail {

class URLHTTPProtocol final : public NSURLProtocol, public NSURLAuthenticationChallengeSender {
    PLATFORM_OBJC_CLASS_NAMED(URLHTTPProtocol, NSURLProtocol, "_NSURLHTTPProtocol")
public:
    // The class, entered in the class-side table.
    static Class protocolClass();

    static bool canInitWithRequest(const std::shared_ptr<NSURLRequest>& request);  // http and https

    void startLoading() override;
    void stopLoading() override;

    void useCredential(const std::shared_ptr<NSURLCredential>& credential,
                       const std::shared_ptr<NSURLAuthenticationChallenge>& challenge) override;
    void continueWithoutCredentialForAuthenticationChallenge(
        const std::shared_ptr<NSURLAuthenticationChallenge>& challenge) override;
    void cancelAuthenticationChallenge(
        const std::shared_ptr<NSURLAuthenticationChallenge>& challenge) override;
    void performDefaultHandlingForAuthenticationChallenge(
        const std::shared_ptr<NSURLAuthenticationChallenge>& challenge) override;
    void rejectProtectionSpaceAndContinueWithChallenge(
        const std::shared_ptr<NSURLAuthenticationChallenge>& challenge) override;

private:
    enum class Outcome { deliver, redirect, challenge };
    enum class Answer { useCredential, deliverResponse, cancel };

    std::shared_ptr<URLHTTPProtocol> self();
    void answer(Answer answer, std::shared_ptr<NSURLCredential> credential);
    // Loader thread only, from here on.
    void beginTransfer();
    void receivedHeaders(long status, const std::string& version,
                         const CurlHttpTransfer::HeaderFields& fields);
    void receivedBody(const std::shared_ptr<NSData>& piece);
    void ended(const std::shared_ptr<NSError>& error);
    void answerOnLoader(Answer answer, const std::shared_ptr<NSURLCredential>& credential);
    void deliverHeldResponse();
    std::shared_ptr<NSURLRequest> redirectedRequest(const std::string& location) const;
    std::shared_ptr<NSURLAuthenticationChallenge> makeChallenge(const std::string& authenticate);

    // Loader thread only, all of them.
    std::shared_ptr<NSURLRequest> loading_;  // the request as loaded, its stream body kept once read
    std::shared_ptr<NSInputStream> openedStream_;
    std::shared_ptr<CurlHttpTransfer> transfer_;
    Outcome outcome_ = Outcome::deliver;
    std::shared_ptr<NSHTTPURLResponse> heldResponse_;
    std::shared_ptr<NSMutableData> heldBody_;
    std::string location_;
    std::string authenticate_;
    std::shared_ptr<NSURLCredential> credential_;
    std::shared_ptr<NSDictionary> additionalHeaders_;
    double sessionIdleTimeout_ = NSURLRequest::kDefaultTimeoutInterval;
    long failureCount_ = 0;
    bool awaitingAnswer_ = false;
    bool stopped_ = false;
    URLLoaderTransfer::Clock::time_point resourceDeadline_;
};

}  // namespace platform::detail
