// The facade's tests cover the queue's bound and order; this one its flush racing enqueues.
#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <thread>

#include "engine/TaskQueue.h"
#include "tests/engine/EngineTestSupport.h"

using namespace quillmere;

namespace {

TEST(TaskQueue, EnqueueRacingTheFlushRunsEveryTaskExactlyOnce) {
    constexpr int kThreads = 4;
    constexpr int kPerThread = 20;  // 80 in all: none refused by the bound
    qlm_test::IngestServer server;
    auto core = Core::make(Session::make("app-1"), qlm_test::configurationFor(server));
    std::shared_ptr<Core> running;
    TaskQueue queue([&running] { return running; }, "Quillmere: test queue has reached maximum size.");
    std::mutex mutex;
    std::multiset<int> ran;  // guarded by mutex
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            while (!go.load()) std::this_thread::yield();
            for (int i = 0; i < kPerThread; ++i) {
                queue.enqueue([&, id = t * kPerThread + i](const std::shared_ptr<Core>&) {
                    std::lock_guard lock(mutex);
                    ran.insert(id);
                });
            }
        });
    }
    running = core;
    go.store(true);
    queue.flush(core);
    for (auto& thread : threads) thread.join();

    std::lock_guard lock(mutex);
    for (int id = 0; id < kThreads * kPerThread; ++id) EXPECT_EQ(ran.count(id), 1u) << id;
    EXPECT_EQ(queue.heldCount(), 0u);
}

}  // namespace
