#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/dispatch/DispatchQueue.h"
#include "platform/dispatch/DispatchSemaphore.h"
#include "platform/foundation/NSThread.h"
#include "tests/platform/dispatch/DispatchTestSupport.h"
#include "tests/support/Wait.h"

namespace {

using platform::dispatch_queue_t;
using platform::DispatchQoS;
using platform::DispatchQueue;
using platform::DispatchTime;
using platform::DispatchTimeInterval;
using qlm_dispatch_test::MainLoopTest;

struct TargetCase {
    const char* name;
    std::function<dispatch_queue_t()> makeTarget;  // null target: the queue's default
    bool targetIsSerial;
};

void PrintTo(const TargetCase& c, std::ostream* os) { *os << c.name; }

class SerialQueueTarget : public MainLoopTest, public ::testing::WithParamInterface<TargetCase> {};

// Blocks of one serial queue, and its log of (producer, sequence) in the order they ran.
struct Recorder {
    dispatch_queue_t queue;
    std::vector<std::pair<int, int>> ran;  // guarded by `queue` being serial
    std::atomic<int> inside{0};
};

TEST_P(SerialQueueTarget, RunsEachQueuesBlocksOneAtATimeInSubmissionOrderFromManyProducers) {
    constexpr int kProducers = 4;
    constexpr int kPerProducer = 200;
    const dispatch_queue_t target = GetParam().makeTarget();
    // Two queues on one target, so their drains compete for it.
    Recorder recorders[2];
    for (auto& r : recorders) r.queue = DispatchQueue::makeSerial("recorder", DispatchQoS::unspecified, target);
    std::atomic<int> insideTarget{0};
    std::atomic<bool> overlapped{false};
    std::atomic<int> finished{0};

    std::vector<std::thread> producers;
    for (int p = 0; p < kProducers; ++p) {
        producers.emplace_back([&, p] {
            for (int i = 0; i < kPerProducer; ++i) {
                Recorder& r = recorders[(p + i) % 2];
                r.queue->async([&, p, i] {
                    if (r.inside.fetch_add(1) != 0) overlapped = true;
                    if (insideTarget.fetch_add(1) != 0 && GetParam().targetIsSerial) overlapped = true;
                    r.ran.emplace_back(p, i);
                    insideTarget.fetch_sub(1);
                    r.inside.fetch_sub(1);
                    ++finished;
                });
            }
        });
    }
    for (auto& t : producers) t.join();
    ASSERT_TRUE(qlm_test::runMainLoopUntil([&] { return finished.load() == kProducers * kPerProducer; }));
    EXPECT_FALSE(overlapped.load());
    for (auto& r : recorders) {
        std::vector<int> last(kProducers, -1);
        for (const auto& [producer, sequence] : r.ran) {
            EXPECT_LT(last[producer], sequence) << "producer " << producer;
            last[producer] = sequence;
        }
        EXPECT_EQ(r.ran.size(), static_cast<size_t>(kProducers * kPerProducer / 2));
    }
}

TEST_P(SerialQueueTarget, SyncRunsAfterEarlierBlocksAndBeforeLaterOnes) {
    const dispatch_queue_t queue = DispatchQueue::makeSerial("sync", DispatchQoS::utility, GetParam().makeTarget());
    std::vector<int> log;  // written on `queue` only
    std::vector<int> seenAfterFirstSync;
    std::vector<int> seenAfterSecondSync;
    std::atomic<bool> done{false};
    // Off the main thread: with the main queue as target, the main thread must be running its loop.
    std::thread caller([&] {
        queue->async([&] { log.push_back(1); });
        queue->async([&] { log.push_back(2); });
        queue->sync([&] { log.push_back(3); });
        seenAfterFirstSync = log;
        queue->async([&] { log.push_back(4); });
        queue->sync([] {});
        seenAfterSecondSync = log;
        done = true;
    });
    EXPECT_TRUE(qlm_test::runMainLoopUntil([&] { return done.load(); }));
    caller.join();
    EXPECT_EQ(seenAfterFirstSync, (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(seenAfterSecondSync, (std::vector<int>{1, 2, 3, 4}));
}

INSTANTIATE_TEST_SUITE_P(
    Targets, SerialQueueTarget,
    ::testing::Values(
        TargetCase{"defaultGlobal", [] { return dispatch_queue_t(); }, false},
        TargetCase{"userInitiatedGlobal", [] { return DispatchQueue::global(DispatchQoS::userInitiated); }, false},
        TargetCase{"serialQueue", [] { return DispatchQueue::makeSerial("outer"); }, true},
        TargetCase{"serialChain",
                   [] {
                       return DispatchQueue::makeSerial("middle", DispatchQoS::unspecified,
                                                        DispatchQueue::makeSerial("outer"));
                   },
                   true},
        TargetCase{"mainQueue", [] { return DispatchQueue::main(); }, true}),
    [](const auto& info) { return std::string(info.param.name); });

class MainQueueTest : public MainLoopTest {};

TEST_F(MainQueueTest, SyncFromOtherThreadsRunsOnTheMainThreadWhileItRunsItsLoop) {
    constexpr int kPoolBlocks = 24;  // workers of the global pool, all parked in dispatch_sync
    constexpr int kThreads = 3;
    std::atomic<int> onMain{0};
    std::atomic<int> offMain{0};
    std::atomic<int> returned{0};
    auto syncOntoMain = [&] {
        bool ran = false;
        DispatchQueue::main()->sync([&] {
            ran = true;
            ++(platform::NSThread::isMainThread() ? onMain : offMain);
        });
        if (ran) ++returned;
    };
    for (int i = 0; i < kPoolBlocks; ++i) DispatchQueue::global()->async(syncOntoMain);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) threads.emplace_back(syncOntoMain);
    EXPECT_TRUE(qlm_test::runMainLoopUntil([&] { return returned.load() == kPoolBlocks + kThreads; }));
    for (auto& t : threads) t.join();
    EXPECT_EQ(onMain.load(), kPoolBlocks + kThreads);
    EXPECT_EQ(offMain.load(), 0);
}

TEST(GlobalQueue, BlocksDoNotWaitBehindBlockedWorkers) {
    // Each block waits for the last one submitted; only a pool that grows lets that one run.
    constexpr int kBlocked = 40;
    auto gate = std::make_shared<platform::DispatchSemaphore>(0);
    auto released = std::make_shared<std::atomic<int>>(0);
    auto timedOut = std::make_shared<std::atomic<int>>(0);
    for (int i = 0; i < kBlocked; ++i) {
        DispatchQueue::global(i % 2 ? DispatchQoS::utility : DispatchQoS::default_)->async([=] {
            ++(gate->wait(DispatchTime::now() + DispatchTimeInterval::seconds(20)) ? *released : *timedOut);
        });
    }
    DispatchQueue::global(DispatchQoS::background)->async([=] {
        for (int i = 0; i < kBlocked; ++i) gate->signal();
    });
    EXPECT_TRUE(qlm_test::waitUntil([&] { return released->load() + timedOut->load() == kBlocked; },
                                    std::chrono::seconds(30)));
    EXPECT_EQ(timedOut->load(), 0);
}

TEST(DispatchQueueIdentity, OneGlobalQueuePerClassUnspecifiedBeingDefault) {
    EXPECT_EQ(DispatchQueue::global(DispatchQoS::unspecified), DispatchQueue::global(DispatchQoS::default_));
    EXPECT_NE(DispatchQueue::global(DispatchQoS::utility), DispatchQueue::global(DispatchQoS::background));
    EXPECT_EQ(DispatchQueue::main(), DispatchQueue::main());
}

TEST(AsyncAfter, RunsNoEarlierThanItsDeadlineKeepingTheQueueAliveAndNeverForDistantFuture) {
    auto ranAt = std::make_shared<std::atomic<uint64_t>>(0);
    auto never = std::make_shared<std::atomic<int>>(0);
    const DispatchTime deadline = DispatchTime::now() + DispatchTimeInterval::milliseconds(20);
    {
        auto queue = DispatchQueue::makeSerial("after");
        queue->asyncAfter(DispatchTime::distantFuture(), [never] { ++*never; });
        queue->asyncAfter(deadline, [ranAt] { *ranAt = DispatchTime::now().uptimeNanoseconds; });
    }  // the only reference to the queue is gone; the pending block keeps it
    ASSERT_TRUE(qlm_test::waitUntil([&] { return ranAt->load() != 0; }));
    EXPECT_GE(ranAt->load(), deadline.uptimeNanoseconds);
    const auto queue = DispatchQueue::makeSerial("after");
    std::atomic<bool> pastRan{false};
    queue->asyncAfter(DispatchTime{0}, [&] { pastRan = true; });
    ASSERT_TRUE(qlm_dispatch_test::letTimerTurnsPass(queue));
    EXPECT_TRUE(pastRan.load());
    EXPECT_EQ(never->load(), 0);
}

}  // namespace
