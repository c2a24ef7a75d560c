#include "platform/dispatch/DispatchSourceTimer.h"

#include <mutex>

#include "platform/dispatch/detail/TimerThread.h"

namespace platform {
namespace {

using detail::TimerThread;

class TimerSource final : public DispatchSourceTimer, public std::enable_shared_from_this<TimerSource> {
public:
    explicit TimerSource(dispatch_queue_t target)
        // The source's own serial queue: handler runs never overlap, even on a concurrent target.
        : queue_(DispatchQueue::makeSerial("timer-source", DispatchQoS::unspecified,
                                           target ? std::move(target) : DispatchQueue::global())) {}

    ~TimerSource() override {
        // Nobody else can reach the source any more; the lock is only for form.
        std::unique_lock lock(mutex_);
        const bool armed = armed_;
        const auto token = token_;
        lock.unlock();
        if (armed) TimerThread::shared().remove(token);
    }

    void schedule(DispatchTime deadline, DispatchTimeInterval repeating, DispatchTimeInterval) override {
        std::lock_guard lock(mutex_);
        if (cancelled_) return;
        deadline_ = deadline;
        interval_ = repeating;
        scheduled_ = true;
        ++generation_;
        armLocked();
    }

    void setEventHandler(DispatchQoS, DispatchWorkItemFlags, std::function<void()> handler) override {
        auto replacement = handler ? std::make_shared<std::function<void()>>(std::move(handler)) : nullptr;
        std::unique_lock lock(mutex_);
        if (cancelled_) return;
        handler_.swap(replacement);
        lock.unlock();
        // The previous handler's captures die here, unlocked.
    }

    void activate() override {
        std::lock_guard lock(mutex_);
        if (activated_ || cancelled_) return;
        activated_ = true;
        if (scheduled_) armLocked();
    }

    void cancel() override {
        std::shared_ptr<std::function<void()>> released;
        std::unique_lock lock(mutex_);
        if (cancelled_) return;
        cancelled_ = true;
        ++generation_;
        disarmLocked();
        // As on the platform, a cancelled source lets go of its handler (breaking cycles through it).
        released = std::move(handler_);
        lock.unlock();
    }

    bool isCancelled() const override {
        std::lock_guard lock(mutex_);
        return cancelled_;
    }

private:
    // Replaces any pending deadline with deadline_, if the source is live.
    void armLocked() {
        disarmLocked();
        if (!activated_ || cancelled_ || !scheduled_ || deadline_ == DispatchTime::distantFuture()) return;
        armAtLocked(deadline_);
    }

    void armAtLocked(DispatchTime deadline) {
        // The timer thread holds the source weakly: dropping the last reference stops it.
        token_ = TimerThread::shared().add(deadline, [weak = weak_from_this(), generation = generation_] {
            if (auto self = weak.lock()) self->fired(generation);
        });
        armed_ = true;
    }

    void disarmLocked() {
        // remove() destroys only a function holding a weak reference, so it is safe under mutex_.
        if (armed_) TimerThread::shared().remove(token_);
        armed_ = false;
    }

    // On the timer thread.
    void fired(uint64_t generation) {
        {
            std::lock_guard lock(mutex_);
            if (cancelled_ || generation != generation_) return;  // re-scheduled or cancelled since
            armed_ = false;
            if (!interval_.isNever && interval_.nanoseconds > 0) {
                // Deadlines missed while the handler was slow fold into the next delivery.
                const auto now = DispatchTime::now();
                const auto step = static_cast<uint64_t>(interval_.nanoseconds);
                uint64_t periods = 1;
                if (now.uptimeNanoseconds >= deadline_.uptimeNanoseconds)
                    periods = (now.uptimeNanoseconds - deadline_.uptimeNanoseconds) / step + 1;
                const auto advance = periods > static_cast<uint64_t>(INT64_MAX) / step
                                         ? DispatchTimeInterval::never()
                                         : DispatchTimeInterval::nanosecondsInterval(
                                               static_cast<int64_t>(periods * step));
                deadline_ = deadline_ + advance;
                if (deadline_ != DispatchTime::distantFuture()) armAtLocked(deadline_);
            }
            if (deliveryPending_) return;  // the queued delivery covers this firing too
            deliveryPending_ = true;
        }
        queue_->async([weak = weak_from_this()] {
            if (auto self = weak.lock()) self->deliver();
        });
    }

    // On the source's queue.
    void deliver() {
        std::shared_ptr<std::function<void()>> handler;
        {
            // Checked and claimed under the lock cancel() takes: once cancel() has returned, no
            // delivery can claim the handler any more.
            std::lock_guard lock(mutex_);
            deliveryPending_ = false;
            if (cancelled_) return;
            handler = handler_;
        }
        if (handler && *handler) (*handler)();
    }

    const dispatch_queue_t queue_;

    mutable std::mutex mutex_;
    std::shared_ptr<std::function<void()>> handler_;                      // guarded by mutex_
    DispatchTime deadline_;                                              // guarded by mutex_
    DispatchTimeInterval interval_ = DispatchTimeInterval::never();      // guarded by mutex_
    uint64_t generation_ = 0;       // guarded by mutex_; bumped by each schedule and by cancel
    TimerThread::Token token_{};    // guarded by mutex_; the timer-thread entry while armed_
    bool armed_ = false;            // guarded by mutex_
    bool scheduled_ = false;        // guarded by mutex_
    bool activated_ = false;        // guarded by mutex_
    bool cancelled_ = false;        // guarded by mutex_
    bool deliveryPending_ = false;  // guarded by mutex_; a delivery is queued and has not started
};

}  // namespace

std::shared_ptr<DispatchSourceTimer> DispatchSourceTimer::makeTimerSource(DispatchTimerFlags,
                                                                        dispatch_queue_t queue) {
    return std::make_shared<TimerSource>(std::move(queue));
}

}  // namespace platform
