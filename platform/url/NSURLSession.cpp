#include "platform/url/NSURLSession.h"

#include "platform/url/NSMutableURLRequest.h"
#include "platform/url/detail/URLSessionTaskDriver.h"

namespace platform {

NSURLSession::NSURLSession(ConstructionKey, std::shared_ptr<NSURLSessionConfiguration> configuration,
                           std::shared_ptr<NSURLSessionDelegate> delegate,
                           std::shared_ptr<NSOperationQueue> delegateQueue, bool shared)
    : configuration_(configuration ? configuration->copy()
                                   : NSURLSessionConfiguration::defaultSessionConfiguration()),
      delegateQueue_(delegateQueue ? std::move(delegateQueue) : std::make_shared<NSOperationQueue>()),
      shared_(shared),
      delegate_(std::move(delegate)) {}

std::shared_ptr<NSURLSession> NSURLSession::sharedSession() {
    // Never destroyed: tasks of the shared session may still run while the process exits.
    static const auto* session = new std::shared_ptr<NSURLSession>(
        std::make_shared<NSURLSession>(ConstructionKey(), nullptr, nullptr, nullptr, true));
    return *session;
}

std::shared_ptr<NSURLSession> NSURLSession::sessionWithConfiguration(
    const std::shared_ptr<NSURLSessionConfiguration>& configuration) {
    return std::make_shared<NSURLSession>(ConstructionKey(), configuration, nullptr, nullptr, false);
}

std::shared_ptr<NSURLSession> NSURLSession::sessionWithConfiguration(
    const std::shared_ptr<NSURLSessionConfiguration>& configuration,
    std::shared_ptr<NSURLSessionDelegate> delegate, std::shared_ptr<NSOperationQueue> delegateQueue) {
    return std::make_shared<NSURLSession>(ConstructionKey(), configuration, std::move(delegate),
                                          std::move(delegateQueue), false);
}

template <class Task>
std::shared_ptr<Task> NSURLSession::makeTask(std::shared_ptr<NSURLRequest> request,
                                             NSURLSessionCompletionHandler handler) {
    auto task = std::make_shared<Task>();
    auto self = std::static_pointer_cast<NSURLSession>(shared_from_this());
    if (!request) request = NSURLRequest::requestWithURL(nullptr);
    task->attachDriver(std::make_shared<detail::URLSessionTaskDriver>(
        task, std::move(self), std::move(request), nextTaskIdentifier_.fetch_add(1), std::move(handler)));
    return task;
}

std::shared_ptr<NSURLSessionDataTask> NSURLSession::dataTaskWithRequest(
    const std::shared_ptr<NSURLRequest>& request) {
    return dataTaskWithRequest(request, nullptr);
}

std::shared_ptr<NSURLSessionDataTask> NSURLSession::dataTaskWithRequest(
    const std::shared_ptr<NSURLRequest>& request, NSURLSessionCompletionHandler completionHandler) {
    return makeTask<NSURLSessionDataTask>(request ? request->copy() : nullptr, std::move(completionHandler));
}

std::shared_ptr<NSURLSessionDataTask> NSURLSession::dataTaskWithURL(const std::shared_ptr<NSURL>& url) {
    return dataTaskWithURL(url, nullptr);
}

std::shared_ptr<NSURLSessionDataTask> NSURLSession::dataTaskWithURL(
    const std::shared_ptr<NSURL>& url, NSURLSessionCompletionHandler completionHandler) {
    return makeTask<NSURLSessionDataTask>(NSURLRequest::requestWithURL(url), std::move(completionHandler));
}

std::shared_ptr<NSURLSessionUploadTask> NSURLSession::uploadTaskWithRequest(
    const std::shared_ptr<NSURLRequest>& request, const std::shared_ptr<NSData>& bodyData) {
    return uploadTaskWithRequest(request, bodyData, nullptr);
}

std::shared_ptr<NSURLSessionUploadTask> NSURLSession::uploadTaskWithRequest(
    const std::shared_ptr<NSURLRequest>& request, const std::shared_ptr<NSData>& bodyData,
    NSURLSessionCompletionHandler completionHandler) {
    auto withBody = request ? request->mutableCopy() : NSMutableURLRequest::requestWithURL(nullptr);
    withBody->setHTTPBody(bodyData ? bodyData : NSData::data());
    return makeTask<NSURLSessionUploadTask>(withBody->copy(), std::move(completionHandler));
}

void NSURLSession::getTasksWithCompletionHandler(TasksHandler handler) {
    if (!handler) return;
    auto self = std::static_pointer_cast<NSURLSession>(shared_from_this());
    delegateQueue_->addOperationWithBlock([self, handler = std::move(handler)] {
        std::vector<std::shared_ptr<NSURLSessionTask>> running;
        {
            std::lock_guard lock(self->mutex_);
            running = self->runningTasks_;
        }
        std::vector<std::shared_ptr<NSURLSessionDataTask>> dataTasks;
        std::vector<std::shared_ptr<NSURLSessionUploadTask>> uploadTasks;
        for (const auto& task : running) {
            if (auto upload = std::dynamic_pointer_cast<NSURLSessionUploadTask>(task)) {
                uploadTasks.push_back(std::move(upload));
            } else if (auto data = std::dynamic_pointer_cast<NSURLSessionDataTask>(task)) {
                dataTasks.push_back(std::move(data));
            }
        }
        handler(std::move(dataTasks), std::move(uploadTasks), {});
    });
}

void NSURLSession::finishTasksAndInvalidate() {
    if (shared_) return;
    std::lock_guard lock(mutex_);
    invalidated_ = true;
    invalidateIfIdleLocked();
}

void NSURLSession::invalidateAndCancel() {
    if (shared_) return;
    std::vector<std::shared_ptr<NSURLSessionTask>> running;
    {
        std::lock_guard lock(mutex_);
        invalidated_ = true;
        running = runningTasks_;
    }
    for (const auto& task : running) task->cancel();
    std::lock_guard lock(mutex_);
    invalidateIfIdleLocked();
}

void NSURLSession::invalidateIfIdleLocked() {
    if (!invalidated_ || invalidationPosted_ || !runningTasks_.empty()) return;
    invalidationPosted_ = true;
    auto self = std::static_pointer_cast<NSURLSession>(shared_from_this());
    delegateQueue_->addOperationWithBlock([self] {
        if (auto delegate = self->delegate()) delegate->URLSession_didBecomeInvalidWithError(self, nullptr);
        std::shared_ptr<NSURLSessionDelegate> released;
        {
            std::lock_guard lock(self->mutex_);
            released = std::move(self->delegate_);
        }
        // `released` goes after the lock, in case the delegate's destructor uses the session.
    });
}

std::shared_ptr<NSURLSessionConfiguration> NSURLSession::configuration() const {
    return configuration_->copy();
}

std::shared_ptr<NSURLSessionDelegate> NSURLSession::delegate() const {
    std::lock_guard lock(mutex_);
    return delegate_;
}

bool NSURLSession::taskDidResume(const std::shared_ptr<NSURLSessionTask>& task) {
    std::lock_guard lock(mutex_);
    if (invalidated_) return false;
    runningTasks_.push_back(task);
    return true;
}

void NSURLSession::taskDidComplete(const std::shared_ptr<NSURLSessionTask>& task) {
    std::lock_guard lock(mutex_);
    std::erase(runningTasks_, task);
    invalidateIfIdleLocked();
}

}  // namespace platform
