// The touch scenarios: the host's recognizers, its views' own touch callbacks and React Native's
// handler, each written down as the host sees them (actions with their states, view callbacks with
// their locations), in order. Touches are played only once capture has put its recognizer on the
// window, so the capture-on run really captures them.
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "capture/touch/TouchShim.h"
#include "platform/reactnative/RCTTouchHandler.h"
#include "platform/uikit/TouchScreen.h"
#include "platform/uikit/UILongPressGestureRecognizer.h"
#include "platform/uikit/UIPanGestureRecognizer.h"
#include "platform/uikit/UITapGestureRecognizer.h"
#include "platform/uikit/UIViewController.h"
#include "platform/uikit/UIWindow.h"
#include "tests/noninterference/Scenario.h"
#include "tests/support/TouchTrace.h"
#include "tests/support/Wait.h"

using namespace platform;

namespace qlm_test {
namespace {

using Events = std::vector<qm::Event>;

bool has(const Events& events, const char* type) {
    for (const auto& event : events)
        if (event.type() == type) return true;
    return false;
}

// A delegate that makes its recognizer wait for others to fail: every other one, or only those
// on the host's own views (those with a superview, which the window has not).
class WaitingDelegate : public NSObject {
    PLATFORM_OBJC_CLASS(WaitingDelegate, NSObject)
public:
    static std::shared_ptr<WaitingDelegate> make(bool everyOther) {
        static const bool added = class_addMethod(
            class_(), sel_getUid(UIGestureRecognizerDelegate::shouldRequireFailure),
            imp_makeFunction<BOOL, UIGestureRecognizer*, UIGestureRecognizer*>(
                [](NSObject* self, SEL, UIGestureRecognizer*, UIGestureRecognizer* other) -> BOOL {
                    if (static_cast<WaitingDelegate*>(self)->everyOther_) return YES;
                    const auto view = other->view();
                    return view && view->superview();
                }));
        (void)added;
        auto delegate = std::make_shared<WaitingDelegate>();
        delegate->everyOther_ = everyOther;
        return delegate;
    }

private:
    bool everyOther_ = false;
};

// A shown window whose root view holds "outer" and, inside it, "inner"; the touch screen; the
// trace that views and recorders write to.
struct TouchHost {
    explicit TouchHost(ScenarioRun& run) : run(run) {
        window = UIView::make<UIWindow>(CGRectMake(0, 0, 400, 800));
        window->setRootViewController(controller);
        outer = TracingView::make(trace, "outer", CGRectMake(0, 100, 400, 400));
        inner = TracingView::make(trace, "inner", CGRectMake(50, 50, 200, 200));
        outer->addSubview(inner);
        controller->view()->addSubview(outer);
        window->makeKeyAndVisible();
        screen.emplace(window);
    }

    template <class R>
    std::shared_ptr<R> add(const std::string& name, const std::shared_ptr<UIView>& on) {
        auto recognizer = std::make_shared<R>();
        auto recorder = ActionRecorder::make(trace, name);
        recorder->observe(*recognizer);
        recorders.push_back(recorder);
        on->addGestureRecognizer(recognizer);
        return recognizer;
    }

    // Until capture's recognizer is on the window (a screen capture has run); with capture off as
    // long. Both runs also wait for touch messages and a screen capture to arrive.
    void awaitTouchCapture() {
        run.awaitCapture([w = window](const Events&) {
            for (const auto& r : w->gestureRecognizers())
                if (quillmere::TouchShim::isExactly(r.get())) return true;
            return false;
        });
        run.expectCapture([](const Events& events) {
            return has(events, "qm.ios.TouchEvent") && has(events, "qm.ios.PDFViewCapture");
        });
    }

    void note(const std::string& line) { trace->push_back("-- " + line); }
    void wait(int milliseconds) {
        runMainLoopUntil([] { return false; }, std::chrono::milliseconds(milliseconds));
    }

    // The scripted gestures, each named in the trace; points in window coordinates, over "inner".
    void tap() {
        note("tap");
        screen->tap({150, 250});
        wait(400);  // past a second tap's chance
    }
    void drag() {
        note("drag");
        screen->drag({150, 250}, {150, 400}, 6);
    }
    void press(int milliseconds) {
        note("press " + std::to_string(milliseconds));
        const auto touch = screen->touchDown({150, 250});
        wait(milliseconds);
        screen->touchMove(touch, {170, 250});
        screen->touchUp(touch);
    }
    void twoFingers() {
        note("two fingers");
        const auto a = screen->newTouch();
        const auto b = screen->newTouch();
        screen->send({{a, UITouchPhase::UITouchPhaseBegan, {100, 200}}, {b, UITouchPhase::UITouchPhaseBegan, {300, 200}}});
        screen->touchMove(a, {100, 260});
        screen->touchUp(a);
        screen->touchCancel(b);
    }

    void finish() {
        for (const auto& line : *trace) run.transcript().add(line);
    }

    ScenarioRun& run;
    std::shared_ptr<Trace> trace = std::make_shared<Trace>();
    std::shared_ptr<UIViewController> controller = std::make_shared<UIViewController>();
    std::shared_ptr<UIWindow> window;
    std::shared_ptr<TracingView> outer;
    std::shared_ptr<TracingView> inner;
    std::optional<TouchScreen> screen;
    std::vector<std::shared_ptr<ActionRecorder>> recorders;
    std::vector<std::shared_ptr<NSObject>> delegates;  // held here: recognizers hold theirs weakly
};

void everyGesture(TouchHost& host) {
    host.tap();
    host.drag();
    host.press(700);
    host.press(100);
    host.twoFingers();
}

// The host's recognizers on "outer" (tap, pan, long press) set up by `arrange`, then every gesture.
Scenario withRecognizers(std::string name, std::function<void(TouchHost&)> arrange,
                         std::string knownDifference = "") {
    return {std::move(name),
            [arrange](ScenarioRun& run) {
                TouchHost host(run);
                arrange(host);
                host.awaitTouchCapture();
                everyGesture(host);
                host.finish();
            },
            std::move(knownDifference)};
}

constexpr const char* kWaitsForEveryRecognizer =
    "a host recognizer whose delegate requires every other recognizer to fail also waits for "
    "capture's, which fails only when the touches end; see \"Known limits\" in the README";

// React Native's handler on the root view: a drag before the library starts, while it captures,
// after it has shut down, and after it has started again.
void reactNative(ScenarioRun& run) {
    TouchHost host(run);
    const auto handler = RCTTouchHandler::make();
    auto recorder = ActionRecorder::make(host.trace, "handler");
    recorder->observe(*handler);
    host.recorders.push_back(recorder);
    host.controller->view()->addGestureRecognizer(handler);
    const auto phase = [&](const char* name) {
        host.note(name);
        host.drag();
        host.tap();
    };
    phase("before start");
    run.startLibrary();
    host.awaitTouchCapture();
    phase("capturing");
    run.shutdownLibrary();
    host.wait(200);
    phase("after shutdown");
    run.startLibrary();
    host.awaitTouchCapture();
    phase("started again");
    host.finish();
}

std::vector<Scenario> touchScenarios() {
    std::vector<Scenario> scenarios;
    scenarios.push_back(withRecognizers("touch_tap_pan_long_press", [](TouchHost& host) {
        host.add<UITapGestureRecognizer>("tap", host.outer);
        host.add<UIPanGestureRecognizer>("pan", host.outer);
        host.add<UILongPressGestureRecognizer>("press", host.outer);
    }));
    scenarios.push_back(withRecognizers("touch_double_tap_and_delays", [](TouchHost& host) {
        const auto doubleTap = host.add<UITapGestureRecognizer>("double", host.outer);
        doubleTap->setNumberOfTapsRequired(2);
        const auto pan = host.add<UIPanGestureRecognizer>("pan", host.inner);
        pan->setDelaysTouchesBegan(true);
        pan->setCancelsTouchesInView(false);
        host.add<UITapGestureRecognizer>("tap", host.inner)->requireGestureRecognizerToFail(doubleTap);
    }));
    for (const bool everyOther : {false, true}) {
        scenarios.push_back(withRecognizers(
            everyOther ? "touch_delegate_requires_every_recognizer_to_fail"
                       : "touch_delegate_requires_the_hosts_recognizers_to_fail",
            [everyOther](TouchHost& host) {
                host.add<UITapGestureRecognizer>("tap", host.inner);
                host.add<UILongPressGestureRecognizer>("press", host.outer);
                const auto pan = host.add<UIPanGestureRecognizer>("pan", host.outer);
                const auto delegate = WaitingDelegate::make(everyOther);
                pan->setDelegate(delegate);
                host.delegates.push_back(delegate);
            },
            everyOther ? kWaitsForEveryRecognizer : ""));
    }
    scenarios.push_back(withRecognizers("touch_views_own_callbacks", [](TouchHost&) {}));
    scenarios.push_back({"touch_react_native_handler", reactNative, "", true});
    return scenarios;
}

const bool kRegistered = addScenarios(touchScenarios());

}  // namespace
}  // namespace qlm_test
