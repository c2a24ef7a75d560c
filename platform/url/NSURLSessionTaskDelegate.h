#pragma once
// A session delegate that hears about its tasks. See NSURLSessionDelegate for threads.
//
// The C++ names map to the platform's selectors:
//   URLSession_task_willPerformHTTPRedirection_newRequest_completionHandler
//       URLSession:task:willPerformHTTPRedirection:newRequest:completionHandler:
//   URLSession_task_didReceiveChallenge_completionHandler
//       URLSession:task:didReceiveChallenge:completionHandler:
//   URLSession_task_didCompleteWithError                URLSession:task:didCompleteWithError:
#include <functional>
#include <memory>

#include "platform/url/NSHTTPURLResponse.h"
#include "platform/url/NSURLRequest.h"
#include "platform/url/NSURLSessionDelegate.h"

namespace platform {

class NSURLSessionTask;

class NSURLSessionTaskDelegate : public NSURLSessionDelegate {
public:
    // completion(request) follows the redirect to `request` (or to another request given instead);
    // completion(nullptr) refuses it, and the redirect response with its body becomes the task's
    // result. Default: follow.
    virtual void URLSession_task_willPerformHTTPRedirection_newRequest_completionHandler(
        const std::shared_ptr<NSURLSession>& session, const std::shared_ptr<NSURLSessionTask>& task,
        const std::shared_ptr<NSHTTPURLResponse>& response, const std::shared_ptr<NSURLRequest>& request,
        std::function<void(std::shared_ptr<NSURLRequest>)> completion) {
        (void)session;
        (void)task;
        (void)response;
        completion(request);
    }

    // Default: the session-level URLSession_didReceiveChallenge_completionHandler.
    virtual void URLSession_task_didReceiveChallenge_completionHandler(
        const std::shared_ptr<NSURLSession>& session, const std::shared_ptr<NSURLSessionTask>& task,
        const std::shared_ptr<NSURLAuthenticationChallenge>& challenge,
        NSURLSessionChallengeCompletion completion) {
        (void)task;
        URLSession_didReceiveChallenge_completionHandler(session, challenge, std::move(completion));
    }

    // `error` is nullptr for success.
    virtual void URLSession_task_didCompleteWithError(const std::shared_ptr<NSURLSession>& session,
                                                      const std::shared_ptr<NSURLSessionTask>& task,
                                                      const std::shared_ptr<NSError>& error) {
        (void)session;
        (void)task;
        (void)error;
    }
};

}  // namespace platform
