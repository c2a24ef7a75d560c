// The paced timer: the interval counts from the end of one run to the start of the next, runs never
// overlap, and however it is stopped, no run starts afterwards.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "engine/PacedTimer.h"
#include "tests/support/Wait.h"

using quillmere::PacedTimer;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

namespace {

std::shared_ptr<PacedTimer> timerEvery(milliseconds interval) {
    return PacedTimer::make(platform::DispatchQueue::global(),
                            platform::DispatchTimeInterval::milliseconds(interval.count()));
}

TEST(PacedTimer, TheIntervalRunsFromTheEndOfEachRunAndRunsNeverOverlap) {
    constexpr milliseconds kInterval{100};
    constexpr milliseconds kSlowRun{300};
    std::mutex mutex;
    std::vector<Clock::time_point> starts;  // guarded by mutex
    std::atomic<int> inside{0};
    std::atomic<bool> overlapped{false};
    const auto timer = timerEvery(kInterval);
    const auto started = Clock::now();
    timer->start([&] {
        if (++inside > 1) overlapped = true;
        std::size_t run;
        {
            std::lock_guard lock(mutex);
            starts.push_back(Clock::now());
            run = starts.size();
        }
        if (run == 1) std::this_thread::sleep_for(kSlowRun);  // the work is slow once
        --inside;
    });
    ASSERT_TRUE(qlm_test::waitUntil([&] {
        std::lock_guard lock(mutex);
        return starts.size() >= 3;
    }));
    timer->cancel();

    std::lock_guard lock(mutex);
    // Timers never fire early, so these hold however loaded the machine is.
    EXPECT_GE(starts[0] - started, kInterval);
    EXPECT_GE(starts[1] - starts[0], kSlowRun + kInterval) << "the interval runs from the end of the work";
    EXPECT_GE(starts[2] - starts[1], kInterval);
    EXPECT_FALSE(overlapped);
}

struct StopCase {
    const char* name;
    bool fromWork;  // stopped by the work itself, else by the test's thread
    std::function<void(std::shared_ptr<PacedTimer>& timer)> stop;
};

// Stopped at one point of its cycle or another, over and over: once the stop has returned no run
// starts, but for the one the timer may have begun delivering just before (never when the work
// stops it itself).
TEST(PacedTimer, HoweverItIsStoppedNoRunStartsAfterwards) {
    const StopCase cases[] = {
        {"cancelled", false, [](auto& timer) { timer->cancel(); }},
        {"dropped", false, [](auto& timer) { timer.reset(); }},
        {"cancelled by its work", true, [](auto& timer) { timer->cancel(); }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        for (int round = 0; round < 20; ++round) {
            // Shared with the work: a run begun before the stop may still be on its way.
            const auto runs = std::make_shared<std::atomic<int>>(0);
            const int stopAt = 1 + round % 3;
            auto timer = timerEvery(milliseconds(1));
            timer->start([&c, runs, stopAt, weak = std::weak_ptr<PacedTimer>(timer)] {
                if (++*runs != stopAt || !c.fromWork) return;
                if (auto self = weak.lock()) c.stop(self);
            });
            ASSERT_TRUE(qlm_test::waitUntil([&] { return runs->load() >= stopAt; }));
            if (!c.fromWork) c.stop(timer);
            const int runsAtStop = c.fromWork ? stopAt : runs->load();
            // Many intervals' chance to run again, which must go unused.
            std::this_thread::sleep_for(milliseconds(20));
            EXPECT_LE(runs->load() - runsAtStop, c.fromWork ? 0 : 1) << "round " << round;
        }
    }
}

}  // namespace
