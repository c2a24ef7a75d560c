#pragma once
// A task of a session: one request loaded, through redirects and authentication, to one end.
// Tasks are made by NSURLSession; any thread may use one. A task completes exactly once: through
// its completion handler if it has one, else through its delegate's
// URLSession_task_didCompleteWithError. While it runs it keeps its session alive.
#include <cstdint>
#include <functional>
#include <memory>

#include "platform/foundation/NSData.h"
#include "platform/foundation/NSError.h"
#include "platform/foundation/NSObject.h"
#include "platform/url/NSURLRequest.h"
#include "platform/url/NSURLResponse.h"

namespace platform {

class NSURLSession;

namespace detail {
class URLSessionTaskDriver;
}

enum NSURLSessionTaskState : long {
    NSURLSessionTaskStateRunning = 0,
    NSURLSessionTaskStateSuspended = 1,
    NSURLSessionTaskStateCanceling = 2,
    NSURLSessionTaskStateCompleted = 3,
};

// Called on the session's delegate queue with the body (nullptr on failure), the response (when
// one arrived) and the error (nullptr on success).
using NSURLSessionCompletionHandler =
    std::function<void(std::shared_ptr<NSData>, std::shared_ptr<NSURLResponse>, std::shared_ptr<NSError>)>;

class NSURLSessionTask : public NSObject {
    PLATFORM_OBJC_CLASS(NSURLSessionTask, NSObject)
public:
    // Made by NSURLSession, which attaches the driver before handing the task out.
    NSURLSessionTask() = default;
    ~NSURLSessionTask() override;

    // Starts a new task; does nothing for one already started or ended.
    void resume();
    // Ends the task with NSURLErrorCancelled unless it has ended already; works on a task not yet
    // resumed too.
    void cancel();

    std::shared_ptr<NSURLRequest> originalRequest() const;
    // The request being loaded: the original one until a redirect is followed.
    std::shared_ptr<NSURLRequest> currentRequest() const;
    // The last response received; nullptr before one.
    std::shared_ptr<NSURLResponse> response() const;
    NSURLSessionTaskState state() const;
    // Unique within the session.
    unsigned long taskIdentifier() const;
    // The error the task ended with; nullptr while it runs and after success.
    std::shared_ptr<NSError> error() const;

    // The session that made the task; for the URL loading system's protocols, which read its
    // configuration.
    std::shared_ptr<NSURLSession> session() const;

    void attachDriver(std::shared_ptr<detail::URLSessionTaskDriver> driver);

private:
    // Set once by the session before the task is shared; immutable after.
    std::shared_ptr<detail::URLSessionTaskDriver> driver_;
};

}  // namespace platform
