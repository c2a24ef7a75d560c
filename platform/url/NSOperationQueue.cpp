#include "platform/url/NSOperationQueue.h"

namespace platform {

NSOperationQueue::NSOperationQueue() : queue_(DispatchQueue::makeSerial("NSOperationQueue")) {}

NSOperationQueue::NSOperationQueue(std::shared_ptr<DispatchQueue> underlyingQueue)
    : queue_(underlyingQueue ? std::move(underlyingQueue) : DispatchQueue::makeSerial("NSOperationQueue")) {}

std::shared_ptr<NSOperationQueue> NSOperationQueue::mainQueue() {
    static const auto* queue =
        new std::shared_ptr<NSOperationQueue>(std::make_shared<NSOperationQueue>(DispatchQueue::main()));
    return *queue;
}

void NSOperationQueue::addOperationWithBlock(std::function<void()> block) {
    if (block) queue_->async(std::move(block));
}

}  // namespace platform
