#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <thread>

#include "platform/dispatch/DispatchSourceTimer.h"
#include "tests/support/Wait.h"

namespace {

using platform::dispatch_queue_t;
using platform::DispatchQueue;
using platform::DispatchSourceTimer;
using platform::DispatchTime;
using platform::DispatchTimeInterval;
using qlm_test::waitUntil;

constexpr auto kOneMs = DispatchTimeInterval::milliseconds(1);

std::shared_ptr<DispatchSourceTimer> makeTimer(const dispatch_queue_t& queue, std::function<void()> handler) {
    auto timer = DispatchSourceTimer::makeTimerSource(platform::DispatchTimerFlags::none, queue);
    timer->setEventHandler(std::move(handler));
    return timer;
}

// Lets `turns` deliveries of a fresh 1 ms repeating timer pass on `queue`: evidence that the timer
// machinery has moved on, without guessing a time. Blocks already queued on a serial `queue` have
// run by then.
bool letTimerTurnsPass(const dispatch_queue_t& queue, int turns = 5) {
    auto count = std::make_shared<std::atomic<int>>(0);
    auto witness = makeTimer(queue, [count] { ++*count; });
    witness->schedule(DispatchTime::now(), kOneMs);
    witness->activate();
    const bool ok = waitUntil([&] { return count->load() >= turns; });
    witness->cancel();
    return ok;
}

TEST(DispatchSourceTimer, OneShotFiresOncePerScheduleOnlyAfterActivateIncludingFromItsHandler) {
    constexpr int kFromHandler = 5;
    const auto queue = DispatchQueue::makeSerial("timer");
    auto count = std::make_shared<std::atomic<int>>(0);
    const auto timer = DispatchSourceTimer::makeTimerSource(platform::DispatchTimerFlags::none, queue);
    std::weak_ptr<DispatchSourceTimer> weakTimer = timer;
    timer->setEventHandler([count, weakTimer] {
        if (++*count >= kFromHandler) return;
        if (auto t = weakTimer.lock()) t->schedule(DispatchTime::now() + kOneMs);
    });
    timer->schedule(DispatchTime::now());
    ASSERT_TRUE(letTimerTurnsPass(queue));
    EXPECT_EQ(count->load(), 0) << "fired before activate";
    timer->activate();
    for (int expected = kFromHandler; expected <= kFromHandler + 2; ++expected) {
        ASSERT_TRUE(waitUntil([&] { return count->load() >= expected; }));
        ASSERT_TRUE(letTimerTurnsPass(queue));
        EXPECT_EQ(count->load(), expected);
        timer->schedule(DispatchTime::now());  // from outside the handler
    }
    timer->cancel();
}

// Cancelled from a block of the handler's own serial queue, as owners usually do: no handler starts
// after that block. Cancelled from another thread racing with firings: only a handler already
// claimed may still start, at most one, as runs of one source never overlap.
TEST(DispatchSourceTimer, NoHandlerStartsAfterCancelWhichReleasesTheHandler) {
    for (int round = 0; round < 40; ++round) {
        const bool fromQueue = round % 2 == 0;
        const auto queue = round % 4 == 3 ? DispatchQueue::global() : DispatchQueue::makeSerial("timer");
        auto started = std::make_shared<std::atomic<int>>(0);
        auto atCancel = std::make_shared<std::atomic<int>>(-1);
        auto captured = std::make_shared<int>(0);
        std::weak_ptr<int> weakCaptured = captured;
        const auto timer = makeTimer(queue, [started, captured = std::move(captured)] { ++*started; });
        timer->schedule(DispatchTime::now(), DispatchTimeInterval::microseconds(100));
        timer->activate();
        ASSERT_TRUE(waitUntil([&] { return started->load() >= round % 5; }));
        auto cancelNow = [timer, started, atCancel] {
            timer->cancel();
            *atCancel = started->load();
        };
        if (fromQueue) {
            queue->async(cancelNow);
        } else {
            std::thread(cancelNow).join();
        }
        ASSERT_TRUE(letTimerTurnsPass(queue, 10));
        EXPECT_TRUE(timer->isCancelled());
        EXPECT_LE(started->load(), atCancel->load() + (fromQueue ? 0 : 1)) << "round " << round;
        // Letting go of the handler breaks cycles through it, and later calls change nothing.
        EXPECT_TRUE(waitUntil([&] { return weakCaptured.expired(); })) << "round " << round;
        const int before = started->load();
        timer->setEventHandler([started] { ++*started; });
        timer->schedule(DispatchTime::now(), kOneMs);
        timer->activate();
        ASSERT_TRUE(letTimerTurnsPass(queue));
        EXPECT_EQ(started->load(), before) << "round " << round;
    }
}

// An owner holds its timer, whose handler holds the owner weakly; something else keeps the timer.
TEST(DispatchSourceTimerLifetime, HandlerFindsItsOwnerGoneThenDroppingTheSourceStopsIt) {
    struct Owner {
        std::shared_ptr<DispatchSourceTimer> timer;
    };
    const auto queue = DispatchQueue::makeSerial("timer");
    auto owner = std::make_shared<Owner>();
    auto count = std::make_shared<std::atomic<int>>(0);
    auto gone = std::make_shared<std::atomic<int>>(0);
    auto captured = std::make_shared<int>(0);
    std::weak_ptr<int> weakCaptured = captured;
    owner->timer = makeTimer(queue, [weakOwner = std::weak_ptr<Owner>(owner), count, gone, captured] {
        ++*count;
        if (!weakOwner.lock()) ++*gone;
    });
    captured.reset();
    auto timer = owner->timer;
    std::weak_ptr<DispatchSourceTimer> weakTimer = timer;
    timer->schedule(DispatchTime::now(), DispatchTimeInterval::microseconds(100));
    timer->activate();
    ASSERT_TRUE(waitUntil([&] { return count->load() >= 2; }));
    owner.reset();
    ASSERT_TRUE(waitUntil([&] { return gone->load() >= 2; }));
    timer.reset();
    // A delivery under way holds the source until its handler returns.
    ASSERT_TRUE(waitUntil([&] { return weakTimer.expired() && weakCaptured.expired(); }));
    const int atDrop = count->load();
    ASSERT_TRUE(letTimerTurnsPass(queue));
    EXPECT_EQ(count->load(), atDrop);

    // Many dropped at every stage of firing, for the sanitizers to watch.
    for (int i = 0; i < 300; ++i) {
        auto dropped = makeTimer(DispatchQueue::global(), [count] { ++*count; });
        dropped->schedule(DispatchTime::now(), DispatchTimeInterval::nanosecondsInterval(i * 1000));
        dropped->activate();
        if (i % 3 == 0) std::this_thread::yield();
    }
    EXPECT_TRUE(letTimerTurnsPass(DispatchQueue::global()));
}

}  // namespace
