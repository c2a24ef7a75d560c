#include "platform/uikit/UITouch.h"

#include <algorithm>

#include "platform/uikit/UIEvent.h"
#include "platform/uikit/UIGestureRecognizer.h"
#include "platform/uikit/UIView.h"
#include "platform/uikit/UIWindow.h"

namespace platform {

std::vector<std::shared_ptr<UIGestureRecognizer>> UITouch::gestureRecognizers() const {
    std::vector<std::shared_ptr<UIGestureRecognizer>> live;
    for (const auto& weak : recognizers_) {
        if (auto recognizer = weak.lock()) live.push_back(std::move(recognizer));
    }
    return live;
}

CGPoint UITouch::convert(CGPoint inWindow, const UIView* view) const {
    if (view == nullptr) return inWindow;
    const auto window = window_.lock();
    return view->convertPointFromView(inWindow, window.get());
}

CGPoint UITouch::locationInView(const UIView* view) const {
    return convert(location_, view);
}

CGPoint UITouch::previousLocationInView(const UIView* view) const {
    return convert(previousLocation_, view);
}

std::shared_ptr<UIEvent> UIEvent::touchEvent(UITouchSet touches, double timestamp) {
    auto event = std::make_shared<UIEvent>();
    event->touches_ = std::move(touches);
    event->timestamp_ = timestamp;
    return event;
}

UITouchSet UIEvent::touchesForView(const UIView* view) const {
    UITouchSet matching;
    for (const auto& touch : touches_) {
        if (touch->view().get() == view) matching.push_back(touch);
    }
    return matching;
}

UITouchSet UIEvent::touchesForWindow(const UIWindow* window) const {
    UITouchSet matching;
    for (const auto& touch : touches_) {
        if (touch->window().get() == window) matching.push_back(touch);
    }
    return matching;
}

UITouchSet UIEvent::touchesForGestureRecognizer(const UIGestureRecognizer* recognizer) const {
    UITouchSet matching;
    for (const auto& touch : touches_) {
        const auto recognizers = touch->gestureRecognizers();
        if (std::any_of(recognizers.begin(), recognizers.end(),
                        [recognizer](const auto& r) { return r.get() == recognizer; }))
            matching.push_back(touch);
    }
    return matching;
}

}  // namespace platform
