#include "platform/dispatch/detail/SerialQueue.h"

#include <condition_variable>

#include "platform/foundation/NSRunLoop.h"

namespace platform::detail {

SerialQueue::SerialQueue(std::string label, DispatchQoS qos, std::shared_ptr<DispatchQueue> target,
                         std::size_t blocksPerDrain)
    : label_(std::move(label)), qos_(qos), target_(std::move(target)), blocksPerDrain_(blocksPerDrain) {}

void SerialQueue::async(Block block) {
    if (!block) return;
    bool post = false;
    {
        std::lock_guard lock(mutex_);
        blocks_.push_back(std::move(block));
        post = !drainPosted_;
        drainPosted_ = true;
    }
    if (!post) return;
    try {
        scheduleDrain();
    } catch (...) {
        // No drain could be posted (no memory): the blocks wait for the next async, which posts
        // one, instead of the queue standing still for good.
        std::lock_guard lock(mutex_);
        drainPosted_ = false;
        throw;
    }
}

void SerialQueue::sync(Block block) {
    if (!block) return;
    std::mutex mutex;
    std::condition_variable cv;
    bool done = false;  // guarded by mutex
    async([&] {
        block();
        std::lock_guard lock(mutex);
        done = true;
        // Notified under the lock: the waiter cannot return and destroy `cv` before this call.
        cv.notify_one();
    });
    std::unique_lock lock(mutex);
    cv.wait(lock, [&] { return done; });
}

void SerialQueue::postDrain(Block drain) { target_->async(std::move(drain)); }

void SerialQueue::scheduleDrain() {
    // The drain keeps the queue alive while it has blocks.
    postDrain([self = std::static_pointer_cast<SerialQueue>(shared_from_this())] { self->drain(); });
}

void SerialQueue::drain() {
    for (std::size_t i = 0; i < blocksPerDrain_; ++i) {
        Block block;
        {
            std::lock_guard lock(mutex_);
            if (blocks_.empty()) {
                drainPosted_ = false;
                return;
            }
            block = std::move(blocks_.front());
            blocks_.pop_front();
        }
        block();
    }
    {
        std::lock_guard lock(mutex_);
        if (blocks_.empty()) {
            drainPosted_ = false;
            return;
        }
    }
    scheduleDrain();
}

MainQueue::MainQueue() : SerialQueue("com.apple.main-thread", DispatchQoS::userInteractive, nullptr, 1) {}

void MainQueue::postDrain(Block drain) { NSRunLoop::mainRunLoop()->performBlock(std::move(drain)); }

}  // namespace platform::detail
