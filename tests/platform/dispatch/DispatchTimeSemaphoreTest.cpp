#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

#include "platform/dispatch/DispatchSemaphore.h"
#include "platform/dispatch/DispatchTime.h"
#include "tests/support/Wait.h"

namespace {

using platform::DispatchSemaphore;
using platform::DispatchTime;
using platform::DispatchTimeInterval;

struct AdditionCase {
    uint64_t start;
    DispatchTimeInterval interval;
    uint64_t expected;
};

class DispatchTimeAddition : public ::testing::TestWithParam<AdditionCase> {};

TEST_P(DispatchTimeAddition, SaturatesAtTheEnds) {
    EXPECT_EQ((DispatchTime{GetParam().start} + GetParam().interval).uptimeNanoseconds, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, DispatchTimeAddition,
    ::testing::Values(AdditionCase{1000, DispatchTimeInterval::microseconds(2), 3000},
                      AdditionCase{5000, DispatchTimeInterval::nanosecondsInterval(-2000), 3000},
                      AdditionCase{5000, DispatchTimeInterval::seconds(-1), 0},
                      AdditionCase{1000, DispatchTimeInterval::never(), UINT64_MAX},
                      AdditionCase{UINT64_MAX, DispatchTimeInterval::seconds(-1), UINT64_MAX},
                      AdditionCase{UINT64_MAX - 10, DispatchTimeInterval::nanosecondsInterval(10), UINT64_MAX},
                      AdditionCase{UINT64_MAX - 10, DispatchTimeInterval::seconds(INT64_MAX / 1000000000), UINT64_MAX},
                      AdditionCase{0, DispatchTimeInterval::nanosecondsInterval(INT64_MIN), 0}));

TEST(DispatchTime, NowNeverGoesBackAndUptimeAgreesWithIt) {
    const DispatchTime first = DispatchTime::now();
    const double uptime = platform::systemUptime();
    const DispatchTime second = DispatchTime::now();
    EXPECT_LE(first, second);
    EXPECT_GE(uptime * 1e9, static_cast<double>(first.uptimeNanoseconds) - 1e3);
    EXPECT_LE(uptime * 1e9, static_cast<double>(second.uptimeNanoseconds) + 1e3);
}

TEST(DispatchSemaphore, CountsAndTimesOutWhenNothingIsLeft) {
    DispatchSemaphore semaphore(2);
    EXPECT_TRUE(semaphore.wait(DispatchTime::now()));
    EXPECT_TRUE(semaphore.wait(DispatchTime::now()));
    EXPECT_FALSE(semaphore.wait(DispatchTime::now() + DispatchTimeInterval::milliseconds(5)));
    EXPECT_FALSE(semaphore.signal());  // nobody waiting
    EXPECT_TRUE(semaphore.wait(DispatchTime::distantFuture()));
    EXPECT_FALSE(semaphore.wait(DispatchTime{0}));
}

TEST(DispatchSemaphore, EverySignalReleasesExactlyOneWaitWithOrWithoutDeadline) {
    constexpr int kThreads = 4;
    constexpr int kPerThread = 200;
    DispatchSemaphore semaphore(0);
    std::atomic<int> acquired{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < kPerThread; ++i) {
                semaphore.wait();
                ++acquired;
            }
        });
        threads.emplace_back([&] {
            for (int i = 0; i < kPerThread; ++i) semaphore.signal();
        });
    }
    std::atomic<bool> deadlineWaitAcquired{false};
    threads.emplace_back([&] {
        deadlineWaitAcquired = semaphore.wait(DispatchTime::now() + DispatchTimeInterval::seconds(30));
    });
    semaphore.signal();
    for (auto& t : threads) t.join();
    EXPECT_EQ(acquired.load(), kThreads * kPerThread);
    EXPECT_TRUE(deadlineWaitAcquired.load());
    EXPECT_FALSE(semaphore.wait(DispatchTime::now()));  // nothing over
}

}  // namespace
