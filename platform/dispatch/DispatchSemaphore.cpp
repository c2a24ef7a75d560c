#include "platform/dispatch/DispatchSemaphore.h"

#include "platform/dispatch/detail/SteadyDeadline.h"

namespace platform {

DispatchSemaphore::DispatchSemaphore(long value) : value_(value) {}

bool DispatchSemaphore::signal() {
    std::lock_guard lock(mutex_);
    ++value_;
    if (waiters_ == 0) return false;
    // Notified under the lock: a waiter that returns may destroy the semaphore at once.
    cv_.notify_one();
    return true;
}

void DispatchSemaphore::wait() {
    std::unique_lock lock(mutex_);
    ++waiters_;
    cv_.wait(lock, [this] { return value_ > 0; });
    --waiters_;
    --value_;
}

bool DispatchSemaphore::wait(DispatchTime deadline) {
    if (deadline == DispatchTime::distantFuture()) {
        wait();
        return true;
    }
    std::unique_lock lock(mutex_);
    ++waiters_;
    const bool acquired = cv_.wait_until(lock, detail::steadyDeadline(deadline), [this] { return value_ > 0; });
    --waiters_;
    if (acquired) --value_;
    return acquired;
}

}  // namespace platform
