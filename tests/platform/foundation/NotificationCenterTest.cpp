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

struct MatchCase {
    const char* label;
    const char* observedName;  // "" observes every name
    int observedObject;        // -1 any; else an index into the objects
    const char* postedName;
    int postedObject;  // -1 nil
    bool delivered;
};
void PrintTo(const MatchCase& c, std::ostream* os) {
    *os << c.label;
}

class NotificationMatching : public ::testing::TestWithParam<MatchCase> {};

TEST_P(NotificationMatching, DeliversOnlyWhatTheObservationSelects) {
    const MatchCase& c = GetParam();
    // Two equal strings that are different objects: objects match by identity, not isEqual:.
    std::vector<id> objects{NSStr("sender"), NSStr("sender")};
    auto center = std::make_shared<NSNotificationCenter>();
    auto recorder = NotificationRecorder::make();
    center->addObserver(recorder, NotificationRecorder::selector(), c.observedName,
                        c.observedObject < 0 ? nullptr : objects[c.observedObject]);

    center->postNotificationName(c.postedName, c.postedObject < 0 ? nullptr : objects[c.postedObject]);

    ASSERT_EQ(recorder->count(), c.delivered ? 1u : 0u);
    if (c.delivered) {
        auto note = recorder->received()[0].notification;
        EXPECT_EQ(note->name(), c.postedName);
        EXPECT_EQ(note->object(), c.postedObject < 0 ? nullptr : objects[c.postedObject]);
    }
}

INSTANTIATE_TEST_SUITE_P(Table, NotificationMatching,
                         ::testing::Values(MatchCase{"AnyNameAnyObject", "", -1, "A", 0, true},
                                           MatchCase{"AnyNameNilObject", "", -1, "A", -1, true},
                                           MatchCase{"SameName", "A", -1, "A", 1, true},
                                           MatchCase{"OtherName", "A", -1, "B", -1, false},
                                           MatchCase{"SameObject", "", 0, "A", 0, true},
                                           MatchCase{"EqualButOtherObject", "", 0, "A", 1, false},
                                           MatchCase{"NilObjectPostedToObjectFilter", "", 0, "A", -1, false},
                                           MatchCase{"NameAndObject", "A", 1, "A", 1, true},
                                           MatchCase{"ObjectMatchesNameDoesNot", "A", 1, "B", 1, false}),
                         [](const auto& info) { return std::string(info.param.label); });

TEST(NotificationCenter, HoldsObserversWeaklyAndSkipsReleasedOnes) {
    auto center = std::make_shared<NSNotificationCenter>();
    auto recorder = NotificationRecorder::make();
    std::weak_ptr<NotificationRecorder> watch = recorder;
    center->addObserver(recorder, NotificationRecorder::selector(), "A", nullptr);
    center->postNotificationName("A", nullptr);
    EXPECT_EQ(recorder->count(), 1u);

    recorder.reset();
    EXPECT_TRUE(watch.expired()) << "the center must not keep its observers alive";
    center->postNotificationName("A", nullptr);  // must not call into the released observer
}

TEST(NotificationCenter, RemovesAllOrOnlyTheMatchingObservations) {
    auto center = std::make_shared<NSNotificationCenter>();
    auto sender = NSStr("sender");
    auto recorder = NotificationRecorder::make();
    center->addObserver(recorder, NotificationRecorder::selector(), "A", nullptr);
    center->addObserver(recorder, NotificationRecorder::selector(), "B", sender);
    center->addObserver(recorder, NotificationRecorder::selector(), "B", nullptr);

    center->removeObserver(recorder, "B", sender);
    center->postNotificationName("B", sender);
    EXPECT_EQ(recorder->count(), 1u) << "only the observation of B from any object is left";
    center->postNotificationName("A", nullptr);
    EXPECT_EQ(recorder->count(), 2u);

    center->removeObserver(recorder, "", nullptr);
    center->postNotificationName("A", nullptr);
    center->postNotificationName("B", nullptr);
    EXPECT_EQ(recorder->count(), 2u);

    center->addObserver(recorder, NotificationRecorder::selector(), "", nullptr);
    center->removeObserver(recorder);
    center->postNotificationName("C", nullptr);
    EXPECT_EQ(recorder->count(), 2u);
}

TEST(NotificationCenter, ObserversMayPostAddAndRemoveWhileBeingCalled) {
    auto center = std::make_shared<NSNotificationCenter>();
    auto late = NotificationRecorder::make();
    auto removed = NotificationRecorder::make();
    auto nested = NotificationRecorder::make();
    auto first = NotificationRecorder::make([&](const std::shared_ptr<NSNotification>& note) {
        if (note->name() != "outer") return;
        center->postNotificationName("inner", nullptr);
        center->addObserver(late, NotificationRecorder::selector(), "outer", nullptr);
        center->removeObserver(removed);
    });
    center->addObserver(first, NotificationRecorder::selector(), "", nullptr);
    center->addObserver(removed, NotificationRecorder::selector(), "outer", nullptr);
    center->addObserver(nested, NotificationRecorder::selector(), "inner", nullptr);

    center->postNotificationName("outer", nullptr);
    EXPECT_EQ(nested->count(), 1u) << "a post from an observer is delivered at once";
    EXPECT_EQ(removed->count(), 0u) << "removed during the post, before its turn";
    EXPECT_EQ(late->count(), 0u) << "added during the post";
    ASSERT_EQ(first->count(), 2u);
    EXPECT_EQ(first->received()[0].notification->name(), "outer");
    EXPECT_EQ(first->received()[1].notification->name(), "inner");

    center->postNotificationName("outer", nullptr);
    EXPECT_EQ(late->count(), 1u);
}

TEST(NotificationCenter, ConcurrentPostsReachEveryStableObserver) {
    auto center = std::make_shared<NSNotificationCenter>();
    auto stable = NotificationRecorder::make();
    center->addObserver(stable, NotificationRecorder::selector(), "tick", nullptr);

    constexpr int kThreads = 4;
    constexpr int kPosts = 300;
    std::atomic<bool> posting{true};
    std::thread churn([&] {
        // Observers come and go, and die without removing themselves, while others post.
        while (posting.load()) {
            auto transient = NotificationRecorder::make();
            center->addObserver(transient, NotificationRecorder::selector(), "tick", nullptr);
            if (transient->count() % 2 == 0) center->removeObserver(transient);
        }
    });
    std::vector<std::thread> posters;
    for (int t = 0; t < kThreads; ++t) {
        posters.emplace_back([&] {
            for (int i = 0; i < kPosts; ++i) center->postNotificationName("tick", nullptr);
        });
    }
    for (auto& p : posters) p.join();
    posting.store(false);
    churn.join();
    EXPECT_EQ(stable->count(), static_cast<std::size_t>(kThreads * kPosts));
}

}  // namespace
