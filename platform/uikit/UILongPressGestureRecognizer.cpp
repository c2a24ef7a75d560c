#include "platform/uikit/UILongPressGestureRecognizer.h"

#include <algorithm>
#include <cmath>

#include "platform/dispatch/DispatchQueue.h"
#include "platform/dispatch/DispatchTime.h"
#include "platform/uikit/UITouch.h"

namespace platform {

namespace {
using State = UIGestureRecognizerState;
}

bool UILongPressGestureRecognizer::pressing() const {
    return state() == State::UIGestureRecognizerStateBegan || state() == State::UIGestureRecognizerStateChanged;
}

void UILongPressGestureRecognizer::touchesBegan(const UITouchSet& touches, UIEvent*) {
    if (pressing()) return;
    for (const auto& touch : touches) landings_.emplace_back(touch.get(), touch->locationInView(nullptr));
    if (landings_.size() > touchesRequired_) {
        setState(State::UIGestureRecognizerStateFailed);
    } else if (landings_.size() == touchesRequired_) {
        beginLater();
    }
}

void UILongPressGestureRecognizer::touchesMoved(const UITouchSet& touches, UIEvent*) {
    if (pressing()) {
        setState(State::UIGestureRecognizerStateChanged);
        return;
    }
    for (const auto& touch : touches) {
        const auto it = std::find_if(landings_.begin(), landings_.end(),
                                     [&](const auto& l) { return l.first == touch.get(); });
        if (it == landings_.end()) continue;
        const CGPoint now = touch->locationInView(nullptr);
        if (std::hypot(now.x - it->second.x, now.y - it->second.y) > allowableMovement_) {
            setState(State::UIGestureRecognizerStateFailed);
            return;
        }
    }
}

void UILongPressGestureRecognizer::touchesEnded(const UITouchSet&, UIEvent*) {
    setState(pressing() ? State::UIGestureRecognizerStateEnded : State::UIGestureRecognizerStateFailed);
}

void UILongPressGestureRecognizer::touchesCancelled(const UITouchSet&, UIEvent*) {
    setState(pressing() ? State::UIGestureRecognizerStateCancelled : State::UIGestureRecognizerStateFailed);
}

void UILongPressGestureRecognizer::reset() {
    landings_.clear();
    ++generation_;
}

void UILongPressGestureRecognizer::beginLater() {
    const uint64_t generation = ++generation_;
    std::weak_ptr<NSObject> weak = weak_from_this();
    DispatchQueue::main()->asyncAfter(
        DispatchTime::now() +
            DispatchTimeInterval::milliseconds(static_cast<int64_t>(minimumPressDuration_ * 1000)),
        [weak, generation] {
            const auto self = std::static_pointer_cast<UILongPressGestureRecognizer>(weak.lock());
            if (self && self->generation_ == generation &&
                self->state() == State::UIGestureRecognizerStatePossible)
                self->setState(State::UIGestureRecognizerStateBegan);
        });
}

}  // namespace platform
