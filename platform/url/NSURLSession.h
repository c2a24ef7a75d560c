#pragma once
// Sessions: they make tasks, load them through the URL loading system and report to a delegate
// and to completion handlers on the session's delegate queue, one call at a time.
//
// A session keeps its delegate (strongly) until it is invalidated, and its configuration as a copy
// made when it was created. Any thread may use a session. The stand-in keeps no cookies and no
// cache: every request goes to its server, whatever its cache policy.
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/foundation/NSData.h"
#include "platform/foundation/NSObject.h"
#include "platform/url/NSMutableURLRequest.h"
#include "platform/url/NSOperationQueue.h"
#include "platform/url/NSURL.h"
#include "platform/url/NSURLRequest.h"
#include "platform/url/NSURLSessionConfiguration.h"
#include "platform/url/NSURLSessionDataTask.h"
#include "platform/url/NSURLSessionDelegate.h"
#include "platform/url/NSURLSessionTask.h"
#include "platform/url/NSURLSessionUploadTask.h"

namespace platform {

class NSURLSession : public NSObject {
    PLATFORM_OBJC_CLASS(NSURLSession, NSObject)
public:
    using TasksHandler = std::function<void(std::vector<std::shared_ptr<NSURLSessionDataTask>> dataTasks,
                                            std::vector<std::shared_ptr<NSURLSessionUploadTask>> uploadTasks,
                                            std::vector<std::shared_ptr<NSURLSessionTask>> downloadTasks)>;

    // The process's shared session: default configuration, no delegate. Invalidating it does
    // nothing, as on the platform.
    static std::shared_ptr<NSURLSession> sharedSession();
    static std::shared_ptr<NSURLSession> sessionWithConfiguration(
        const std::shared_ptr<NSURLSessionConfiguration>& configuration);
    // A null `delegateQueue` makes the session a serial queue of its own. A null configuration is
    // the default one.
    static std::shared_ptr<NSURLSession> sessionWithConfiguration(
        const std::shared_ptr<NSURLSessionConfiguration>& configuration,
        std::shared_ptr<NSURLSessionDelegate> delegate, std::shared_ptr<NSOperationQueue> delegateQueue);

    // Tasks start suspended; resume() starts them. A task made after the session was invalidated
    // ends with NSURLErrorCancelled when resumed.
    std::shared_ptr<NSURLSessionDataTask> dataTaskWithRequest(const std::shared_ptr<NSURLRequest>& request);
    std::shared_ptr<NSURLSessionDataTask> dataTaskWithRequest(
        const std::shared_ptr<NSURLRequest>& request, NSURLSessionCompletionHandler completionHandler);
    std::shared_ptr<NSURLSessionDataTask> dataTaskWithURL(const std::shared_ptr<NSURL>& url);
    std::shared_ptr<NSURLSessionDataTask> dataTaskWithURL(const std::shared_ptr<NSURL>& url,
                                                          NSURLSessionCompletionHandler completionHandler);
    // Sends `bodyData` as the request's body, in place of any body the request has.
    std::shared_ptr<NSURLSessionUploadTask> uploadTaskWithRequest(
        const std::shared_ptr<NSURLRequest>& request, const std::shared_ptr<NSData>& bodyData);
    std::shared_ptr<NSURLSessionUploadTask> uploadTaskWithRequest(
        const std::shared_ptr<NSURLRequest>& request, const std::shared_ptr<NSData>& bodyData,
        NSURLSessionCompletionHandler completionHandler);

    // Calls `handler` on the delegate queue with the tasks that have been resumed and not yet
    // completed. Upload tasks are listed apart from the data tasks; there are no download tasks.
    void getTasksWithCompletionHandler(TasksHandler handler);

    // No new tasks; once the running ones have completed, the delegate gets
    // URLSession_didBecomeInvalidWithError(nullptr) and the session lets go of it.
    void finishTasksAndInvalidate();
    // As finishTasksAndInvalidate, cancelling the running tasks first.
    void invalidateAndCancel();

    // A copy of the session's configuration.
    std::shared_ptr<NSURLSessionConfiguration> configuration() const;
    // nullptr once the session has let go of it.
    std::shared_ptr<NSURLSessionDelegate> delegate() const;
    const std::shared_ptr<NSOperationQueue>& delegateQueue() const { return delegateQueue_; }

    // ---- For the URL loading system.
    // The session's own configuration object (not a copy).
    const std::shared_ptr<NSURLSessionConfiguration>& configurationObject() const { return configuration_; }
    // Lists a resumed task; false when the session has been invalidated.
    bool taskDidResume(const std::shared_ptr<NSURLSessionTask>& task);
    // Called on the delegate queue after a task's completion was reported.
    void taskDidComplete(const std::shared_ptr<NSURLSessionTask>& task);

    // Only the class's own factories make the key, so every session is held by a shared_ptr.
    class ConstructionKey {
        friend class NSURLSession;
        ConstructionKey() = default;
    };
    NSURLSession(ConstructionKey, std::shared_ptr<NSURLSessionConfiguration> configuration,
                 std::shared_ptr<NSURLSessionDelegate> delegate,
                 std::shared_ptr<NSOperationQueue> delegateQueue, bool shared);

private:
    template <class Task>
    std::shared_ptr<Task> makeTask(std::shared_ptr<NSURLRequest> request,
                                   NSURLSessionCompletionHandler handler);
    // Posts the invalidation to the delegate queue once no task runs; call with mutex_ held.
    void invalidateIfIdleLocked();

    const std::shared_ptr<NSURLSessionConfiguration> configuration_;
    const std::shared_ptr<NSOperationQueue> delegateQueue_;
    const bool shared_;
    std::atomic<unsigned long> nextTaskIdentifier_{1};

    mutable std::mutex mutex_;
    std::shared_ptr<NSURLSessionDelegate> delegate_;               // guarded by mutex_
    std::vector<std::shared_ptr<NSURLSessionTask>> runningTasks_;  // guarded by mutex_
    bool invalidated_ = false;                                     // guarded by mutex_
    bool invalidationPosted_ = false;                              // guarded by mutex_
};

}  // namespace platform
