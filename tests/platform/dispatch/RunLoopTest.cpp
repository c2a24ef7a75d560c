#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/foundation/NSRunLoop.h"
#include "platform/foundation/NSThread.h"
#include "tests/support/Wait.h"

namespace {

using platform::NSRunLoop;

// A thread running its own run loop until told to stop, for posting to from elsewhere.
class LoopThread {
public:
    LoopThread() {
        std::promise<std::shared_ptr<NSRunLoop>> made;
        auto loop = made.get_future();
        thread_ = std::thread([this, &made] {
            id_ = std::this_thread::get_id();
            made.set_value(NSRunLoop::currentRunLoop());
            NSRunLoop::currentRunLoop()->run();
        });
        loop_ = loop.get();
    }
    ~LoopThread() {
        loop_->performBlock([loop = loop_] { loop->stop(); });
        thread_.join();
    }
    const std::shared_ptr<NSRunLoop>& loop() const { return loop_; }
    std::thread::id id() const { return id_; }

private:
    std::thread thread_;
    std::thread::id id_;  // written before loop_ is published
    std::shared_ptr<NSRunLoop> loop_;
};

TEST(NSRunLoop, TheTestRunnersThreadIsTheMainThreadAndOwnsTheMainLoop) {
    EXPECT_TRUE(platform::NSThread::isMainThread());
    EXPECT_EQ(NSRunLoop::currentRunLoop(), NSRunLoop::mainRunLoop());
    bool otherIsMain = true;
    std::shared_ptr<NSRunLoop> otherCurrent;
    std::shared_ptr<NSRunLoop> otherMain;
    std::thread([&] {
        otherIsMain = platform::NSThread::isMainThread();
        otherCurrent = NSRunLoop::currentRunLoop();
        otherMain = NSRunLoop::mainRunLoop();
    }).join();
    EXPECT_FALSE(otherIsMain);
    EXPECT_NE(otherCurrent, NSRunLoop::mainRunLoop());
    EXPECT_EQ(otherMain, NSRunLoop::mainRunLoop());
}

TEST(NSRunLoop, BlocksFromManyThreadsRunOnTheLoopsThreadInPostingOrder) {
    constexpr int kPosters = 4;
    constexpr int kPerPoster = 250;
    LoopThread loopThread;
    std::vector<std::pair<int, int>> ran;  // loop thread only
    std::atomic<int> offThread{0};
    std::atomic<int> finished{0};
    std::vector<std::thread> posters;
    for (int p = 0; p < kPosters; ++p) {
        posters.emplace_back([&, p] {
            for (int i = 0; i < kPerPoster; ++i) {
                loopThread.loop()->performBlock([&, p, i] {
                    if (std::this_thread::get_id() != loopThread.id()) ++offThread;
                    ran.emplace_back(p, i);
                    ++finished;
                });
            }
        });
    }
    for (auto& t : posters) t.join();
    ASSERT_TRUE(qlm_test::waitUntil([&] { return finished.load() == kPosters * kPerPoster; }));
    EXPECT_EQ(offThread.load(), 0);
    std::vector<int> last(kPosters, -1);
    for (const auto& [poster, sequence] : ran) {
        EXPECT_LT(last[poster], sequence);
        last[poster] = sequence;
    }
}

// These run loops on threads of their own, so the main loop is never left mid-run.
void onOwnThread(const std::function<void()>& body) { std::thread(body).join(); }

TEST(NSRunLoop, PostedBlocksWaitForARunAndReturnAfterSourceHandledRunsOne) {
    onOwnThread([] {
        auto loop = NSRunLoop::currentRunLoop();
        std::vector<int> ran;
        std::thread([&] {
            for (int i = 0; i < 3; ++i) loop->performBlock([&, i] { ran.push_back(i); });
        }).join();
        EXPECT_TRUE(ran.empty());  // posted, but this thread has not run its loop
        loop->stop();              // not running: affects no later run
        platform::CFRunLoopRunInMode(30, true);
        EXPECT_EQ(ran, std::vector<int>{0});
        platform::CFRunLoopRunInMode(0, false);  // a zero-length run still does what is pending
        EXPECT_EQ(ran, (std::vector<int>{0, 1, 2}));
    });
}

TEST(NSRunLoop, StopEndsTheInnermostRunAfterTheBlockUnderWay) {
    onOwnThread([] {
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
        loop->run();
        log.push_back("outer run returned");
        // The block the stopped nested run left behind ran in the outer run, before its stop.
        EXPECT_EQ(log, (std::vector<std::string>{"outer block", "inner block", "inner block ends",
                                                 "nested run returned", "after inner stop",
                                                 "outer run returned"}));
    });
}

TEST(NSRunLoop, RunUntilDateStopsByStopBeforeItsDate) {
    onOwnThread([] {
        auto loop = NSRunLoop::currentRunLoop();
        bool ran = false;
        loop->performBlock([&] {
            ran = true;
            loop->stop();
        });
        // A date far ahead: only stop() can end this run.
        loop->runUntilDate(platform::NSDate(1e12));
        EXPECT_TRUE(ran);
    });
}

}  // namespace
