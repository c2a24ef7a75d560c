#pragma once
// The stand-in for the touch screen and the system's event source: it turns scripted finger
// movements into the UITouch objects and touch events the system would make, and sends each event
// to one window with sendEvent:. Hosts on the platform never do this; the demo host and tests do,
// in place of a person's fingers. Main thread.
#include <functional>
#include <memory>
#include <vector>

#include "platform/coregraphics/CGGeometry.h"
#include "platform/uikit/UITouch.h"

namespace platform {

class UIWindow;

class TouchScreen {
public:
    explicit TouchScreen(std::shared_ptr<UIWindow> window);

    // Seconds of system uptime stamped on touches and events; systemUptime by default.
    void setClock(std::function<double()> clock) { clock_ = std::move(clock); }

    struct Change {
        std::shared_ptr<UITouch> touch;
        UITouchPhase phase;
        CGPoint location;  // window coordinates; for ended and cancelled touches where they lift
    };
    // A finger that hasn't landed yet, for a Change with phase began.
    std::shared_ptr<UITouch> newTouch() const { return std::make_shared<UITouch>(); }
    // One event: the changed fingers in their phases, every other finger that is down stationary.
    void send(const std::vector<Change>& changes);

    // One event each.
    std::shared_ptr<UITouch> touchDown(CGPoint location);
    void touchMove(const std::shared_ptr<UITouch>& touch, CGPoint location);
    void touchUp(const std::shared_ptr<UITouch>& touch);
    void touchCancel(const std::shared_ptr<UITouch>& touch);

    // A finger down and up at `location`.
    void tap(CGPoint location);
    // A finger down at `from`, `steps` moves in a line to `to`, and up there.
    void drag(CGPoint from, CGPoint to, int steps);

    const std::vector<std::shared_ptr<UITouch>>& touchesDown() const { return down_; }

private:
    // All main thread only.
    std::shared_ptr<UIWindow> window_;
    std::function<double()> clock_;
    std::vector<std::shared_ptr<UITouch>> down_;  // in the order they landed
    // Where and when the last single finger lifted, for counting taps.
    CGPoint lastLift_;
    double lastLiftTime_ = -1;
    std::size_t lastTapCount_ = 0;
};

}  // namespace platform
