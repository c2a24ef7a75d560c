#include "platform/dispatch/detail/WorkerPool.h"

#include <chrono>
#include <thread>

namespace platform::detail {
namespace {
constexpr auto kIdleRetirement = std::chrono::seconds(10);
}

WorkerPool& WorkerPool::shared() {
    // Never destroyed: detached workers may still use it while the process exits.
    static WorkerPool* const pool = new WorkerPool();
    return *pool;
}

void WorkerPool::submit(std::function<void()> work) {
    if (!work) return;
    bool spawn = false;
    {
        std::lock_guard lock(mutex_);
        work_.push_back(std::move(work));
        // Every queued block needs a worker that is free to take it; the busy ones may be blocked
        // on something this very block is to provide.
        if (work_.size() > idle_ && workers_ < kMaxWorkers) {
            ++workers_;
            ++idle_;  // counted idle until it has taken its first block
            spawn = true;
        }
        cv_.notify_one();
    }
    if (!spawn) return;
    try {
        std::thread([this] { workerMain(); }).detach();
    } catch (...) {
        // Out of threads or of memory for one: the existing workers, or the next submission's,
        // will get to the block.
        std::lock_guard lock(mutex_);
        --workers_;
        --idle_;
    }
}

void WorkerPool::workerMain() {
    std::unique_lock lock(mutex_);
    for (;;) {
        // idle_ already counts this worker here.
        if (!cv_.wait_for(lock, kIdleRetirement, [this] { return !work_.empty(); })) {
            --idle_;
            --workers_;
            return;
        }
        --idle_;
        std::function<void()> work = std::move(work_.front());
        work_.pop_front();
        lock.unlock();
        work();
        work = nullptr;  // the block's captures go before the lock is taken again
        lock.lock();
        ++idle_;
    }
}

}  // namespace platform::detail
