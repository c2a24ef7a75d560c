#pragma once
// A stand-in for the touch handler of React Native, a third-party framework that a host may embed:
// a gesture recognizer on the framework's root view that takes every touch there for the
// framework's own views. It is its own delegate and answers
// gestureRecognizer:shouldRequireFailureOfGestureRecognizer: (through the runtime) with YES for
// every recognizer outside its view, so that the host's own recognizers around the root view go
// first: it doesn't begin until those have failed.
//
// The class exists in the runtime, under the name "RCTTouchHandler", only once a host has called
// registerReactNativeTouchHandlerClass (as linking the framework would make it exist); before that
// NSClassFromString doesn't find it. Main thread, but for the registration.
#include <memory>

#include "platform/uikit/UIGestureRecognizer.h"

namespace platform {

// Idempotent; any thread.
Class registerReactNativeTouchHandlerClass();

class RCTTouchHandler : public UIGestureRecognizer {
public:
    // Registers the class first.
    static std::shared_ptr<RCTTouchHandler> make();

    Class objcClass() const override;

    // Begins when a touch lands, changes as fingers move, ends when the last lifts.
    void touchesBegan(const UITouchSet& touches, UIEvent* event) override;
    void touchesMoved(const UITouchSet& touches, UIEvent* event) override;
    void touchesEnded(const UITouchSet& touches, UIEvent* event) override;
    void touchesCancelled(const UITouchSet& touches, UIEvent* event) override;
    void reset() override { fingersDown_ = 0; }

private:
    bool began() const;
    std::size_t fingersDown_ = 0;  // main thread only
};

}  // namespace platform
