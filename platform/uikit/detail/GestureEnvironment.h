#pragma once
// Where touches meet gesture recognizers: the window hands each touch event here, and recognizers
// report their state changes here. It decides which recognizers get a touch, runs the state
// machine (failure requirements, prevention, simultaneous recognition), sends actions, and holds
// back or cancels what the views under the touches get. Main thread only, like all of UIKit.
#include <deque>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "platform/uikit/UIEvent.h"
#include "platform/uikit/UIGestureRecognizer.h"
#include "platform/uikit/UITouch.h"

namespace platform {

class UIWindow;

namespace detail {

class GestureEnvironment {
public:
    static GestureEnvironment& shared();

    void dispatch(UIWindow& window, const std::shared_ptr<UIEvent>& event);
    // A subclass's setState. Inside a delivery it takes effect once the callback has returned.
    void requestState(UIGestureRecognizer& recognizer, UIGestureRecognizerState state);
    void ignoreTouch(UIGestureRecognizer& recognizer, const UITouch& touch);
    void recognizerDisabled(UIGestureRecognizer& recognizer);
    // Taken off its view: out of the gesture under way, reset.
    void recognizerRemoved(UIGestureRecognizer& recognizer);

private:
    using Recognizer = std::shared_ptr<UIGestureRecognizer>;

    void attach(UIWindow& window, const std::shared_ptr<UITouch>& touch, UIEvent* event);
    void join(const Recognizer& recognizer);
    void deliverToRecognizers(const UITouchSet& touches, UIEvent* event);
    void deliverToViews(const std::shared_ptr<UIEvent>& event);
    void drain();
    void apply(const Recognizer& recognizer, UIGestureRecognizerState requested);
    void tryRecognize(const Recognizer& recognizer, UIGestureRecognizerState target);
    void fail(const Recognizer& recognizer);
    void resolvePending();
    void cancelViewTouches(const UIGestureRecognizer& recognizer);
    void settleHeldOnRecognition(const UIGestureRecognizer& recognizer);
    void releaseHeld();
    void settle();
    void resetRecognizer(const Recognizer& recognizer);
    void sendActions(UIGestureRecognizer& recognizer);

    bool requiresFailure(UIGestureRecognizer& waiting, UIGestureRecognizer& other) const;
    bool simultaneous(UIGestureRecognizer& a, UIGestureRecognizer& b) const;
    static bool sharesTouch(const UIGestureRecognizer& a, const UIGestureRecognizer& b);
    static bool holdsTouch(const UITouch& touch, bool began);

    // All main thread only.
    std::vector<Recognizer> active_;  // recognizers in a gesture, in the order they joined
    std::deque<std::pair<Recognizer, UIGestureRecognizerState>> requests_;
    std::vector<std::pair<std::shared_ptr<UITouch>, std::shared_ptr<UIEvent>>> held_;
    int dispatching_ = 0;
    bool draining_ = false;
    bool resolving_ = false;
    bool resolveAgain_ = false;
};

}  // namespace detail
}  // namespace platform
