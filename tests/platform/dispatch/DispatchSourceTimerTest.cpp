#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "platform/dispatch/DispatchSourceTimer.h"
#include "platform/foundation/NSThread.h"
#include "tests/platform/dispatch/DispatchTestSupport.h"
#include "tests/support/Wait.h"

namespace {

using platform::dispatch_queue_t;
using platform::DispatchQueue;
using platform::DispatchSourceTimer;
using platform::DispatchTime;
using platform::DispatchTimeInterval;
using platform::DispatchTimerFlags;
using qlm_dispatch_test::letTimerTurnsPass;

constexpr auto kOneMs = DispatchTimeInterval::milliseconds(1);

std::shared_ptr<DispatchSourceTimer> countingTimer(const dispatch_queue_t& queue,
                                                   const std::shared_ptr<std::atomic<int>>& count) {
    auto timer = DispatchSourceTimer::makeTimerSource(DispatchTimerFlags::none, queue);
    timer->setEventHandler([count] { ++*count; });
    return timer;
}

TEST(DispatchSourceTimer, NothingFiresBeforeActivateAndReschedulingReplacesTheDeadline) {
    const auto queue = DispatchQueue::makeSerial("timer");
    auto count = std::make_shared<std::atomic<int>>(0);
    const auto timer = countingTimer(queue, count);
    timer->schedule(DispatchTime::now(), kOneMs);
    ASSERT_TRUE(letTimerTurnsPass(queue));
    EXPECT_EQ(count->load(), 0);
    // Replaced before activation: only the far deadline is armed.
    timer->schedule(DispatchTime::now() + DispatchTimeInterval::seconds(3600));
    timer->activate();
    ASSERT_TRUE(letTimerTurnsPass(queue));
    EXPECT_EQ(count->load(), 0);
    timer->schedule(DispatchTime::now(), kOneMs);  // and replaced by a near, repeating one
    EXPECT_TRUE(qlm_test::waitUntil([&] { return count->load() >= 3; }));
    timer->cancel();
}

TEST(DispatchSourceTimer, OneShotFiresOncePerScheduleIncludingOnesFromItsOwnHandler) {
    constexpr int kFromHandler = 5;
    const auto queue = DispatchQueue::makeSerial("timer");
    auto count = std::make_shared<std::atomic<int>>(0);
    const auto timer = DispatchSourceTimer::makeTimerSource(DispatchTimerFlags::none, queue);
    std::weak_ptr<DispatchSourceTimer> weakTimer = timer;
    timer->setEventHandler([count, weakTimer] {
        if (++*count >= kFromHandler) return;
        if (auto t = weakTimer.lock()) t->schedule(DispatchTime::now() + kOneMs);
    });
    timer->schedule(DispatchTime::now());
    timer->activate();
    for (int expected = kFromHandler; expected <= kFromHandler + 2; ++expected) {
        ASSERT_TRUE(qlm_test::waitUntil([&] { return count->load() >= expected; }));
        ASSERT_TRUE(letTimerTurnsPass(queue));
        EXPECT_EQ(count->load(), expected);
        timer->schedule(DispatchTime::now());  // from outside the handler
    }
    timer->cancel();
}

TEST(DispatchSourceTimer, HandlerRunsOnItsSerialQueueWithoutOverlappingItsOtherBlocks) {
    const auto queue = DispatchQueue::makeSerial("shared");
    auto inside = std::make_shared<std::atomic<int>>(0);
    auto overlapped = std::make_shared<std::atomic<bool>>(false);
    auto handled = std::make_shared<std::atomic<int>>(0);
    auto onQueue = [=] {
        if (inside->fetch_add(1) != 0) *overlapped = true;
        std::this_thread::yield();
        inside->fetch_sub(1);
    };
    std::vector<std::shared_ptr<DispatchSourceTimer>> timers;
    for (int i = 0; i < 3; ++i) {
        auto timer = DispatchSourceTimer::makeTimerSource(DispatchTimerFlags::none, queue);
        timer->setEventHandler([=] {
            onQueue();
            ++*handled;
        });
        timer->schedule(DispatchTime::now(), DispatchTimeInterval::microseconds(200));
        timer->activate();
        timers.push_back(timer);
    }
    for (int i = 0; i < 200; ++i) queue->async(onQueue);
    EXPECT_TRUE(qlm_test::waitUntil([&] { return handled->load() >= 30; }));
    for (auto& t : timers) t->cancel();
    queue->sync([] {});
    EXPECT_FALSE(overlapped->load());
}

class TimerOnMainQueue : public qlm_dispatch_test::MainLoopTest {};

TEST_F(TimerOnMainQueue, HandlerRunsOnTheMainThread) {
    std::atomic<int> onMain{0};
    std::atomic<int> offMain{0};
    const auto timer = DispatchSourceTimer::makeTimerSource(DispatchTimerFlags::none, DispatchQueue::main());
    timer->setEventHandler([&] { ++(platform::NSThread::isMainThread() ? onMain : offMain); });
    timer->schedule(DispatchTime::now(), kOneMs);
    timer->activate();
    EXPECT_TRUE(qlm_test::runMainLoopUntil([&] { return onMain.load() >= 3; }));
    timer->cancel();
    EXPECT_EQ(offMain.load(), 0);
}

TEST(DispatchSourceTimerCancel, NoHandlerStartsAfterCancelOnTheHandlersQueue) {
    // Cancelled from a block of the handler's own serial queue, as owners usually do: the handler
    // must never see that block's mark.
    for (int round = 0; round < 20; ++round) {
        const auto queue = DispatchQueue::makeSerial("timer");
        auto started = std::make_shared<std::atomic<int>>(0);
        auto startedAfterCancel = std::make_shared<std::atomic<bool>>(false);
        auto cancelled = std::make_shared<bool>(false);  // touched on `queue` only
        const auto timer = DispatchSourceTimer::makeTimerSource(DispatchTimerFlags::none, queue);
        timer->setEventHandler([=] {
            if (*cancelled) *startedAfterCancel = true;
            ++*started;
        });
        timer->schedule(DispatchTime::now(), DispatchTimeInterval::microseconds(100));
        timer->activate();
        const int before = round % 4;
        ASSERT_TRUE(qlm_test::waitUntil([&] { return started->load() >= before; }));
        queue->async([=] {
            timer->cancel();
            *cancelled = true;
        });
        ASSERT_TRUE(letTimerTurnsPass(queue));
        EXPECT_TRUE(timer->isCancelled());
        EXPECT_FALSE(startedAfterCancel->load()) << "round " << round;
    }
}

TEST(DispatchSourceTimerCancel, CancelFromAnotherThreadRacingWithFiringsStopsThem) {
    // Only a handler already claimed when cancel() was called may still start: at most one, as
    // runs of one source never overlap.
    for (int round = 0; round < 20; ++round) {
        const auto queue = round % 2 ? DispatchQueue::global() : DispatchQueue::makeSerial("timer");
        auto started = std::make_shared<std::atomic<int>>(0);
        const auto timer = countingTimer(queue, started);
        timer->schedule(DispatchTime::now(), DispatchTimeInterval::microseconds(50));
        timer->activate();
        ASSERT_TRUE(qlm_test::waitUntil([&] { return started->load() >= round % 5; }));
        std::thread canceller([&] { timer->cancel(); });
        canceller.join();
        const int atCancel = started->load();
        ASSERT_TRUE(letTimerTurnsPass(queue, 10));
        EXPECT_LE(started->load(), atCancel + 1) << "round " << round;
    }
}

TEST(DispatchSourceTimerLifetime, HandlerHoldingItsOwnerWeaklyFindsItGone) {
    struct Owner {
        std::shared_ptr<DispatchSourceTimer> timer;
    };
    const auto queue = DispatchQueue::makeSerial("timer");
    auto owner = std::make_shared<Owner>();
    auto alive = std::make_shared<std::atomic<int>>(0);
    auto gone = std::make_shared<std::atomic<int>>(0);
    owner->timer = DispatchSourceTimer::makeTimerSource(DispatchTimerFlags::none, queue);
    const auto keptTimer = owner->timer;  // outlives the owner
    std::weak_ptr<Owner> weakOwner = owner;
    keptTimer->setEventHandler([weakOwner, alive, gone] { ++*(weakOwner.lock() ? alive : gone); });
    keptTimer->schedule(DispatchTime::now(), kOneMs);
    keptTimer->activate();
    ASSERT_TRUE(qlm_test::waitUntil([&] { return alive->load() >= 1; }));
    owner.reset();
    EXPECT_TRUE(qlm_test::waitUntil([&] { return gone->load() >= 2; }));
    keptTimer->cancel();
}

TEST(DispatchSourceTimerLifetime, DroppingTheLastReferenceStopsTheSourceAndReleasesItsHandler) {
    const auto queue = DispatchQueue::makeSerial("timer");
    auto count = std::make_shared<std::atomic<int>>(0);
    auto captured = std::make_shared<int>(0);
    std::weak_ptr<int> weakCaptured = captured;
    auto timer = DispatchSourceTimer::makeTimerSource(DispatchTimerFlags::none, queue);
    std::weak_ptr<DispatchSourceTimer> weakTimer = timer;
    timer->setEventHandler([count, captured] { ++*count; });
    captured.reset();
    timer->schedule(DispatchTime::now(), DispatchTimeInterval::microseconds(100));
    timer->activate();
    ASSERT_TRUE(qlm_test::waitUntil([&] { return count->load() >= 2; }));
    timer.reset();
    // A delivery under way holds the source until its handler returns.
    ASSERT_TRUE(qlm_test::waitUntil([&] { return weakTimer.expired() && weakCaptured.expired(); }));
    const int atDrop = count->load();
    ASSERT_TRUE(letTimerTurnsPass(queue));
    EXPECT_EQ(count->load(), atDrop);
}

TEST(DispatchSourceTimerLifetime, SourcesDroppedWhileFiringDoNotCrash) {
    auto count = std::make_shared<std::atomic<int>>(0);
    const auto queue = DispatchQueue::global();
    for (int i = 0; i < 300; ++i) {
        auto timer = countingTimer(queue, count);
        timer->schedule(DispatchTime::now(), DispatchTimeInterval::nanosecondsInterval(i * 1000));
        timer->activate();
        if (i % 3 == 0) std::this_thread::yield();
    }
    EXPECT_TRUE(letTimerTurnsPass(queue));
}

TEST(DispatchSourceTimerCancel, CancelReleasesTheHandlerAndIgnoresLaterCalls) {
    const auto queue = DispatchQueue::makeSerial("timer");
    auto count = std::make_shared<std::atomic<int>>(0);
    auto captured = std::make_shared<int>(0);
    std::weak_ptr<int> weakCaptured = captured;
    const auto timer = DispatchSourceTimer::makeTimerSource(DispatchTimerFlags::none, queue);
    timer->setEventHandler([count, captured] { ++*count; });
    captured.reset();
    timer->cancel();
    EXPECT_TRUE(timer->isCancelled());
    EXPECT_TRUE(weakCaptured.expired());  // as the platform does, breaking cycles through it
    timer->setEventHandler([count] { ++*count; });
    timer->schedule(DispatchTime::now(), kOneMs);
    timer->activate();
    ASSERT_TRUE(letTimerTurnsPass(queue));
    EXPECT_EQ(count->load(), 0);
}

}  // namespace
