#include "platform/uikit/UIGestureRecognizer.h"

#include <algorithm>

#include "platform/uikit/UITouch.h"
#include "platform/uikit/UIView.h"
#include "platform/uikit/detail/GestureEnvironment.h"

namespace platform {

void UIGestureRecognizer::addTarget(const id& target, SEL action) {
    if (!target || action == nullptr) return;
    for (const auto& t : targets_) {
        if (t.object.lock() == target && t.action == action) return;
    }
    targets_.push_back({target, action});
}

void UIGestureRecognizer::removeTarget(const id& target, SEL action) {
    std::erase_if(targets_, [&](const Target& t) {
        const auto object = t.object.lock();
        if (!object) return true;
        return (!target || object == target) && (action == nullptr || t.action == action);
    });
}

void UIGestureRecognizer::setEnabled(bool enabled) {
    if (enabled_ == enabled) return;
    enabled_ = enabled;
    if (!enabled) detail::GestureEnvironment::shared().recognizerDisabled(*this);
}

void UIGestureRecognizer::requireGestureRecognizerToFail(const std::shared_ptr<UIGestureRecognizer>& other) {
    if (!other || other.get() == this) return;
    requiredToFail_.push_back(other);
}

std::size_t UIGestureRecognizer::numberOfTouches() const {
    return touches_.size();
}

CGPoint UIGestureRecognizer::locationInView(const UIView* view) const {
    if (touches_.empty()) return CGPointZero;
    CGPoint sum;
    for (const auto& touch : touches_) {
        const CGPoint p = touch->locationInView(view);
        sum.x += p.x;
        sum.y += p.y;
    }
    const auto n = static_cast<CGFloat>(touches_.size());
    return {sum.x / n, sum.y / n};
}

CGPoint UIGestureRecognizer::locationOfTouch(std::size_t index, const UIView* view) const {
    // The platform raises for an index out of range; a point at the origin is the quiet answer.
    if (index >= touches_.size()) return CGPointZero;
    return touches_[index]->locationInView(view);
}

bool UIGestureRecognizer::canPreventGestureRecognizer(const UIGestureRecognizer*) const {
    return true;
}
bool UIGestureRecognizer::canBePreventedByGestureRecognizer(const UIGestureRecognizer*) const {
    return true;
}
bool UIGestureRecognizer::shouldRequireFailureOfGestureRecognizer(const UIGestureRecognizer*) const {
    return false;
}
bool UIGestureRecognizer::shouldBeRequiredToFailByGestureRecognizer(const UIGestureRecognizer*) const {
    return false;
}

void UIGestureRecognizer::ignoreTouch(const std::shared_ptr<UITouch>& touch, UIEvent*) {
    if (touch) detail::GestureEnvironment::shared().ignoreTouch(*this, *touch);
}

void UIGestureRecognizer::ignorePress(const id&, UIEvent*) {}

void UIGestureRecognizer::touchesBegan(const UITouchSet&, UIEvent*) {}
void UIGestureRecognizer::touchesMoved(const UITouchSet&, UIEvent*) {}
void UIGestureRecognizer::touchesEnded(const UITouchSet&, UIEvent*) {}
void UIGestureRecognizer::touchesCancelled(const UITouchSet&, UIEvent*) {}

void UIGestureRecognizer::setState(UIGestureRecognizerState state) {
    detail::GestureEnvironment::shared().requestState(*this, state);
}

}  // namespace platform
