#pragma once
// One finger on the screen, from the moment it lands until it lifts or the system cancels it. The
// same object stands for the finger throughout: its phase, location and timestamp change as the
// finger moves. Main thread.
//
// On the platform the system makes and updates touches; here TouchScreen (the stand-in for the
// touch screen's event source) does. Hosts and the library only read them.
#include <cstddef>
#include <memory>
#include <vector>

#include "platform/coregraphics/CGGeometry.h"
#include "platform/foundation/NSObject.h"
#include "platform/uikit/UIResponder.h"

namespace platform {

class UIView;
class UIWindow;
class UIEvent;
class UIGestureRecognizer;
class TouchScreen;
namespace detail {
class GestureEnvironment;
}

enum class UITouchPhase {
    UITouchPhaseBegan,
    UITouchPhaseMoved,
    UITouchPhaseStationary,
    UITouchPhaseEnded,
    UITouchPhaseCancelled
};

class UITouch : public NSObject {
    PLATFORM_OBJC_CLASS(UITouch, NSObject)
public:
    UITouch() = default;

    UITouchPhase phase() const { return phase_; }
    // Seconds of system uptime at the touch's last change.
    double timestamp() const { return timestamp_; }
    // 1 for a single tap, 2 for the second of a double tap, and so on.
    std::size_t tapCount() const { return tapCount_; }
    // Both null until the touch has been delivered; the view is null when the touch landed where
    // no view takes touches.
    std::shared_ptr<UIWindow> window() const { return window_.lock(); }
    std::shared_ptr<UIView> view() const { return view_.lock(); }
    // The recognizers that receive this touch, deepest view first. Empty before delivery.
    std::vector<std::shared_ptr<UIGestureRecognizer>> gestureRecognizers() const;

    // In `view`'s coordinates; a null view gives the touch's window's coordinates.
    CGPoint locationInView(const UIView* view) const;
    CGPoint previousLocationInView(const UIView* view) const;

private:
    friend class TouchScreen;  // the stand-in for the system, which makes and moves touches
    friend class UIWindow;
    friend class detail::GestureEnvironment;

    // What the view under the touch has been sent so far.
    enum class ViewDelivery {
        none,       // nothing yet
        heldBegan,  // touchesBegan held back by a recognizer that delays it
        delivered,  // touchesBegan sent
        heldEnded,  // touchesEnded held back by a recognizer that delays it
        done        // ended or cancelled in the view, or never to be seen by it
    };

    CGPoint convert(CGPoint inWindow, const UIView* view) const;

    // All main thread only, as the touch itself.
    UITouchPhase phase_ = UITouchPhase::UITouchPhaseBegan;
    double timestamp_ = 0;
    std::size_t tapCount_ = 1;
    CGPoint location_;          // window coordinates
    CGPoint previousLocation_;  // window coordinates
    std::weak_ptr<UIWindow> window_;
    std::weak_ptr<UIView> view_;
    bool attached_ = false;  // hit-tested and handed to its recognizers
    std::vector<std::weak_ptr<UIGestureRecognizer>> recognizers_;
    ViewDelivery viewDelivery_ = ViewDelivery::none;
    UITouchPhase heldPhase_ = UITouchPhase::UITouchPhaseBegan;  // the end phase met while began was held
    bool heldEnd_ = false;
};

}  // namespace platform
