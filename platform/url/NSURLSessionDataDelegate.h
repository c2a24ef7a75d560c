#pragma once
// A task delegate that takes the responses and data of data tasks (and upload tasks, which are
// data tasks). Tasks made with a completion handler report there instead. See
// NSURLSessionDelegate for threads.
//
// The C++ names map to the platform's selectors:
//   URLSession_dataTask_didReceiveResponse_completionHandler
//       URLSession:dataTask:didReceiveResponse:completionHandler:
//   URLSession_dataTask_didReceiveData                  URLSession:dataTask:didReceiveData:
#include <functional>
#include <memory>

#include "platform/foundation/NSData.h"
#include "platform/url/NSURLResponse.h"
#include "platform/url/NSURLSessionTaskDelegate.h"

namespace platform {

class NSURLSessionDataTask;

enum NSURLSessionResponseDisposition : long {
    NSURLSessionResponseCancel = 0,
    NSURLSessionResponseAllow = 1,
};

class NSURLSessionDataDelegate : public NSURLSessionTaskDelegate {
public:
    // The task's data waits until completion is called: Allow goes on, Cancel cancels the task.
    // Default: Allow.
    virtual void URLSession_dataTask_didReceiveResponse_completionHandler(
        const std::shared_ptr<NSURLSession>& session, const std::shared_ptr<NSURLSessionDataTask>& dataTask,
        const std::shared_ptr<NSURLResponse>& response,
        std::function<void(NSURLSessionResponseDisposition)> completion) {
        (void)session;
        (void)dataTask;
        (void)response;
        completion(NSURLSessionResponseAllow);
    }

    // Each piece as it arrives; the pieces of a body may come in any sizes.
    virtual void URLSession_dataTask_didReceiveData(const std::shared_ptr<NSURLSession>& session,
                                                    const std::shared_ptr<NSURLSessionDataTask>& dataTask,
                                                    const std::shared_ptr<NSData>& data) {
        (void)session;
        (void)dataTask;
        (void)data;
    }
};

}  // namespace platform
