#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "platform/foundation/NSRunLoop.h"
#include "platform/foundation/NSThread.h"
#include "tests/support/Wait.h"

namespace {

using platform::NSRunLoop;

TEST(NSRunLoop, BlocksFromManyThreadsRunOnTheLoopsThreadInPostingOrder) {
    constexpr int kPosters = 4;
    constexpr int kPerPoster = 250;
    const auto loop = NSRunLoop::mainRunLoop();
    std::vector<std::pair<int, int>> ran;  // main thread only
    std::atomic<int> offThread{0};
    std::atomic<int> finished{0};
    std::vector<std::thread> posters;
    for (int p = 0; p < kPosters; ++p) {
        posters.emplace_back([&, p] {
            for (int i = 0; i < kPerPoster; ++i) {
                loop->performBlock([&, p, i] {
                    if (!platform::NSThread::isMainThread()) ++offThread;
                    ran.emplace_back(p, i);
                    ++finished;
                });
            }
        });
    }
    for (auto& t : posters) t.join();
    ASSERT_TRUE(qlm_test::runMainLoopUntil([&] { return finished.load() == kPosters * kPerPoster; }));
    EXPECT_EQ(offThread.load(), 0);
    std::vector<int> last(kPosters, -1);
    for (const auto& [poster, sequence] : ran) {
        EXPECT_LT(last[poster], sequence);
        last[poster] = sequence;
    }
}

TEST(NSRunLoop, StopEndsTheInnermostRunAfterTheBlockUnderWay) {
    // On a thread of its own, so the main loop is never left mid-run.
    std::thread([] {
        auto loop = NSRunLoop::currentRunLoop();
        std::vector<std::string> log;
        loop->performBlock([&] {
            log.push_back("outer block");
            loop->performBlock([&] {
                log.push_back("inner block");
                loop->stop();
                log.push_back("inner block ends");
            });
            loop->performBlock([&] { log.push_back("after inner stop"); });
            loop->run();  // nested
            log.push_back("nested run returned");
            loop->performBlock([&] { loop->stop(); });
        });
        // A date far ahead: only stop() can end this run.
        loop->runUntilDate(platform::NSDate(1e12));
        log.push_back("outer run returned");
        // The block the stopped nested run left behind ran in the outer run, before its stop.
        EXPECT_EQ(
            log, (std::vector<std::string>{"outer block", "inner block", "inner block ends",
                                           "nested run returned", "after inner stop", "outer run returned"}));
    }).join();
}

}  // namespace
