#pragma once
// The URL protocol that stands in front of the platform's for the host's HTTP requests, exported
// as QLMNetworkShim. For each request it takes, it sends a marked copy out through a session of
// its own and passes everything that session delivers on to its client untouched: response, data,
// redirects, challenges and the end. A redirect is passed on with the shim's keys taken off and
// never followed by the shim's session: a host that follows it stops this shim and loads the new
// request afresh; for one that refuses, the redirect's own response and body follow. On the way
// the shim reports a qm.network.RequestEvent as the request starts and a
// qm.network.ResponseEvent once the host has heard of the end (for a redirect, its 3xx), to the
// sink that network capture was started with; with none it takes no request, and a request it took
// before goes on unreported. The host hears of each response, piece of data and end before capture
// does any work on it.
//
// The marker (a start time under kStartTimeKey on the copy) makes the shim decline its own copies
// when its session offers them to the protocol classes again.
//
// Threads: the class methods, startLoading and stopLoading on the URL loading system's thread; the
// delegate methods on the shim's own session's delegate queue, which calls the client too.
#include <memory>
#include <mutex>
#include <vector>

#include "engine/NetworkEventSink.h"
#include "platform/foundation/NSData.h"
#include "platform/foundation/NSDate.h"
#include "platform/foundation/NSError.h"
#include "platform/url/NSHTTPURLResponse.h"
#include "platform/url/NSURLProtocol.h"
#include "platform/url/NSURLResponse.h"
#include "platform/url/NSURLSession.h"
#include "platform/url/NSURLSessionDataDelegate.h"

namespace quillmere {

class NetworkShim final : public platform::NSURLProtocol, public platform::NSURLSessionDataDelegate {
    PLATFORM_OBJC_CLASS_NAMED(NetworkShim, platform::NSURLProtocol, "QLMNetworkShim")
public:
    static constexpr const char* kStartTimeKey = "com.quillmere.qmStartTimeKey";
    static constexpr const char* kReqIDKey = "com.quillmere.qmReqIDKey";

    // The class, entered in NSURLProtocol's class-side table.
    static platform::Class protocolClass();

    // Where every shim reports, held weakly; network capture's start and stop set and clear it.
    // Clearing (`sink` null) happens only while `current` is the sink held.
    static void reportTo(std::weak_ptr<NetworkEventSink> sink);
    static void stopReportingTo(const std::weak_ptr<NetworkEventSink>& current);

    // NO for a marked copy, a URL that isn't http(s), or with no sink; else the sink's
    // shouldCaptureRequest.
    static bool canInitWithRequest(const std::shared_ptr<platform::NSURLRequest>& request);
    static bool canInitWithTask(const std::shared_ptr<platform::NSURLSessionTask>& task);
    static std::shared_ptr<platform::NSURLRequest> canonicalRequestForRequest(
        const std::shared_ptr<platform::NSURLRequest>& request);

    void startLoading() override;
    // Cancels the copy's task, if one was started, and lets go of the session.
    void stopLoading() override;

    void URLSession_dataTask_didReceiveResponse_completionHandler(
        const std::shared_ptr<platform::NSURLSession>& session,
        const std::shared_ptr<platform::NSURLSessionDataTask>& dataTask,
        const std::shared_ptr<platform::NSURLResponse>& response,
        std::function<void(platform::NSURLSessionResponseDisposition)> completion) override;
    void URLSession_dataTask_didReceiveData(const std::shared_ptr<platform::NSURLSession>& session,
                                            const std::shared_ptr<platform::NSURLSessionDataTask>& dataTask,
                                            const std::shared_ptr<platform::NSData>& data) override;
    void URLSession_task_didCompleteWithError(const std::shared_ptr<platform::NSURLSession>& session,
                                              const std::shared_ptr<platform::NSURLSessionTask>& task,
                                              const std::shared_ptr<platform::NSError>& error) override;
    void URLSession_task_willPerformHTTPRedirection_newRequest_completionHandler(
        const std::shared_ptr<platform::NSURLSession>& session,
        const std::shared_ptr<platform::NSURLSessionTask>& task,
        const std::shared_ptr<platform::NSHTTPURLResponse>& response,
        const std::shared_ptr<platform::NSURLRequest>& request,
        std::function<void(std::shared_ptr<platform::NSURLRequest>)> completion) override;
    void URLSession_didReceiveChallenge_completionHandler(
        const std::shared_ptr<platform::NSURLSession>& session,
        const std::shared_ptr<platform::NSURLAuthenticationChallenge>& challenge,
        platform::NSURLSessionChallengeCompletion completion) override;
    void URLSessionDidFinishEventsForBackgroundURLSession(
        const std::shared_ptr<platform::NSURLSession>& session) override;

private:
    // Made on first use with a default configuration and this shim as its delegate; the session
    // holds the shim until it is invalidated, which completion or stopLoading does.
    std::shared_ptr<platform::NSURLSession> session();
    // Reports the request and marks `outgoing` with its number; silent on any failure.
    void reportRequest(const platform::NSURLRequest& request,
                       const std::shared_ptr<platform::NSMutableURLRequest>& outgoing) noexcept;
    void reportResponse(const platform::NSURLSessionTask& task,
                        const std::shared_ptr<platform::NSError>& error,
                        const platform::NSDate& end) noexcept;

    std::mutex sessionMutex_;
    std::shared_ptr<platform::NSURLSession> session_;  // guarded by sessionMutex_

    // Confined to the session's delegate queue, which runs one delegate call at a time.
    std::shared_ptr<platform::NSURLResponse> response_;              // the last response received
    // Its body so far: the pieces the host got, held rather than copied.
    std::vector<std::shared_ptr<platform::NSData>> responsePieces_;
    bool responseBodyKept_ = false;  // a response came, and no piece of its body was lost
    std::shared_ptr<platform::NSHTTPURLResponse> redirectResponse_;  // the redirect told of, if any
};

}  // namespace quillmere
