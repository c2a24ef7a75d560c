#pragma once
// A continuous recognizer of pressing and holding: numberOfTouchesRequired fingers that stay down,
// each within allowableMovement of where it landed, for minimumPressDuration. It begins then,
// changes as the fingers move after that (any distance), and ends when a finger lifts. It fails
// when a finger lifts or strays before the time is up, or when more fingers land than required.
// Main thread; the wait for the press runs on the main queue.
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "platform/uikit/UIGestureRecognizer.h"

namespace platform {

class UILongPressGestureRecognizer : public UIGestureRecognizer {
    PLATFORM_OBJC_CLASS(UILongPressGestureRecognizer, UIGestureRecognizer)
public:
    // Seconds; 0.5 by default.
    double minimumPressDuration() const { return minimumPressDuration_; }
    void setMinimumPressDuration(double seconds) { minimumPressDuration_ = seconds < 0 ? 0 : seconds; }
    // Points; 10 by default.
    CGFloat allowableMovement() const { return allowableMovement_; }
    void setAllowableMovement(CGFloat points) { allowableMovement_ = points; }
    std::size_t numberOfTouchesRequired() const { return touchesRequired_; }
    void setNumberOfTouchesRequired(std::size_t touches) { touchesRequired_ = touches == 0 ? 1 : touches; }

    void touchesBegan(const UITouchSet& touches, UIEvent* event) override;
    void touchesMoved(const UITouchSet& touches, UIEvent* event) override;
    void touchesEnded(const UITouchSet& touches, UIEvent* event) override;
    void touchesCancelled(const UITouchSet& touches, UIEvent* event) override;
    void reset() override;

private:
    bool pressing() const;
    void beginLater();

    // All main thread only.
    double minimumPressDuration_ = 0.5;
    CGFloat allowableMovement_ = 10;
    std::size_t touchesRequired_ = 1;
    std::vector<std::pair<const UITouch*, CGPoint>> landings_;  // window coordinates
    uint64_t generation_ = 0;  // a wait for the press counts only while this is unchanged
};

}  // namespace platform
