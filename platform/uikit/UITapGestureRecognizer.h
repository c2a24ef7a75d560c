#pragma once
// A discrete recognizer of taps: numberOfTapsRequired taps, each of numberOfTouchesRequired
// fingers, each finger staying within a small distance of where it landed. It recognizes when the
// last tap lifts; it fails when a finger strays, too many fingers land, or the next tap doesn't
// begin in time. Main thread; the wait for the next tap runs on the main queue.
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "platform/uikit/UIGestureRecognizer.h"

namespace platform {

class UITapGestureRecognizer : public UIGestureRecognizer {
    PLATFORM_OBJC_CLASS(UITapGestureRecognizer, UIGestureRecognizer)
public:
    // How far, in points, a finger may move and still tap.
    static constexpr CGFloat kAllowableMovement = 10;
    // Seconds from one tap lifting to the next landing.
    static constexpr double kMaximumTapInterval = 0.35;

    std::size_t numberOfTapsRequired() const { return tapsRequired_; }
    void setNumberOfTapsRequired(std::size_t taps) { tapsRequired_ = taps == 0 ? 1 : taps; }
    std::size_t numberOfTouchesRequired() const { return touchesRequired_; }
    void setNumberOfTouchesRequired(std::size_t touches) { touchesRequired_ = touches == 0 ? 1 : touches; }

    void touchesBegan(const UITouchSet& touches, UIEvent* event) override;
    void touchesMoved(const UITouchSet& touches, UIEvent* event) override;
    void touchesEnded(const UITouchSet& touches, UIEvent* event) override;
    void touchesCancelled(const UITouchSet& touches, UIEvent* event) override;
    void reset() override;

protected:
    bool awaitsFurtherTouches() const override { return tapsCounted_ > 0; }

private:
    void failLater();

    // All main thread only.
    std::size_t tapsRequired_ = 1;
    std::size_t touchesRequired_ = 1;
    std::size_t tapsCounted_ = 0;
    std::size_t fingersDown_ = 0;
    std::size_t fingersInTap_ = 0;                              // the most that were down at once in this tap
    std::vector<std::pair<const UITouch*, CGPoint>> landings_;  // window coordinates
    uint64_t generation_ = 0;  // a wait for the next tap counts only while this is unchanged
};

}  // namespace platform
