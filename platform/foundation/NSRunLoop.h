#pragma once
// Run loops, one per thread, made on first use. A run loop runs the blocks posted to it (the main
// queue's blocks on the main thread, file-handle notifications on the thread that armed the read)
// for a time or until stopped.
#include <functional>
#include <memory>

#include "platform/foundation/NSDate.h"

namespace platform {

class NSRunLoop {
public:
    virtual ~NSRunLoop() = default;

    // The calling thread's run loop; made on first use.
    static std::shared_ptr<NSRunLoop> currentRunLoop();
    // The main thread's run loop.
    static std::shared_ptr<NSRunLoop> mainRunLoop();

    // Queues a block for the loop's thread and wakes the loop; it runs at the loop's next turn,
    // in posting order. Any thread may post.
    virtual void performBlock(std::function<void()> block) = 0;
    // Runs the loop on the calling thread, which must be the loop's own, until `limitDate` or
    // until stop(). Runs may nest; stop() ends the innermost.
    virtual void runUntilDate(const NSDate& limitDate) = 0;
    // Runs until stop().
    virtual void run() = 0;
    // Makes the innermost run of this loop return after the block under way, as CFRunLoopStop.
    virtual void stop() = 0;
};

// Runs the current thread's loop for `seconds`, as CFRunLoopRunInMode with the default mode.
// With `returnAfterSourceHandled` it returns after the first block it ran.
void CFRunLoopRunInMode(double seconds, bool returnAfterSourceHandled);

}  // namespace platform
