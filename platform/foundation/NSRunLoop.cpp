#include "platform/foundation/NSRunLoop.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <vector>

#include "platform/foundation/NSThread.h"

namespace platform {
namespace {

using Clock = std::chrono::steady_clock;

class RunLoop final : public NSRunLoop {
public:
    void performBlock(std::function<void()> block) override {
        if (!block) return;
        std::lock_guard lock(mutex_);
        blocks_.push_back(std::move(block));
        cv_.notify_all();
    }

    void runUntilDate(const NSDate& limitDate) override { runUntil(deadlineFor(limitDate), false); }

    void run() override { runUntil(std::nullopt, false); }

    void stop() override {
        std::lock_guard lock(mutex_);
        if (!runs_.empty()) runs_.back()->stopped = true;
        cv_.notify_all();
    }

    // Runs blocks until `deadline` (none: until stopped); with `returnAfterBlock`, returns after
    // the first block.
    void runUntil(std::optional<Clock::time_point> deadline, bool returnAfterBlock) {
        Run run;
        {
            std::lock_guard lock(mutex_);
            runs_.push_back(&run);
        }
        // Unregisters this run however it ends, after `lock` below has been released.
        struct Unregister {
            RunLoop& loop;
            ~Unregister() {
                std::lock_guard lock(loop.mutex_);
                loop.runs_.pop_back();
            }
        } unregister{*this};

        std::unique_lock lock(mutex_);
        for (;;) {
            if (run.stopped) return;
            if (!blocks_.empty()) {
                std::function<void()> block = std::move(blocks_.front());
                blocks_.pop_front();
                lock.unlock();
                block();
                block = nullptr;  // captures go before the lock is taken again
                if (returnAfterBlock) return;
                lock.lock();
                continue;
            }
            if (!deadline) {
                cv_.wait(lock);
            } else if (Clock::now() >= *deadline) {
                return;
            } else {
                cv_.wait_until(lock, *deadline);
            }
        }
    }

private:
    // One invocation of run*, innermost last; stop() ends the innermost.
    struct Run {
        bool stopped = false;  // guarded by the loop's mutex_
    };

    static std::optional<Clock::time_point> deadlineFor(const NSDate& limitDate) {
        const double now = std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
        const double seconds = limitDate.timeIntervalSince1970() - now;
        return deadlineAfter(seconds);
    }

public:
    // `seconds` from now on the steady clock; none when it is too far to matter (distantFuture).
    static std::optional<Clock::time_point> deadlineAfter(double seconds) {
        if (!(seconds > 0)) return Clock::now();  // also NaN
        if (seconds > 1e9) return std::nullopt;
        return Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
    }

private:
    std::mutex mutex_;
    std::condition_variable cv_;
    std::deque<std::function<void()>> blocks_;  // guarded by mutex_
    std::vector<Run*> runs_;                    // guarded by mutex_; only the loop's thread pushes and pops
};

std::shared_ptr<RunLoop> mainLoop() {
    // Never destroyed: other threads may post to the main loop while the process exits.
    static const auto* const loop = new std::shared_ptr<RunLoop>(std::make_shared<RunLoop>());
    return *loop;
}

std::shared_ptr<RunLoop> currentLoop() {
    if (NSThread::isMainThread()) return mainLoop();
    thread_local const std::shared_ptr<RunLoop> loop = std::make_shared<RunLoop>();
    return loop;
}

}  // namespace

std::shared_ptr<NSRunLoop> NSRunLoop::currentRunLoop() { return currentLoop(); }

std::shared_ptr<NSRunLoop> NSRunLoop::mainRunLoop() { return mainLoop(); }

void CFRunLoopRunInMode(double seconds, bool returnAfterSourceHandled) {
    currentLoop()->runUntil(RunLoop::deadlineAfter(seconds), returnAfterSourceHandled);
}

}  // namespace platform
