#pragma once
// Helpers shared by the dispatch tests.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>

#include "platform/dispatch/DispatchQueue.h"
#include "platform/dispatch/DispatchSourceTimer.h"
#include "tests/support/Wait.h"

namespace qlm_dispatch_test {

// For tests that run the main run loop: whatever they left on the main queue runs before the next.
class MainLoopTest : public ::testing::Test {
protected:
    void TearDown() override {
        auto flushed = std::make_shared<std::atomic<bool>>(false);
        platform::DispatchQueue::main()->async([flushed] { *flushed = true; });
        EXPECT_TRUE(qlm_test::runMainLoopUntil([&] { return flushed->load(); }));
    }
};

// Lets `turns` deliveries of a fresh 1 ms repeating timer pass on `queue`: evidence that the timer
// machinery has moved on, without guessing a time. Blocks already queued on a serial `queue` have
// run by then. On the main queue, call from the main thread.
inline bool letTimerTurnsPass(const platform::dispatch_queue_t& queue, int turns = 5) {
    auto count = std::make_shared<std::atomic<int>>(0);
    auto witness = platform::DispatchSourceTimer::makeTimerSource(platform::DispatchTimerFlags::none, queue);
    witness->setEventHandler([count] { ++*count; });
    witness->schedule(platform::DispatchTime::now(), platform::DispatchTimeInterval::milliseconds(1));
    witness->activate();
    const auto reached = [&] { return count->load() >= turns; };
    const bool ok = queue == platform::DispatchQueue::main() ? qlm_test::runMainLoopUntil(reached)
                                                            : qlm_test::waitUntil(reached);
    witness->cancel();
    return ok;
}

}  // namespace qlm_dispatch_test
