#pragma once
// The threads behind the global concurrent queues. A submitted block never waits behind a blocked
// worker while the pool is under its cap: when no worker is idle, a new one is started. Workers
// idle for a while retire. The pool lives for the whole process and is never destroyed, so
// workers still running at exit touch nothing that static destruction has torn down.
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>

namespace platform::detail {

class WorkerPool {
public:
    static constexpr std::size_t kMaxWorkers = 64;

    static WorkerPool& shared();

    // Any thread. Blocks run in submission order of start, concurrently with each other.
    void submit(std::function<void()> work);

private:
    WorkerPool() = default;
    void workerMain();

    std::mutex mutex_;
    std::condition_variable cv_;
    std::deque<std::function<void()>> work_;  // guarded by mutex_
    std::size_t workers_ = 0;                 // guarded by mutex_; started and not retired
    std::size_t idle_ = 0;                    // guarded by mutex_; waiting for work, or starting up
};

}  // namespace platform::detail
