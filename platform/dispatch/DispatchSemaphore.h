#pragma once
// A counting semaphore, as dispatch_semaphore_t.
#include <condition_variable>
#include <mutex>

#include "platform/dispatch/DispatchTime.h"

namespace platform {

class DispatchSemaphore {
public:
    explicit DispatchSemaphore(long value);
    DispatchSemaphore(const DispatchSemaphore&) = delete;
    DispatchSemaphore& operator=(const DispatchSemaphore&) = delete;

    // Increments the count, waking one waiter. Returns true if a waiter was woken.
    bool signal();
    // Decrements the count, waiting forever for it to be positive.
    void wait();
    // As wait(), giving up at `deadline`. Returns false when it timed out.
    bool wait(DispatchTime deadline);

private:
    std::mutex mutex_;
    std::condition_variable cv_;
    long value_;    // guarded by mutex_
    long waiters_ = 0;  // guarded by mutex_
};

}  // namespace platform
