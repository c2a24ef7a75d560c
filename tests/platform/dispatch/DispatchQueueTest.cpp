#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/dispatch/DispatchQueue.h"
#include "platform/dispatch/DispatchSemaphore.h"
#include "platform/foundation/NSThread.h"
#include "tests/support/Wait.h"

namespace {

using platform::dispatch_queue_t;
using platform::DispatchQoS;
using platform::DispatchQueue;
using platform::DispatchTime;
using platform::DispatchTimeInterval;

struct TargetCase {
    const char* name;
    std::function<dispatch_queue_t()> makeTarget;  // null: the default target
    bool targetIsSerial;
    bool targetIsMain;
};

class SerialQueueTarget : public ::testing::TestWithParam<TargetCase> {};

// Blocks of one serial queue, and its log of (producer, sequence) in the order they ran.
struct Recorder {
    dispatch_queue_t queue;
    std::vector<std::pair<int, int>> ran;  // guarded by `queue` being serial
    std::atomic<int> inside{0};
};

// Two queues on one target, so their drains compete for it; each producer ends with a sync onto
// both, which must return only after its block, itself run after every earlier block.
TEST_P(SerialQueueTarget, RunsBlocksOneAtATimeInOrderAndSyncWaitsForEarlierOnes) {
    constexpr int kProducers = 4;
    constexpr int kPerProducer = 200;
    const TargetCase& c = GetParam();
    const dispatch_queue_t target = c.makeTarget();
    Recorder recorders[2];
    for (auto& r : recorders)
        r.queue = DispatchQueue::makeSerial("recorder", DispatchQoS::unspecified, target);
    std::atomic<int> insideTarget{0};
    std::atomic<bool> wrong{false};  // overlapped, or off the main thread with the main queue as target
    std::atomic<int> syncsSawAll{0};
    std::atomic<int> producersDone{0};

    std::vector<std::thread> producers;
    for (int p = 0; p < kProducers; ++p) {
        producers.emplace_back([&, p] {
            for (int i = 0; i < kPerProducer; ++i) {
                Recorder& r = recorders[(p + i) % 2];
                r.queue->async([&, p, i] {
                    if (r.inside.fetch_add(1) != 0) wrong = true;
                    if (insideTarget.fetch_add(1) != 0 && c.targetIsSerial) wrong = true;
                    if (c.targetIsMain && !platform::NSThread::isMainThread()) wrong = true;
                    r.ran.emplace_back(p, i);
                    insideTarget.fetch_sub(1);
                    r.inside.fetch_sub(1);
                });
            }
            for (auto& r : recorders) {
                bool sawAll = false;
                r.queue->sync([&] {
                    int mine = 0;
                    for (const auto& entry : r.ran) mine += entry.first == p;
                    sawAll = mine == kPerProducer / 2;
                });
                if (sawAll) ++syncsSawAll;
            }
            ++producersDone;
        });
    }
    // With the main queue as target, the main thread must be running its loop meanwhile.
    EXPECT_TRUE(qlm_test::runMainLoopUntil([&] { return producersDone.load() == kProducers; }));
    for (auto& t : producers) t.join();
    EXPECT_FALSE(wrong.load());
    EXPECT_EQ(syncsSawAll.load(), 2 * kProducers);
    for (auto& r : recorders) {
        std::vector<int> last(kProducers, -1);
        for (const auto& [producer, sequence] : r.ran) {
            EXPECT_LT(last[producer], sequence) << "producer " << producer;
            last[producer] = sequence;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Targets, SerialQueueTarget,
    ::testing::Values(TargetCase{"defaultGlobal", [] { return dispatch_queue_t(); }, false, false},
                      TargetCase{"serialQueue", [] { return DispatchQueue::makeSerial("outer"); }, true,
                                 false},
                      TargetCase{"serialChain",
                                 [] {
                                     return DispatchQueue::makeSerial("middle", DispatchQoS::unspecified,
                                                                      DispatchQueue::makeSerial("outer"));
                                 },
                                 true, false},
                      TargetCase{"mainQueue", [] { return DispatchQueue::main(); }, true, true}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(MainQueue, SyncFromOtherThreadsRunsOnTheMainThreadWhileItRunsItsLoop) {
    constexpr int kPoolBlocks = 24;  // workers of the global pool, all parked in dispatch_sync
    constexpr int kThreads = 3;
    std::atomic<int> offMain{0};
    std::atomic<int> returned{0};
    auto syncOntoMain = [&] {
        bool ran = false;
        DispatchQueue::main()->sync([&] {
            ran = true;
            if (!platform::NSThread::isMainThread()) ++offMain;
        });
        if (ran) ++returned;
    };
    for (int i = 0; i < kPoolBlocks; ++i) DispatchQueue::global()->async(syncOntoMain);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) threads.emplace_back(syncOntoMain);
    EXPECT_TRUE(qlm_test::runMainLoopUntil([&] { return returned.load() == kPoolBlocks + kThreads; }));
    for (auto& t : threads) t.join();
    EXPECT_EQ(offMain.load(), 0);
}

TEST(GlobalQueue, BlocksDoNotWaitBehindBlockedWorkersAndEachSignalReleasesOneWait) {
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
    EXPECT_FALSE(gate->wait(DispatchTime::now())) << "no signal left over";
}

}  // namespace
