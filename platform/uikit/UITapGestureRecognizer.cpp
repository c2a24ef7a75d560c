#include "platform/uikit/UITapGestureRecognizer.h"

#include <algorithm>
#include <cmath>

#include "platform/dispatch/DispatchQueue.h"
#include "platform/dispatch/DispatchTime.h"
#include "platform/uikit/UITouch.h"

namespace platform {

namespace {
using State = UIGestureRecognizerState;
}

void UITapGestureRecognizer::touchesBegan(const UITouchSet& touches, UIEvent*) {
    ++generation_;  // the next tap came in time
    for (const auto& touch : touches) {
        landings_.emplace_back(touch.get(), touch->locationInView(nullptr));
        ++fingersDown_;
    }
    fingersInTap_ = std::max(fingersInTap_, fingersDown_);
    if (fingersDown_ > touchesRequired_) setState(State::UIGestureRecognizerStateFailed);
}

void UITapGestureRecognizer::touchesMoved(const UITouchSet& touches, UIEvent*) {
    for (const auto& touch : touches) {
        const auto it = std::find_if(landings_.begin(), landings_.end(),
                                     [&](const auto& l) { return l.first == touch.get(); });
        if (it == landings_.end()) continue;
        const CGPoint now = touch->locationInView(nullptr);
        if (std::hypot(now.x - it->second.x, now.y - it->second.y) > kAllowableMovement) {
            setState(State::UIGestureRecognizerStateFailed);
            return;
        }
    }
}

void UITapGestureRecognizer::touchesEnded(const UITouchSet& touches, UIEvent*) {
    fingersDown_ -= std::min(fingersDown_, touches.size());
    if (fingersDown_ > 0) return;
    const bool rightFingers = fingersInTap_ == touchesRequired_;
    fingersInTap_ = 0;
    landings_.clear();
    if (!rightFingers) {
        setState(State::UIGestureRecognizerStateFailed);
        return;
    }
    if (++tapsCounted_ >= tapsRequired_) {
        setState(State::UIGestureRecognizerStateRecognized);
    } else {
        failLater();
    }
}

void UITapGestureRecognizer::touchesCancelled(const UITouchSet&, UIEvent*) {
    setState(State::UIGestureRecognizerStateFailed);
}

void UITapGestureRecognizer::reset() {
    tapsCounted_ = 0;
    fingersDown_ = 0;
    fingersInTap_ = 0;
    landings_.clear();
    ++generation_;
}

void UITapGestureRecognizer::failLater() {
    const uint64_t generation = ++generation_;
    std::weak_ptr<NSObject> weak = weak_from_this();
    DispatchQueue::main()->asyncAfter(
        DispatchTime::now() +
            DispatchTimeInterval::milliseconds(static_cast<int64_t>(kMaximumTapInterval * 1000)),
        [weak, generation] {
            const auto self = std::static_pointer_cast<UITapGestureRecognizer>(weak.lock());
            if (self && self->generation_ == generation &&
                self->state() == State::UIGestureRecognizerStatePossible)
                self->setState(State::UIGestureRecognizerStateFailed);
        });
}

}  // namespace platform
