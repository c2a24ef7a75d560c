#include "platform/uikit/TouchScreen.h"

#include <algorithm>
#include <cmath>

#include "platform/dispatch/DispatchTime.h"
#include "platform/uikit/UIEvent.h"
#include "platform/uikit/UITapGestureRecognizer.h"
#include "platform/uikit/UIWindow.h"

namespace platform {

namespace {
// Taps farther apart than this don't count as one multiple tap.
constexpr CGFloat kTapSlop = 45;
}  // namespace

TouchScreen::TouchScreen(std::shared_ptr<UIWindow> window)
    : window_(std::move(window)), clock_([] { return systemUptime(); }) {}

void TouchScreen::send(const std::vector<Change>& changes) {
    const double now = clock_();
    for (const auto& change : changes) {
        UITouch& touch = *change.touch;
        if (change.phase == UITouchPhase::UITouchPhaseBegan) {
            touch.previousLocation_ = change.location;
            const bool again =
                lastLiftTime_ >= 0 && now - lastLiftTime_ <= UITapGestureRecognizer::kMaximumTapInterval &&
                std::hypot(change.location.x - lastLift_.x, change.location.y - lastLift_.y) <= kTapSlop;
            touch.tapCount_ = again ? lastTapCount_ + 1 : 1;
            if (std::find(down_.begin(), down_.end(), change.touch) == down_.end())
                down_.push_back(change.touch);
        } else {
            touch.previousLocation_ = touch.location_;
        }
        touch.location_ = change.location;
        touch.phase_ = change.phase;
        touch.timestamp_ = now;
    }
    for (const auto& touch : down_) {
        const bool changed =
            std::any_of(changes.begin(), changes.end(), [&](const Change& c) { return c.touch == touch; });
        if (!changed) touch->phase_ = UITouchPhase::UITouchPhaseStationary;
    }
    const auto event = UIEvent::touchEvent(down_, now);
    window_->sendEvent(event);
    std::erase_if(down_, [&](const auto& touch) {
        if (touch->phase_ != UITouchPhase::UITouchPhaseEnded &&
            touch->phase_ != UITouchPhase::UITouchPhaseCancelled)
            return false;
        lastLift_ = touch->location_;
        lastLiftTime_ = now;
        lastTapCount_ = touch->tapCount_;
        return true;
    });
}

std::shared_ptr<UITouch> TouchScreen::touchDown(CGPoint location) {
    auto touch = newTouch();
    send({{touch, UITouchPhase::UITouchPhaseBegan, location}});
    return touch;
}

void TouchScreen::touchMove(const std::shared_ptr<UITouch>& touch, CGPoint location) {
    send({{touch, UITouchPhase::UITouchPhaseMoved, location}});
}

void TouchScreen::touchUp(const std::shared_ptr<UITouch>& touch) {
    send({{touch, UITouchPhase::UITouchPhaseEnded, touch->locationInView(nullptr)}});
}

void TouchScreen::touchCancel(const std::shared_ptr<UITouch>& touch) {
    send({{touch, UITouchPhase::UITouchPhaseCancelled, touch->locationInView(nullptr)}});
}

void TouchScreen::tap(CGPoint location) {
    touchUp(touchDown(location));
}

void TouchScreen::drag(CGPoint from, CGPoint to, int steps) {
    const auto touch = touchDown(from);
    for (int i = 1; i <= steps; ++i) {
        const CGFloat t = static_cast<CGFloat>(i) / steps;
        touchMove(touch, {from.x + (to.x - from.x) * t, from.y + (to.y - from.y) * t});
    }
    touchUp(touch);
}

}  // namespace platform
