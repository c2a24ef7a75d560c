// TouchShim: the messages a touch gives. That the host's views and recognizers see exactly what
// they would without it is the capture-off/capture-on comparison's (tests/noninterference).
#include <gtest/gtest.h>

#include <functional>
#include <ostream>

#include "capture/touch/TouchShim.h"
#include "platform/uikit/UIPanGestureRecognizer.h"
#include "tests/capture/touch/TouchTestSupport.h"
#include "tests/support/RecordingSink.h"

using namespace platform;
using namespace qlm_test;
using quillmere::EventType;
using quillmere::TouchShim;
using Lines = std::vector<std::string>;

namespace {

constexpr auto kBegan = UITouchPhase::UITouchPhaseBegan;
constexpr auto kMoved = UITouchPhase::UITouchPhaseMoved;
constexpr auto kEnded = UITouchPhase::UITouchPhaseEnded;
constexpr auto kCancelled = UITouchPhase::UITouchPhaseCancelled;

// A sample as sent and as it must come back: window points, uptime in milliseconds.
struct Sample {
    float x, y;
    double eventTime;
    bool operator==(const Sample&) const = default;
};

void PrintTo(const Sample& s, std::ostream* os) {
    *os << s.x << "," << s.y << "@" << s.eventTime;
}

// One finger: down at x 0, `moves` samples at x 1, 2, ..., lifting at x 100; y goes 150, 152, ...
// and is 150 again where it lifts. Gives each sample as sent, in order.
std::vector<Sample> stroke(TouchScreen& screen, const double& now, int moves, UITouchPhase end = kEnded) {
    std::vector<Sample> sent;
    const auto send = [&](const std::shared_ptr<UITouch>& touch, UITouchPhase phase, CGPoint at) {
        sent.push_back({static_cast<float>(at.x), static_cast<float>(at.y), (now + 1) * 1000.0});
        screen.send({{touch, phase, at}});
    };
    const auto touch = screen.newTouch();
    send(touch, kBegan, {0, 150});
    for (int i = 1; i <= moves; ++i) send(touch, kMoved, {static_cast<CGFloat>(i), static_cast<CGFloat>(150 + 2 * i)});
    send(touch, end, {100, 150});
    return sent;
}

Sample headOf(const qm::ios::TouchEvent& m) {
    return {m.x(), m.y(), m.eventtime()};
}

// Every sample a message carries, head and moves, is one that was sent, whole; x tells which.
void expectSamplesAsSent(const std::vector<qm::ios::TouchEvent>& messages, const std::vector<Sample>& sent) {
    const auto sentAt = [&](float x) { return x == 100 ? sent.back() : sent[static_cast<std::size_t>(x)]; };
    for (const auto& m : messages) {
        EXPECT_EQ(headOf(m), sentAt(m.x()));
        for (const auto& move : m.moves()) {
            const Sample carried{move.x(), move.y(), move.eventtime()};
            EXPECT_EQ(carried, sentAt(move.x()));
        }
    }
}

struct StrokeCase {
    int moves;
    Lines messages;
};

// Can be prevented like any recognizer; only its delegate's answer keeps it beside the others.
class PreventableShim : public TouchShim {
    PLATFORM_OBJC_CLASS(PreventableShim, TouchShim)
public:
    bool canBePreventedByGestureRecognizer(const UIGestureRecognizer*) const override { return true; }
};

struct ShimVariant {
    const char* name;
    std::function<std::shared_ptr<TouchShim>(std::weak_ptr<RecordingSink>)> make;
};

std::vector<qm::ios::TouchEvent> touchesIn(const RecordingSink& sink) {
    return sink.messages<qm::ios::TouchEvent>(EventType::touchEvent);
}

// The finger lands on a view two levels down, whose origin is not the window's, and a pan there
// recognizes in the middle of each stroke: nothing of that may cost a sample, whichever of the
// shim's two safeguards against being prevented is left.
TEST(TouchShimMessages, EverySampleArrivesWholeInWindowPointsAndMovesAreBatchedTenToAMessage) {
    const std::vector<StrokeCase> cases = {
        {0, {"DOWN 0", "UP 100"}},
        {1, {"DOWN 0", "MOVE 1 <>", "UP 100"}},
        {10, {"DOWN 0", "MOVE 10 <1 2 3 4 5 6 7 8 9>", "UP 100"}},
        {11, {"DOWN 0", "MOVE 11 <1 2 3 4 5 6 7 8 9 10>", "UP 100"}},
        {12, {"DOWN 0", "MOVE 11 <1 2 3 4 5 6 7 8 9 10>", "MOVE 12 <>", "UP 100"}},
        {23,
         {"DOWN 0", "MOVE 11 <1 2 3 4 5 6 7 8 9 10>", "MOVE 22 <12 13 14 15 16 17 18 19 20 21>", "MOVE 23 <>",
          "UP 100"}},
    };
    const std::vector<ShimVariant> variants = {
        {"the shim", [](auto sink) { return TouchShim::make(sink); }},
        {"without its delegate",
         [](auto sink) {
             auto shim = TouchShim::make(sink);
             shim->setDelegate(nullptr);
             return shim;
         }},
        {"preventable, with its delegate", [](auto sink) { return TouchShim::make<PreventableShim>(sink); }},
    };
    for (const auto& variant : variants) {
        SCOPED_TRACE(variant.name);
        const auto window = shownWindow();
        const auto outer = UIView::make(CGRectMake(-20, 100, 440, 600));
        const auto nested = UIView::make(CGRectMake(10, 40, 400, 400));
        window->addSubview(outer);
        outer->addSubview(nested);
        const auto pan = std::make_shared<UIPanGestureRecognizer>();
        nested->addGestureRecognizer(pan);
        const auto sink = std::make_shared<RecordingSink>();
        const auto shim = variant.make(sink);
        window->addGestureRecognizer(shim);
        TouchScreen screen(window);
        double now = 11.5;
        screen.setClock([&] { return now += 1; });
        std::vector<std::vector<Sample>> sent;
        for (const auto& c : cases) sent.push_back(stroke(screen, now, c.moves));
        const auto messages = touchesIn(*sink);

        std::size_t at = 0;
        for (std::size_t i = 0; i < cases.size(); ++i) {
            const auto& c = cases[i];
            SCOPED_TRACE(std::to_string(c.moves) + " moves");
            ASSERT_LE(at + c.messages.size(), messages.size());
            const std::vector<qm::ios::TouchEvent> ofStroke(messages.begin() + static_cast<long>(at),
                                                            messages.begin() + static_cast<long>(at + c.messages.size()));
            EXPECT_EQ(summaries(ofStroke), c.messages);
            expectSamplesAsSent(ofStroke, sent[i]);
            at += c.messages.size();
        }
        EXPECT_EQ(at, messages.size());
        ASSERT_FALSE(messages.empty());
        EXPECT_EQ(messages[0].eventtime(), 12500.0);
        window->removeGestureRecognizer(shim);
    }
}

TEST(TouchShimMessages, FingersAreReportedEachOnItsOwnAndCancellingEndsATouch) {
    const auto window = shownWindow();
    const auto sink = std::make_shared<RecordingSink>();
    const auto shim = TouchShim::make(sink);
    window->addGestureRecognizer(shim);
    TouchScreen screen(window);

    const auto a = screen.newTouch(), b = screen.newTouch();
    screen.send({{a, kBegan, {10, 0}}, {b, kBegan, {20, 0}}});
    screen.send({{a, kMoved, {11, 0}}, {b, kMoved, {21, 0}}});
    screen.send({{b, kMoved, {22, 0}}});
    screen.send({{a, kEnded, {12, 0}}, {b, kEnded, {23, 0}}});

    // Beginning twice is one DOWN and keeps the buffer; an end for a touch that never began here is
    // nothing.
    const auto c = screen.newTouch();
    screen.send({{c, kBegan, {30, 0}}});
    screen.send({{c, kMoved, {31, 0}}});
    shim->touchesBegan({c}, nullptr);
    screen.send({{c, kMoved, {32, 0}}});
    screen.send({{c, kCancelled, {33, 0}}});
    shim->touchesEnded({c}, nullptr);
    shim->touchesEnded({screen.newTouch()}, nullptr);

    EXPECT_EQ(summaries(touchesIn(*sink)), (Lines{"DOWN 10", "DOWN 20", "MOVE 11 <>", "UP 12", "MOVE 22 <21>",
                                                 "UP 23", "DOWN 30", "MOVE 32 <31>", "UP 33"}));
    EXPECT_EQ(shim->trackedTouches().count(), 0u);
}

TEST(TouchShimMessages, WithItsSinkGoneNothingIsSentAndTheBookkeepingIsTheSame) {
    const auto window = shownWindow();
    auto sink = std::make_shared<RecordingSink>();
    const auto shim = TouchShim::make(sink);
    window->addGestureRecognizer(shim);
    TouchScreen screen(window);
    const auto touch = screen.newTouch();
    const auto pending = [&] { return shim->trackedTouches().objectForKey(touch); };

    screen.send({{touch, kBegan, {0, 0}}});
    for (int i = 1; i <= 3; ++i) screen.send({{touch, kMoved, {static_cast<CGFloat>(i), 0}}});
    EXPECT_EQ(summaries(touchesIn(*sink)), (Lines{"DOWN 0"}));

    // No sink from here: eight more samples fill the buffer and the next empties it, unsent.
    const std::weak_ptr<RecordingSink> gone = sink;
    sink.reset();
    ASSERT_TRUE(pending());
    EXPECT_EQ(pending()->samples.size(), 3u);
    for (int i = 4; i <= 11; ++i) screen.send({{touch, kMoved, {static_cast<CGFloat>(i), 0}}});
    EXPECT_EQ(pending()->samples.size(), 0u);
    screen.send({{touch, kMoved, {12, 0}}});
    EXPECT_EQ(pending()->samples.size(), 1u);
    screen.send({{touch, kEnded, {13, 0}}});
    EXPECT_FALSE(pending());
    EXPECT_TRUE(gone.expired()) << "the shim kept its sink alive";
}

}  // namespace
