#pragma once
// One report of the touch screen: every finger that is down, each in its phase. Main thread.
#include <memory>

#include "platform/foundation/NSObject.h"
#include "platform/uikit/UITouch.h"

namespace platform {

class UIGestureRecognizer;

enum class UIEventType {
    UIEventTypeTouches,
    UIEventTypeMotion,
    UIEventTypeRemoteControl,
    UIEventTypePresses
};

class UIEvent : public NSObject {
    PLATFORM_OBJC_CLASS(UIEvent, NSObject)
public:
    UIEvent() = default;
    // What the touch source makes: `touches` are all the fingers down, stationary ones included.
    static std::shared_ptr<UIEvent> touchEvent(UITouchSet touches, double timestamp);

    UIEventType type() const { return UIEventType::UIEventTypeTouches; }
    // Seconds of system uptime.
    double timestamp() const { return timestamp_; }
    const UITouchSet& allTouches() const { return touches_; }
    UITouchSet touchesForView(const UIView* view) const;
    UITouchSet touchesForWindow(const UIWindow* window) const;
    UITouchSet touchesForGestureRecognizer(const UIGestureRecognizer* recognizer) const;

private:
    UITouchSet touches_;
    double timestamp_ = 0;
};

}  // namespace platform
