// Touch delivery: hit-testing, the responder chain, and the gesture recognizer state machine with
// what it lets through to the views under the touches.
#include <gtest/gtest.h>

#include <chrono>

#include "platform/uikit/TouchScreen.h"
#include "platform/uikit/UILabel.h"
#include "platform/uikit/UILongPressGestureRecognizer.h"
#include "platform/uikit/UIPanGestureRecognizer.h"
#include "platform/uikit/UIScrollView.h"
#include "platform/uikit/UITapGestureRecognizer.h"
#include "platform/uikit/UIWindow.h"
#include "tests/support/TouchTrace.h"
#include "tests/support/Wait.h"

using namespace platform;
using namespace qlm_test;

namespace {

std::shared_ptr<UIWindow> shownWindow() {
    auto window = UIView::make<UIWindow>(CGRectMake(0, 0, 400, 800));
    window->makeKeyAndVisible();
    return window;
}

// A clock that moves on by 10 ms at each event, so no wait between taps runs out on its own.
std::function<double()> steppingClock() {
    auto now = std::make_shared<double>(100.0);
    return [now] { return *now += 0.01; };
}

TEST(HitTesting, FindsTheFrontmostViewThatTakesTouches) {
    const auto window = shownWindow();
    auto back = UIView::make(CGRectMake(10, 10, 100, 100));
    auto front = UIView::make(CGRectMake(50, 50, 100, 100));
    window->addSubview(back);
    window->addSubview(front);
    auto outside = UIView::make(CGRectMake(120, 0, 50, 50));  // beyond its parent's bounds
    back->addSubview(outside);
    auto label = UIView::make<UILabel>(CGRectMake(0, 0, 100, 100));
    front->addSubview(label);

    const auto hit = [&](CGFloat x, CGFloat y) { return window->hitTest({x, y}, nullptr); };
    EXPECT_EQ(hit(60, 60), front);  // later sibling first; the label takes no touches
    EXPECT_EQ(hit(20, 20), back);
    EXPECT_EQ(hit(135, 15), window);  // over `outside`, which lies outside `back`
    EXPECT_EQ(hit(500, 500), nullptr);

    for (auto hide : std::vector<std::function<void(bool)>>{
             [&](bool on) { front->setHidden(on); }, [&](bool on) { front->setUserInteractionEnabled(!on); },
             [&](bool on) { front->setAlpha(on ? 0.005 : 1); }}) {
        hide(true);
        EXPECT_EQ(hit(60, 60), back);
        hide(false);
    }
    window->setHidden(true);
    EXPECT_EQ(hit(60, 60), nullptr);
}

TEST(HitTesting, ConvertsThroughScrollingAndTransforms) {
    const auto window = shownWindow();
    auto scroll = UIView::make<UIScrollView>(CGRectMake(0, 100, 400, 300));
    window->addSubview(scroll);
    auto row = UIView::make(CGRectMake(0, 500, 400, 50));
    scroll->addSubview(row);
    scroll->setContentOffset({0, 450});
    // The row shows 50 points below the scroll view's top, at 150 in the window.
    EXPECT_EQ(window->hitTest({10, 160}, nullptr), row);
    const CGPoint inRow = row->convertPointFromView({10, 160}, nullptr);
    EXPECT_DOUBLE_EQ(inRow.x, 10);
    EXPECT_DOUBLE_EQ(inRow.y, 10);

    auto scaled = UIView::make(CGRectMake(100, 500, 100, 100));
    scaled->setTransform(CGAffineTransformMakeScale(2, 2));  // about its centre: covers 50...250
    window->addSubview(scaled);
    const CGPoint p = scaled->convertPointFromView({60, 460}, nullptr);
    EXPECT_DOUBLE_EQ(p.x, 5);
    EXPECT_DOUBLE_EQ(p.y, 5);
    const CGPoint back = scaled->convertPointToView(p, window.get());
    EXPECT_DOUBLE_EQ(back.x, 60);
    EXPECT_DOUBLE_EQ(back.y, 460);
    EXPECT_EQ(window->hitTest({60, 460}, nullptr), scaled);
}

TEST(TouchDelivery, AViewThatDoesntHandleTouchesPassesThemToItsSuperview) {
    const auto trace = std::make_shared<Trace>();
    const auto window = shownWindow();
    auto parent = TracingView::make(trace, "parent", CGRectMake(0, 0, 200, 200));
    window->addSubview(parent);
    auto child = UIView::make(CGRectMake(50, 50, 50, 50));
    parent->addSubview(child);
    TouchScreen screen(window);
    const auto touch = screen.touchDown({60, 70});
    EXPECT_EQ(touch->view(), child);
    EXPECT_EQ(touch->window(), window);
    screen.touchMove(touch, {65, 70});
    const CGPoint inChild = touch->locationInView(child.get()),
                  before = touch->previousLocationInView(nullptr);
    EXPECT_DOUBLE_EQ(inChild.x, 15);
    EXPECT_DOUBLE_EQ(before.x, 60);
    screen.touchUp(touch);
    EXPECT_EQ(*trace, (Trace{"parent began 60,70", "parent moved 65,70", "parent ended 65,70"}));
}

class GestureTest : public ::testing::Test {
protected:
    void SetUp() override {
        window = shownWindow();
        view = TracingView::make(trace, "v", CGRectMake(0, 0, 400, 400));
        window->addSubview(view);
        screen = TouchScreen(window);
        screen.setClock(steppingClock());
    }

    template <class R>
    std::shared_ptr<R> recognizer(const std::string& name, const std::shared_ptr<UIView>& on) {
        auto r = std::make_shared<R>();
        auto recorder = ActionRecorder::make(trace, name);
        recorder->observe(*r);
        recorders.push_back(recorder);
        on->addGestureRecognizer(r);
        added.emplace_back(r, on);
        return r;
    }

    // A recognizer still waiting (for a second tap) leaves the gesture as it leaves its view, so
    // nothing of one test waits into the next.
    void TearDown() override {
        for (const auto& [r, on] : added) on->removeGestureRecognizer(r);
    }

    std::vector<std::pair<std::shared_ptr<UIGestureRecognizer>, std::shared_ptr<UIView>>> added;
    std::shared_ptr<Trace> trace = std::make_shared<Trace>();
    std::shared_ptr<UIWindow> window;
    std::shared_ptr<TracingView> view;
    TouchScreen screen{nullptr};
    std::vector<std::shared_ptr<ActionRecorder>> recorders;
};

TEST_F(GestureTest, TapRecognizesOnLiftAndCancelsTheViewsTouch) {
    const auto tap = recognizer<UITapGestureRecognizer>("tap", view);
    screen.tap({100, 100});
    EXPECT_EQ(*trace, (Trace{"v began 100,100", "v cancelled 100,100", "tap ended"}));
    EXPECT_EQ(tap->state(), UIGestureRecognizerState::UIGestureRecognizerStatePossible);  // reset

    // Left to the view: the touch ends there once the tap has recognized.
    trace->clear();
    tap->setCancelsTouchesInView(false);
    screen.tap({100, 100});
    EXPECT_EQ(*trace, (Trace{"v began 100,100", "tap ended", "v ended 100,100"}));

    // A finger that strays is no tap; the view has the whole touch.
    trace->clear();
    screen.drag({100, 100}, {100, 130}, 3);
    EXPECT_EQ(trace->size(), 5u);
    EXPECT_FALSE(traceHas(*trace, "tap ended"));
    EXPECT_EQ(trace->back(), "v ended 100,130");
}

TEST_F(GestureTest, PanBeginsAfterSomeMovementChangesAndEndsWithItsTranslation) {
    const auto pan = recognizer<UIPanGestureRecognizer>("pan", view);
    CGPoint translation;
    recorders.back()->then = [&](UIGestureRecognizer&) { translation = pan->translationInView(view.get()); };
    const auto touch = screen.touchDown({100, 100});
    screen.touchMove(touch, {100, 105});  // not far enough yet
    EXPECT_EQ(pan->state(), UIGestureRecognizerState::UIGestureRecognizerStatePossible);
    for (int y = 110; y <= 140; y += 10) screen.touchMove(touch, {100, static_cast<CGFloat>(y)});
    EXPECT_EQ(pan->state(), UIGestureRecognizerState::UIGestureRecognizerStateChanged);
    EXPECT_DOUBLE_EQ(translation.y, 40);
    screen.touchUp(touch);
    EXPECT_EQ(*trace, (Trace{"v began 100,100", "v moved 100,105", "v cancelled 100,110", "pan began",
                             "pan changed", "pan changed", "pan changed", "pan ended"}));
    EXPECT_DOUBLE_EQ(translation.y, 40);
    EXPECT_EQ(pan->state(), UIGestureRecognizerState::UIGestureRecognizerStatePossible);

    // Cancelled by the system in the middle: the pan is cancelled too.
    trace->clear();
    const auto second = screen.touchDown({100, 100});
    screen.touchMove(second, {130, 100});
    screen.touchCancel(second);
    EXPECT_EQ(trace->back(), "pan cancelled");
}

// Held for minimumPressDuration (on the main queue's clock), within allowableMovement until then:
// it begins, changes with any movement after that, and ends as the finger lifts. Lifting or
// straying early fails it, and the view keeps the touch.
TEST_F(GestureTest, LongPressBeginsAfterItsDurationAndFailsWhenLiftedOrMovedEarly) {
    const auto press = recognizer<UILongPressGestureRecognizer>("press", view);
    EXPECT_DOUBLE_EQ(press->minimumPressDuration(), 0.5);
    EXPECT_DOUBLE_EQ(press->allowableMovement(), 10);
    press->setMinimumPressDuration(0.05);
    auto touch = screen.touchDown({100, 100});
    screen.touchMove(touch, {108, 100});  // still within the allowance
    ASSERT_TRUE(runMainLoopUntil(
        [&] { return press->state() == UIGestureRecognizerState::UIGestureRecognizerStateBegan; },
        std::chrono::milliseconds(2000)));
    screen.touchMove(touch, {200, 100});
    screen.touchUp(touch);
    EXPECT_EQ(*trace, (Trace{"v began 100,100", "v moved 108,100", "v cancelled 108,100", "press began",
                             "press changed", "press ended"}));

    struct Case {
        const char* name;
        std::function<void(const std::shared_ptr<UITouch>&)> early;
    };
    const Case cases[] = {
        {"lifted", [&](const auto& t) { screen.touchUp(t); }},
        {"strayed", [&](const auto& t) { screen.touchMove(t, {100, 115}); }},
        {"a second finger", [&](const auto&) { screen.touchDown({300, 300}); }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        trace->clear();
        touch = screen.touchDown({100, 100});
        c.early(touch);
        runMainLoopUntil([] { return false; }, std::chrono::milliseconds(150));
        EXPECT_FALSE(traceHas(*trace, "press began"));
        for (const auto& t : std::vector(screen.touchesDown())) screen.touchUp(t);
        EXPECT_FALSE(traceHas(*trace, "v cancelled 100,100"));
    }
}

TEST_F(GestureTest, DelaysHoldTheViewsCallbacksUntilTheRecognizerFails) {
    // delaysTouchesEnded (the default): a double tap holds the end of a single tap back until it
    // gives up waiting for the second.
    const auto doubleTap = recognizer<UITapGestureRecognizer>("double", view);
    doubleTap->setNumberOfTapsRequired(2);
    doubleTap->setCancelsTouchesInView(false);
    screen.tap({100, 100});
    EXPECT_EQ(*trace, (Trace{"v began 100,100"}));
    EXPECT_TRUE(runMainLoopUntil([&] { return trace->size() == 2; }, std::chrono::milliseconds(5000)));
    EXPECT_EQ(trace->back(), "v ended 100,100");
    EXPECT_EQ(doubleTap->state(), UIGestureRecognizerState::UIGestureRecognizerStatePossible);
    view->removeGestureRecognizer(doubleTap);

    // delaysTouchesBegan: nothing reaches the view while a pan may still begin; a drag it
    // recognizes never does.
    trace->clear();
    const auto pan = recognizer<UIPanGestureRecognizer>("pan", view);
    pan->setDelaysTouchesBegan(true);
    const auto touch = screen.touchDown({100, 100});
    screen.touchMove(touch, {102, 100});
    EXPECT_TRUE(trace->empty());
    screen.touchUp(touch);  // the pan fails: the view gets the touch, late
    EXPECT_EQ(*trace, (Trace{"v began 102,100", "v ended 102,100"}));
    trace->clear();
    screen.drag({100, 100}, {100, 150}, 2);
    EXPECT_EQ(*trace, (Trace{"pan began", "pan changed", "pan ended"}));
}

// A delegate whose answer to shouldRequireFailureOfGestureRecognizer: is its class's method, which
// the test replaces through the runtime.
class WaitingDelegate : public NSObject {
    PLATFORM_OBJC_CLASS(WaitingDelegate, NSObject)
public:
    static Method requireFailureMethod() {
        static const Method method = [] {
            const SEL sel = sel_getUid(UIGestureRecognizerDelegate::shouldRequireFailure);
            class_addMethod(class_(), sel, answering(YES));
            return class_getInstanceMethod(class_(), sel);
        }();
        return method;
    }
    static IMP answering(BOOL answer) {
        return imp_makeFunction<BOOL, UIGestureRecognizer*, UIGestureRecognizer*>(
            [answer](NSObject*, SEL, UIGestureRecognizer*, UIGestureRecognizer*) { return answer; });
    }
};

TEST_F(GestureTest, ARecognizerWaitsForTheOneItRequiresToFailAsItsDelegateSays) {
    auto inner = UIView::make(CGRectMake(100, 100, 100, 100));
    view->addSubview(inner);
    const auto single = recognizer<UITapGestureRecognizer>("single", inner);
    const auto doubleTap = recognizer<UITapGestureRecognizer>("double", view);
    doubleTap->setNumberOfTapsRequired(2);
    const auto delegate = std::make_shared<WaitingDelegate>();
    const Method method = WaitingDelegate::requireFailureMethod();
    single->setDelegate(delegate);

    // The delegate says wait: the single tap recognizes only once the double tap has failed.
    screen.tap({150, 150});
    EXPECT_FALSE(traceHas(*trace, "single ended"));
    EXPECT_TRUE(runMainLoopUntil([&] { return traceHas(*trace, "single ended"); }));
    // Two taps: the double tap wins and the single one, waiting for it, fails.
    trace->clear();
    screen.tap({150, 150});
    screen.tap({150, 150});
    EXPECT_TRUE(traceHas(*trace, "double ended"));
    EXPECT_FALSE(traceHas(*trace, "single ended"));

    // The delegate's method replaced: the single tap no longer waits, and as it recognizes it
    // keeps the double tap from recognizing.
    const IMP original = method_setImplementation(method, WaitingDelegate::answering(NO));
    trace->clear();
    screen.tap({150, 150});
    EXPECT_TRUE(traceHas(*trace, "single ended"));
    screen.tap({150, 150});
    EXPECT_FALSE(traceHas(*trace, "double ended"));
    method_setImplementation(method, original);
}

class Vetoes : public NSObject {
    PLATFORM_OBJC_CLASS(Vetoes, NSObject)
public:
    static std::shared_ptr<Vetoes> make() {
        static const bool added = [] {
            class_addMethod(class_(), sel_getUid(UIGestureRecognizerDelegate::shouldReceiveTouch),
                            imp_makeFunction<BOOL, UIGestureRecognizer*, UITouch*>(
                                [](NSObject*, SEL, UIGestureRecognizer* r, UITouch*) {
                                    return !r->isKindOfClass(UIPanGestureRecognizer::class_());
                                }));
            return class_addMethod(class_(), sel_getUid(UIGestureRecognizerDelegate::shouldBegin),
                                   imp_makeFunction<BOOL, UIGestureRecognizer*>(
                                       [](NSObject*, SEL, UIGestureRecognizer*) { return NO; }));
        }();
        (void)added;
        return std::make_shared<Vetoes>();
    }
};

TEST_F(GestureTest, ExplicitFailureRequirementAndTheDelegatesVetoes) {
    const auto tap = recognizer<UITapGestureRecognizer>("tap", view);
    const auto pan = recognizer<UIPanGestureRecognizer>("pan", view);
    tap->requireGestureRecognizerToFail(pan);
    screen.tap({50, 50});  // the pan fails as the finger lifts, and the tap goes ahead
    EXPECT_TRUE(traceHas(*trace, "tap ended"));
    trace->clear();
    screen.drag({50, 50}, {50, 100}, 2);
    EXPECT_FALSE(traceHas(*trace, "tap ended"));
    EXPECT_TRUE(traceHas(*trace, "pan ended"));

    // A delegate that keeps touches away from pans, and forbids beginning.
    const auto vetoes = Vetoes::make();
    pan->setDelegate(vetoes);
    tap->setDelegate(vetoes);
    trace->clear();
    const auto touch = screen.touchDown({50, 50});
    EXPECT_EQ(touch->gestureRecognizers(), (std::vector<std::shared_ptr<UIGestureRecognizer>>{tap}));
    screen.touchUp(touch);
    EXPECT_EQ(*trace, (Trace{"v began 50,50", "v ended 50,50"}));
}

// What Apple's UIGestureRecognizer documentation says of the state machine and of held touches,
// case by case.

// Looks at touches and never decides, as a recognizer that only observes does; counts its resets.
class Bystander : public UIGestureRecognizer {
public:
    void reset() override { ++resets; }
    int resets = 0;
};

TEST_F(GestureTest, ARecognizerStillPossibleWhenItsTouchesEndFailsAndIsReset) {
    const auto bystander = recognizer<Bystander>("bystander", window);
    const auto tap = recognizer<UITapGestureRecognizer>("tap", view);
    tap->requireGestureRecognizerToFail(bystander);
    tap->setCancelsTouchesInView(false);
    tap->setDelaysTouchesEnded(false);
    // The bystander's failure as the finger lifts is what lets the tap, waiting for it, recognize,
    // and the view's end, which the bystander held (delaysTouchesEnded), follow.
    screen.tap({100, 100});
    EXPECT_EQ(*trace, (Trace{"v began 100,100", "tap ended", "v ended 100,100"}));
    EXPECT_EQ(bystander->state(), UIGestureRecognizerState::UIGestureRecognizerStatePossible);
    EXPECT_EQ(bystander->resets, 1);
    trace->clear();
    screen.tap({100, 100});
    EXPECT_EQ(trace->size(), 3u);
    EXPECT_EQ(bystander->resets, 2);
}

TEST_F(GestureTest, TouchesHeldByDelaysTouchesBeganAreDiscardedWhenTheRecognizerRecognizes) {
    const auto pan = recognizer<UIPanGestureRecognizer>("pan", view);
    pan->setDelaysTouchesBegan(true);
    pan->setCancelsTouchesInView(false);  // not what keeps them from the view
    screen.drag({100, 100}, {100, 150}, 2);
    EXPECT_EQ(*trace, (Trace{"pan began", "pan changed", "pan ended"}));
}

TEST_F(GestureTest, DelaysTouchesEndedHoldsTheEndWhileTheRecognizerAnalyses) {
    const auto doubleTap = recognizer<UITapGestureRecognizer>("double", view);
    doubleTap->setNumberOfTapsRequired(2);
    doubleTap->setCancelsTouchesInView(false);
    // Held, and cancelled when the double tap recognizes.
    screen.tap({100, 100});
    EXPECT_EQ(*trace, (Trace{"v began 100,100"}));
    screen.tap({100, 100});
    EXPECT_EQ(*trace, (Trace{"v began 100,100", "v began 100,100", "v cancelled 100,100", "double ended",
                             "v ended 100,100"}));
    // Off: the view's touch ends at once, while the recognizer still waits for a second tap.
    trace->clear();
    doubleTap->setDelaysTouchesEnded(false);
    screen.tap({100, 100});
    EXPECT_EQ(*trace, (Trace{"v began 100,100", "v ended 100,100"}));
}

TEST_F(GestureTest, FailureRequirementsAreAskedOfRecognizersThatShareNoTouch) {
    const auto left = UIView::make(CGRectMake(0, 0, 100, 100));
    const auto right = UIView::make(CGRectMake(200, 0, 100, 100));
    view->addSubview(left);
    view->addSubview(right);
    const auto tap = recognizer<UITapGestureRecognizer>("tap", left);
    recognizer<UIPanGestureRecognizer>("pan", right);
    const auto delegate = std::make_shared<WaitingDelegate>();
    WaitingDelegate::requireFailureMethod();
    tap->setDelegate(delegate);  // waits for every other recognizer to fail

    const auto a = screen.newTouch(), b = screen.newTouch();
    screen.send({{a, UITouchPhase::UITouchPhaseBegan, {50, 50}}});
    screen.send({{b, UITouchPhase::UITouchPhaseBegan, {250, 50}}});
    screen.send({{a, UITouchPhase::UITouchPhaseEnded, {50, 50}}});
    EXPECT_FALSE(traceHas(*trace, "tap ended"));  // the pan on the other finger may still begin
    screen.send({{b, UITouchPhase::UITouchPhaseEnded, {250, 50}}});
    EXPECT_TRUE(traceHas(*trace, "tap ended"));  // it failed as its finger lifted
}

}  // namespace
