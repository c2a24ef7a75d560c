#include "examples/demo-host/TouchScript.h"

#include <algorithm>
#include <cstdio>
#include <string>

#include "platform/uikit/UIPanGestureRecognizer.h"
#include "platform/uikit/UITapGestureRecognizer.h"

using namespace platform;

namespace demo {

namespace {

constexpr int64_t kTickMilliseconds = 30;

// A target whose one action runs a function: the app's handlers, reached through the runtime as
// actions are.
class Action : public NSObject {
    PLATFORM_OBJC_CLASS(Action, NSObject)
public:
    static std::shared_ptr<Action> make(std::function<void(UIGestureRecognizer&)> run) {
        auto action = std::make_shared<Action>();
        action->run_ = std::move(run);
        return action;
    }
    static SEL selector() {
        static const SEL sel = [] {
            const SEL s = sel_getUid("handleGesture:");
            class_addMethod(
                class_(), s,
                imp_makeFunction<void, UIGestureRecognizer*>([](NSObject* self, SEL, UIGestureRecognizer* r) {
                    static_cast<Action*>(self)->run_(*r);
                }));
            return s;
        }();
        return sel;
    }

private:
    std::function<void(UIGestureRecognizer&)> run_;
};

CGPoint centreInWindow(const UIView& view) {
    const CGRect b = view.bounds();
    return view.convertPointToView({CGRectGetMidX(b), CGRectGetMidY(b)}, nullptr);
}

}  // namespace

TouchScript::TouchScript(DemoScreen& screen) : screen_(screen), touches_(screen.window()) {}

TouchScript::~TouchScript() {
    stop();
}

std::unique_ptr<TouchScript> TouchScript::start(DemoScreen& screen, double delaySeconds) {
    std::unique_ptr<TouchScript> script(new TouchScript(screen));
    script->installRecognizers();
    script->script();
    script->timer_ = DispatchSourceTimer::makeTimerSource(DispatchTimerFlags::none, DispatchQueue::main());
    script->timer_->schedule(
        DispatchTime::now() + DispatchTimeInterval::milliseconds(static_cast<int64_t>(delaySeconds * 1000)),
        DispatchTimeInterval::milliseconds(kTickMilliseconds));
    script->timer_->setEventHandler([self = script.get()] {
        if (self->steps_.empty()) return;
        auto step = std::move(self->steps_.front());
        self->steps_.pop_front();
        step();
    });
    script->timer_->activate();
    return script;
}

void TouchScript::stop() {
    if (timer_) timer_->cancel();
}

void TouchScript::installRecognizers() {
    const auto add = [this](const std::shared_ptr<UIView>& view,
                            const std::shared_ptr<UIGestureRecognizer>& r,
                            std::function<void(UIGestureRecognizer&)> run) {
        auto target = Action::make(std::move(run));
        r->addTarget(target, Action::selector());
        targets_.push_back(target);
        view->addGestureRecognizer(r);
    };
    add(screen_.emailField(), std::make_shared<UITapGestureRecognizer>(), [this](UIGestureRecognizer&) {
        screen_.emailField()->becomeFirstResponder();
        std::printf("demo: editing the email field\n");
    });
    add(screen_.passwordField(), std::make_shared<UITapGestureRecognizer>(), [this](UIGestureRecognizer&) {
        screen_.passwordField()->becomeFirstResponder();
        std::printf("demo: editing the password field\n");
    });
    add(screen_.signInButton(), std::make_shared<UITapGestureRecognizer>(), [this](UIGestureRecognizer&) {
        screen_.emailField()->resignFirstResponder();
        screen_.passwordField()->resignFirstResponder();
        std::printf("demo: signing in as %s\n", screen_.emailField()->text().c_str());
    });
    auto pan = std::make_shared<UIPanGestureRecognizer>();
    add(screen_.list(), pan, [this, pan = pan.get()](UIGestureRecognizer&) {
        // Content follows the finger, within its size.
        const auto list = screen_.list();
        const CGFloat last =
            std::max<CGFloat>(0, list->contentSize().height - CGRectGetHeight(list->bounds()));
        const CGFloat y = list->contentOffset().y - pan->translationInView(list.get()).y;
        list->setContentOffset({0, std::clamp<CGFloat>(y, 0, last)});
        pan->setTranslation(CGPointZero, list.get());
    });
}

void TouchScript::pause(int ticks) {
    for (int i = 0; i < ticks; ++i) steps_.emplace_back([] {});
}

void TouchScript::tapOn(const UIView& view) {
    const CGPoint at = centreInWindow(view);
    auto touch = std::make_shared<std::shared_ptr<UITouch>>();
    steps_.emplace_back([this, touch, at] { *touch = touches_.touchDown(at); });
    steps_.emplace_back([this, touch] { touches_.touchUp(*touch); });
}

void TouchScript::type(const std::shared_ptr<UITextField>& field, const std::string& text) {
    tapOn(*field);
    pause(8);
    steps_.emplace_back([field] { field->setText(std::string()); });
    for (std::size_t i = 1; i <= text.size(); ++i) {
        steps_.emplace_back([field, typed = text.substr(0, i)] { field->setText(typed); });
        pause(3);  // about ten keys a second
    }
}

void TouchScript::script() {
    // A user name, then the password, each typed a key at a time after a tap on its field.
    type(screen_.emailField(), "grace@example.com");
    pause(25);
    type(screen_.passwordField(), kPassword);
    pause(25);
    tapOn(*screen_.signInButton());
    pause(40);

    // A drag up through the list: it scrolls with the finger.
    const CGPoint from = centreInWindow(*screen_.list());
    auto finger = std::make_shared<std::shared_ptr<UITouch>>();
    steps_.emplace_back([this, finger, from] { *finger = touches_.touchDown(from); });
    for (int i = 1; i <= 16; ++i)
        steps_.emplace_back([this, finger, from, i] {
            touches_.touchMove(*finger, {from.x, from.y - 10.0 * i});
        });
    steps_.emplace_back([this, finger] { touches_.touchUp(*finger); });
    pause(40);

    // Two fingers spreading apart over the header.
    auto pair = std::make_shared<std::pair<std::shared_ptr<UITouch>, std::shared_ptr<UITouch>>>();
    steps_.emplace_back([this, pair] {
        pair->first = touches_.newTouch();
        pair->second = touches_.newTouch();
        touches_.send({{pair->first, UITouchPhase::UITouchPhaseBegan, {170, 90}},
                       {pair->second, UITouchPhase::UITouchPhaseBegan, {220, 90}}});
    });
    for (int i = 1; i <= 8; ++i) {
        steps_.emplace_back([this, pair, i] {
            const CGFloat d = 6.0 * i;
            touches_.send({{pair->first, UITouchPhase::UITouchPhaseMoved, {170 - d, 90 - d / 2}},
                           {pair->second, UITouchPhase::UITouchPhaseMoved, {220 + d, 90 + d / 2}}});
        });
    }
    steps_.emplace_back([this, pair] {
        touches_.send(
            {{pair->first, UITouchPhase::UITouchPhaseEnded, pair->first->locationInView(nullptr)},
             {pair->second, UITouchPhase::UITouchPhaseEnded, pair->second->locationInView(nullptr)}});
    });
}

}  // namespace demo
