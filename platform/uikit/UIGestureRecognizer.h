#pragma once
// The base of gesture recognizers. A recognizer belongs to the view it was added to, which holds
// it strongly; it holds the view weakly. It receives the touches that land in its view or the
// view's subviews, before the view under them does, and moves through its states as a subclass
// decides:
//
//   Possible -> Began -> Changed... -> Ended | Cancelled     (continuous)
//   Possible -> Recognized (= Ended)                          (discrete)
//   Possible -> Failed
//
// When every touch of a recognizer has lifted, one still Possible fails (unless it waits for more
// touches, as a tap counting taps does); then each that has ended, been cancelled or failed goes
// back to Possible and `reset` runs. Targets get their action on Began, Changed, Ended and
// Cancelled.
//
// Held touches: with delaysTouchesBegan the view gets no touchesBegan while the recognizer is
// Possible; if it recognizes, those touches are discarded, if it fails, delivered late. With
// delaysTouchesEnded (the default) the view's touchesEnded waits the same way; if the recognizer
// recognizes, the view gets touchesCancelled instead. Failure requirements, by delegate or by
// subclass, are asked at each attempt to recognize of every recognizer in the gesture, whether or
// not they share a touch. A recognizer removed from its view leaves the gesture under way.
//
// Delegates answer through the runtime: a delegate implements an optional method of
// UIGestureRecognizerDelegate by having a method under its selector in its class (see the names
// below), so that a method replaced with method_setImplementation answers from then on. The delegate
// is held weakly. Main thread.
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "platform/coregraphics/CGGeometry.h"
#include "platform/foundation/NSObject.h"
#include "platform/uikit/UIResponder.h"

namespace platform {

class UIView;
class UITouch;
class UIEvent;
namespace detail {
class GestureEnvironment;
}

enum class UIGestureRecognizerState {
    UIGestureRecognizerStatePossible,
    UIGestureRecognizerStateBegan,
    UIGestureRecognizerStateChanged,
    UIGestureRecognizerStateEnded,
    UIGestureRecognizerStateCancelled,
    UIGestureRecognizerStateFailed,
    UIGestureRecognizerStateRecognized = UIGestureRecognizerStateEnded
};

class UIGestureRecognizer;

// The optional methods of UIGestureRecognizerDelegate: selector names and the signatures their
// implementations take after the receiver and selector (imp_makeFunction<BOOL, ...>).
struct UIGestureRecognizerDelegate {
    // BOOL (UIGestureRecognizer*): NO keeps the recognizer from leaving Possible; it fails.
    static constexpr const char* shouldBegin = "gestureRecognizerShouldBegin:";
    // BOOL (UIGestureRecognizer*, UITouch*): NO keeps the touch from the recognizer.
    static constexpr const char* shouldReceiveTouch = "gestureRecognizer:shouldReceiveTouch:";
    // BOOL (UIGestureRecognizer*, UIGestureRecognizer* other): YES lets both recognize at once.
    static constexpr const char* shouldRecognizeSimultaneously =
        "gestureRecognizer:shouldRecognizeSimultaneouslyWithGestureRecognizer:";
    // BOOL (UIGestureRecognizer*, UIGestureRecognizer* other): YES makes the first wait for the
    // other to fail.
    static constexpr const char* shouldRequireFailure =
        "gestureRecognizer:shouldRequireFailureOfGestureRecognizer:";
    // BOOL (UIGestureRecognizer*, UIGestureRecognizer* other): YES makes the other wait for the
    // first to fail.
    static constexpr const char* shouldBeRequiredToFail =
        "gestureRecognizer:shouldBeRequiredToFailByGestureRecognizer:";
};

class UIGestureRecognizer : public NSObject {
    PLATFORM_OBJC_CLASS(UIGestureRecognizer, NSObject)
public:
    UIGestureRecognizer() = default;

    // initWithTarget:action: is the default constructor and addTarget. `action` is sent to
    // `target` through the runtime as void (UIGestureRecognizer*); the target is held weakly.
    void addTarget(const id& target, SEL action);
    // A null target removes `action` of every target; a null action every action of `target`.
    void removeTarget(const id& target, SEL action);

    UIGestureRecognizerState state() const { return state_; }
    std::shared_ptr<UIView> view() const { return view_.lock(); }
    // May be null.
    id delegate() const { return delegate_.lock(); }
    void setDelegate(const id& delegate) { delegate_ = delegate; }

    bool isEnabled() const { return enabled_; }
    // Turning a recognizer off in the middle of a gesture cancels it (or fails it, if it hadn't
    // begun).
    void setEnabled(bool enabled);
    bool cancelsTouchesInView() const { return cancelsTouchesInView_; }
    void setCancelsTouchesInView(bool value) { cancelsTouchesInView_ = value; }
    bool delaysTouchesBegan() const { return delaysTouchesBegan_; }
    void setDelaysTouchesBegan(bool value) { delaysTouchesBegan_ = value; }
    bool delaysTouchesEnded() const { return delaysTouchesEnded_; }
    void setDelaysTouchesEnded(bool value) { delaysTouchesEnded_ = value; }

    // This recognizer doesn't leave Possible before `other` has failed, and fails if `other`
    // recognizes. `other` is held weakly.
    void requireGestureRecognizerToFail(const std::shared_ptr<UIGestureRecognizer>& other);

    // The centroid of the recognizer's touches in `view`'s coordinates (null: the window's).
    CGPoint locationInView(const UIView* view) const;
    CGPoint locationOfTouch(std::size_t index, const UIView* view) const;
    std::size_t numberOfTouches() const;

    // For subclasses to override; the defaults are those of the platform.
    virtual bool canPreventGestureRecognizer(const UIGestureRecognizer* other) const;
    virtual bool canBePreventedByGestureRecognizer(const UIGestureRecognizer* other) const;
    virtual bool shouldRequireFailureOfGestureRecognizer(const UIGestureRecognizer* other) const;
    virtual bool shouldBeRequiredToFailByGestureRecognizer(const UIGestureRecognizer* other) const;
    // The default stops delivering `touch` to this recognizer; it no longer counts as one of its
    // touches.
    virtual void ignoreTouch(const std::shared_ptr<UITouch>& touch, UIEvent* event);
    // There are no presses in the stand-in; the default does nothing.
    virtual void ignorePress(const id& press, UIEvent* event);

    // Touches that land in the view's subtree, before the view gets them. The defaults do nothing.
    virtual void touchesBegan(const UITouchSet& touches, UIEvent* event);
    virtual void touchesMoved(const UITouchSet& touches, UIEvent* event);
    virtual void touchesEnded(const UITouchSet& touches, UIEvent* event);
    virtual void touchesCancelled(const UITouchSet& touches, UIEvent* event);
    // Back to Possible, after the recognizer's touches have gone.
    virtual void reset() {}

protected:
    // What a subclass sets. Transitions the platform doesn't allow are ignored; a recognition that
    // has to wait for another recognizer to fail takes effect when that one fails.
    void setState(UIGestureRecognizerState state);
    // A subclass that, in Possible with no touches left, still waits for more (a tap counting to
    // its number of taps) says so; others leave the gesture when their touches have gone.
    virtual bool awaitsFurtherTouches() const { return false; }

private:
    friend class UIView;
    friend class detail::GestureEnvironment;

    struct Target {
        std::weak_ptr<NSObject> object;
        SEL action;
    };

    // All main thread only.
    std::weak_ptr<UIView> view_;
    std::weak_ptr<NSObject> delegate_;
    std::vector<Target> targets_;
    std::vector<std::weak_ptr<UIGestureRecognizer>> requiredToFail_;
    UIGestureRecognizerState state_ = UIGestureRecognizerState::UIGestureRecognizerStatePossible;
    // A recognition waiting for other recognizers to fail; state_ reads Possible meanwhile.
    std::optional<UIGestureRecognizerState> pending_;
    // The touches of the current gesture, held until reset, ignored ones removed.
    std::vector<std::shared_ptr<UITouch>> touches_;
    bool inGesture_ = false;  // among the gesture environment's active recognizers
    bool enabled_ = true;
    bool cancelsTouchesInView_ = true;
    bool delaysTouchesBegan_ = false;
    bool delaysTouchesEnded_ = true;
};

}  // namespace platform
