// Notification centers as the library relies on them: weakly held observers, matching by name and
// by object identity, and delivery without the center's lock so observers can re-enter it.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "platform/foundation/NSNotificationCenter.h"
#include "platform/foundation/NSString.h"
#include "tests/support/NotificationRecorder.h"

using namespace platform;
using qlm_test::NotificationRecorder;

namespace {

void observe(NSNotificationCenter& center, const std::shared_ptr<NotificationRecorder>& recorder,
             const std::string& name, const id& object = nullptr) {
    center.addObserver(recorder, NotificationRecorder::selector(), name, object);
}

TEST(NotificationCenter, DeliversOnlyWhatTheObservationSelects) {
    const struct {
        const char* observedName;  // "" observes every name
        int observedObject;        // -1 any; else an index into `objects`
        const char* postedName;
        int postedObject;  // -1 nil
        bool delivered;
    } cases[] = {
        {"", -1, "A", 0, true},  {"", -1, "A", -1, true}, {"A", -1, "A", 1, true}, {"A", -1, "B", -1, false},
        {"", 0, "A", 0, true},   {"", 0, "A", 1, false},  // equal, yet another object
        {"", 0, "A", -1, false}, {"A", 1, "A", 1, true},  {"A", 1, "B", 1, false},
    };
    // Two equal strings that are different objects: objects match by identity, not isEqual:.
    const std::vector<id> objects{NSStr("sender"), NSStr("sender")};
    for (const auto& c : cases) {
        const std::string label = "case " + std::to_string(&c - cases);
        NSNotificationCenter center;
        auto recorder = NotificationRecorder::make();
        observe(center, recorder, c.observedName, c.observedObject < 0 ? nullptr : objects[c.observedObject]);
        center.postNotificationName(c.postedName, c.postedObject < 0 ? nullptr : objects[c.postedObject]);
        ASSERT_EQ(recorder->count(), c.delivered ? 1u : 0u) << label;
        if (c.delivered) {
            auto note = recorder->received()[0].notification;
            EXPECT_EQ(note->name(), c.postedName) << label;
            EXPECT_EQ(note->object(), c.postedObject < 0 ? nullptr : objects[c.postedObject]) << label;
        }
    }
}

TEST(NotificationCenter, HoldsObserversWeaklyAndRemovesAllOrOnlyTheMatchingObservations) {
    NSNotificationCenter center;
    auto sender = NSStr("sender");
    auto recorder = NotificationRecorder::make();
    observe(center, recorder, "A");
    observe(center, recorder, "B", sender);
    observe(center, recorder, "B");
    center.removeObserver(recorder, "B", sender);
    center.postNotificationName("B", sender);
    EXPECT_EQ(recorder->count(), 1u) << "only the observation of B from any object is left";
    center.removeObserver(recorder, "", nullptr);
    center.postNotificationName("A", nullptr);
    EXPECT_EQ(recorder->count(), 1u);

    observe(center, recorder, "");
    std::weak_ptr<NotificationRecorder> watch = recorder;
    recorder.reset();
    EXPECT_TRUE(watch.expired()) << "the center must not keep its observers alive";
    center.postNotificationName("A", nullptr);  // must not call into the released observer
}

TEST(NotificationCenter, ObserversMayPostAddAndRemoveWhileBeingCalled) {
    NSNotificationCenter center;
    auto late = NotificationRecorder::make();
    auto removed = NotificationRecorder::make();
    auto nested = NotificationRecorder::make();
    auto first = NotificationRecorder::make([&](const std::shared_ptr<NSNotification>& note) {
        if (note->name() != "outer") return;
        center.postNotificationName("inner", nullptr);
        observe(center, late, "outer");
        center.removeObserver(removed);
    });
    observe(center, first, "");
    observe(center, removed, "outer");
    observe(center, nested, "inner");

    center.postNotificationName("outer", nullptr);
    EXPECT_EQ(nested->count(), 1u) << "a post from an observer is delivered at once";
    EXPECT_EQ(removed->count(), 0u) << "removed during the post, before its turn";
    EXPECT_EQ(late->count(), 0u) << "added during the post";
    ASSERT_EQ(first->count(), 2u);
    EXPECT_EQ(first->received()[1].notification->name(), "inner");
    center.postNotificationName("outer", nullptr);
    EXPECT_EQ(late->count(), 1u);
}

TEST(NotificationCenter, ConcurrentPostsReachEveryStableObserver) {
    NSNotificationCenter center;
    auto stable = NotificationRecorder::make();
    observe(center, stable, "tick");
    constexpr int kThreads = 4;
    constexpr int kPosts = 300;
    std::atomic<bool> posting{true};
    std::thread churn([&] {
        // Observers come and go, and die without removing themselves, while others post.
        for (int i = 0; posting.load(); ++i) {
            auto transient = NotificationRecorder::make();
            observe(center, transient, "tick");
            if (i % 2) center.removeObserver(transient);
        }
    });
    std::vector<std::thread> posters;
    for (int t = 0; t < kThreads; ++t) {
        posters.emplace_back([&] {
            for (int i = 0; i < kPosts; ++i) center.postNotificationName("tick", nullptr);
        });
    }
    for (auto& p : posters) p.join();
    posting.store(false);
    churn.join();
    EXPECT_EQ(stable->count(), static_cast<std::size_t>(kThreads * kPosts));
}

}  // namespace
