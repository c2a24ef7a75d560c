#pragma once
// A continuous recognizer of dragging: it begins once the fingers' centroid has moved a few points
// from where it started, changes with every move after that, and ends when the last finger lifts.
// Translation is the centroid's movement since the start, kept continuous when fingers land or
// lift. Main thread.
#include <cstddef>
#include <limits>
#include <memory>
#include <vector>

#include "platform/uikit/UIGestureRecognizer.h"

namespace platform {

class UIPanGestureRecognizer : public UIGestureRecognizer {
    PLATFORM_OBJC_CLASS(UIPanGestureRecognizer, UIGestureRecognizer)
public:
    // Points the centroid moves before the pan begins.
    static constexpr CGFloat kMinimumMovement = 10;

    std::size_t minimumNumberOfTouches() const { return minimumTouches_; }
    void setMinimumNumberOfTouches(std::size_t n) { minimumTouches_ = n == 0 ? 1 : n; }
    std::size_t maximumNumberOfTouches() const { return maximumTouches_; }
    void setMaximumNumberOfTouches(std::size_t n) { maximumTouches_ = n; }

    // In `view`'s coordinate system (null: the window's).
    CGPoint translationInView(const UIView* view) const;
    void setTranslation(CGPoint translation, const UIView* view);

    void touchesBegan(const UITouchSet& touches, UIEvent* event) override;
    void touchesMoved(const UITouchSet& touches, UIEvent* event) override;
    void touchesEnded(const UITouchSet& touches, UIEvent* event) override;
    void touchesCancelled(const UITouchSet& touches, UIEvent* event) override;
    void reset() override;

private:
    CGPoint centroid() const;
    // Fingers landing or lifting move the centroid without the hand moving.
    void keepTranslation(CGPoint before);
    bool active() const;

    // All main thread only.
    std::size_t minimumTouches_ = 1;
    std::size_t maximumTouches_ = std::numeric_limits<std::size_t>::max();
    std::vector<std::shared_ptr<UITouch>> down_;
    CGPoint origin_;  // window coordinates
    CGPoint last_;    // the centroid when last seen, which outlives the fingers
};

}  // namespace platform
