#include "platform/url/NSURLSessionTask.h"

#include "platform/url/detail/URLSessionTaskDriver.h"

namespace platform {

NSURLSessionTask::~NSURLSessionTask() = default;

void NSURLSessionTask::attachDriver(std::shared_ptr<detail::URLSessionTaskDriver> driver) {
    if (!driver_) driver_ = std::move(driver);
}

void NSURLSessionTask::resume() {
    if (driver_) driver_->resume();
}

void NSURLSessionTask::cancel() {
    if (driver_) driver_->cancel();
}

std::shared_ptr<NSURLRequest> NSURLSessionTask::originalRequest() const {
    return driver_ ? driver_->originalRequest() : nullptr;
}

std::shared_ptr<NSURLRequest> NSURLSessionTask::currentRequest() const {
    return driver_ ? driver_->currentRequest() : nullptr;
}

std::shared_ptr<NSURLResponse> NSURLSessionTask::response() const {
    return driver_ ? driver_->response() : nullptr;
}

NSURLSessionTaskState NSURLSessionTask::state() const {
    return driver_ ? driver_->state() : NSURLSessionTaskStateSuspended;
}

unsigned long NSURLSessionTask::taskIdentifier() const {
    return driver_ ? driver_->taskIdentifier() : 0;
}

std::shared_ptr<NSURLSession> NSURLSessionTask::session() const {
    return driver_ ? driver_->session() : nullptr;
}

std::shared_ptr<NSError> NSURLSessionTask::error() const {
    return driver_ ? driver_->error() : nullptr;
}

}  // namespace platform
