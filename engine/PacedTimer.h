#pragma once
// Runs a piece of work again and again on a queue, one interval after the previous run ended: the
// interval counts from the end of the work to the next run, so slow work lowers the rate and runs
// never overlap. A one-shot dispatch timer, re-armed as each run ends.
//
// Threads: make, start and cancel on any thread, cancel from the work itself too. The work runs on
// the timer's own serial queue, which targets the queue given. The timer holds the work until it
// is cancelled or dropped; work that must not keep its owner alive holds it weakly.
#include <functional>
#include <memory>

#include "platform/dispatch/DispatchQueue.h"
#include "platform/dispatch/DispatchSourceTimer.h"
#include "platform/dispatch/DispatchTime.h"

namespace quillmere {

class PacedTimer : public std::enable_shared_from_this<PacedTimer> {
public:
    // Idle until start.
    static std::shared_ptr<PacedTimer> make(platform::dispatch_queue_t queue, platform::DispatchTimeInterval interval);

    // Cancels: a run under way finishes, and none follows.
    ~PacedTimer();
    PacedTimer(const PacedTimer&) = delete;
    PacedTimer& operator=(const PacedTimer&) = delete;

    // The first run comes one interval from now. Call once; after cancel it does nothing.
    void start(std::function<void()> work);
    // Final: once it has returned no run starts, and a run under way arms nothing. Idempotent.
    void cancel();
    bool isCancelled() const;

private:
    PacedTimer(platform::dispatch_queue_t queue, platform::DispatchTimeInterval interval);
    // One firing, one interval from now, no leeway; nothing once cancelled.
    void arm();

    const platform::DispatchTimeInterval interval_;
    const std::shared_ptr<platform::DispatchSourceTimer> source_;  // thread-safe
};

}  // namespace quillmere
