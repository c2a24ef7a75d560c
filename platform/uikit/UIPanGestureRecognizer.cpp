#include "platform/uikit/UIPanGestureRecognizer.h"

#include <algorithm>
#include <cmath>

#include "platform/uikit/UITouch.h"
#include "platform/uikit/UIView.h"

namespace platform {

namespace {
using State = UIGestureRecognizerState;

CGPoint inView(CGPoint inWindow, const UIView* view) {
    return view ? view->convertPointFromView(inWindow, nullptr) : inWindow;
}
}  // namespace

CGPoint UIPanGestureRecognizer::centroid() const {
    if (down_.empty()) return last_;
    CGPoint sum;
    for (const auto& touch : down_) {
        const CGPoint p = touch->locationInView(nullptr);
        sum.x += p.x;
        sum.y += p.y;
    }
    const auto n = static_cast<CGFloat>(down_.size());
    return {sum.x / n, sum.y / n};
}

void UIPanGestureRecognizer::keepTranslation(CGPoint before) {
    if (down_.empty()) return;
    const CGPoint after = centroid();
    origin_.x += after.x - before.x;
    origin_.y += after.y - before.y;
}

bool UIPanGestureRecognizer::active() const {
    return state() == State::UIGestureRecognizerStateBegan ||
           state() == State::UIGestureRecognizerStateChanged;
}

CGPoint UIPanGestureRecognizer::translationInView(const UIView* view) const {
    const CGPoint now = inView(centroid(), view), start = inView(origin_, view);
    return {now.x - start.x, now.y - start.y};
}

void UIPanGestureRecognizer::setTranslation(CGPoint translation, const UIView* view) {
    const CGPoint now = inView(centroid(), view);
    const CGPoint start{now.x - translation.x, now.y - translation.y};
    origin_ = view ? view->convertPointToView(start, nullptr) : start;
}

void UIPanGestureRecognizer::touchesBegan(const UITouchSet& touches, UIEvent* event) {
    const bool first = down_.empty();
    const CGPoint before = centroid();
    for (const auto& touch : touches) {
        if (down_.size() >= maximumTouches_) {
            ignoreTouch(touch, event);
            continue;
        }
        down_.push_back(touch);
    }
    if (first) {
        origin_ = centroid();
    } else {
        keepTranslation(before);
    }
    last_ = centroid();
}

void UIPanGestureRecognizer::touchesMoved(const UITouchSet&, UIEvent*) {
    if (down_.size() < minimumTouches_) return;
    if (active()) {
        last_ = centroid();
        setState(State::UIGestureRecognizerStateChanged);
        return;
    }
    const CGPoint now = last_ = centroid();
    if (std::hypot(now.x - origin_.x, now.y - origin_.y) >= kMinimumMovement)
        setState(State::UIGestureRecognizerStateBegan);
}

void UIPanGestureRecognizer::touchesEnded(const UITouchSet& touches, UIEvent*) {
    const CGPoint before = last_ = centroid();
    for (const auto& touch : touches) std::erase(down_, touch);
    keepTranslation(before);
    if (!down_.empty()) last_ = centroid();
    if (!down_.empty() && down_.size() >= minimumTouches_) return;
    if (!down_.empty() && !active()) return;  // fewer fingers than needed: it may still begin
    setState(active() ? State::UIGestureRecognizerStateEnded : State::UIGestureRecognizerStateFailed);
}

void UIPanGestureRecognizer::touchesCancelled(const UITouchSet& touches, UIEvent*) {
    for (const auto& touch : touches) std::erase(down_, touch);
    setState(active() ? State::UIGestureRecognizerStateCancelled : State::UIGestureRecognizerStateFailed);
}

void UIPanGestureRecognizer::reset() {
    down_.clear();
    origin_ = last_ = CGPointZero;
}

}  // namespace platform
