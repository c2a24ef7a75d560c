#pragma once
// Operation queues, as far as sessions use them: a queue that runs blocks one at a time in the
// order they were added, on a dispatch queue beneath it. Immutable once made; any thread may add.
#include <functional>
#include <memory>
#include <string>

#include "platform/dispatch/DispatchQueue.h"
#include "platform/foundation/NSObject.h"

namespace platform {

class NSOperationQueue : public NSObject {
    PLATFORM_OBJC_CLASS(NSOperationQueue, NSObject)
public:
    // A new queue over a new serial dispatch queue.
    NSOperationQueue();
    // A queue over `underlyingQueue`, which must be serial.
    explicit NSOperationQueue(std::shared_ptr<DispatchQueue> underlyingQueue);

    // The queue of the main thread (over the main dispatch queue); the same object each call.
    static std::shared_ptr<NSOperationQueue> mainQueue();

    void addOperationWithBlock(std::function<void()> block);
    const std::shared_ptr<DispatchQueue>& underlyingQueue() const { return queue_; }
    // Always 1: only serial queues are offered.
    long maxConcurrentOperationCount() const { return 1; }

private:
    const std::shared_ptr<DispatchQueue> queue_;
};

}  // namespace platform
