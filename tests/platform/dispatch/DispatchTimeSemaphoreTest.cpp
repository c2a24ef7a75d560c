#include <gtest/gtest.h>

#include <cstdint>
#include <thread>

#include "platform/dispatch/DispatchSemaphore.h"
#include "platform/dispatch/DispatchTime.h"

namespace {

using platform::DispatchSemaphore;
using platform::DispatchTime;
using platform::DispatchTimeInterval;

TEST(DispatchTime, AdditionSaturatesAtTheEnds) {
    const struct {
        uint64_t start;
        DispatchTimeInterval interval;
        uint64_t expected;
    } cases[] = {
        {1000, DispatchTimeInterval::microseconds(2), 3000},
        {5000, DispatchTimeInterval::nanosecondsInterval(-2000), 3000},
        {5000, DispatchTimeInterval::seconds(-1), 0},
        {1000, DispatchTimeInterval::never(), UINT64_MAX},
        {UINT64_MAX, DispatchTimeInterval::seconds(-1), UINT64_MAX},  // distant future stays
        {UINT64_MAX - 10, DispatchTimeInterval::nanosecondsInterval(10), UINT64_MAX},
        {UINT64_MAX - 10, DispatchTimeInterval::seconds(INT64_MAX / 1000000000), UINT64_MAX},
        {0, DispatchTimeInterval::nanosecondsInterval(INT64_MIN), 0},
    };
    for (const auto& c : cases) {
        EXPECT_EQ((DispatchTime{c.start} + c.interval).uptimeNanoseconds, c.expected) << "from " << c.start;
    }
}

TEST(DispatchSemaphore, CountsAndTimesOutWhenNothingIsLeft) {
    DispatchSemaphore semaphore(2);
    EXPECT_TRUE(semaphore.wait(DispatchTime::now()));
    EXPECT_TRUE(semaphore.wait(DispatchTime::now()));
    EXPECT_FALSE(semaphore.wait(DispatchTime::now() + DispatchTimeInterval::milliseconds(5)));
    EXPECT_FALSE(semaphore.signal());  // nobody waiting
    EXPECT_TRUE(semaphore.wait(DispatchTime::distantFuture()));
    EXPECT_FALSE(semaphore.wait(DispatchTime{0}));
    std::thread signaller([&] { semaphore.signal(); });
    semaphore.wait();  // returns only once signalled
    signaller.join();
}

}  // namespace
