#pragma once
// Recording what views and gesture recognizers are told while touches are delivered, as lines of
// one trace, so that two runs can be compared line by line.
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/foundation/NSObject.h"
#include "platform/uikit/UIGestureRecognizer.h"
#include "platform/uikit/UIView.h"

namespace qlm_test {

using Trace = std::vector<std::string>;

std::string stateName(platform::UIGestureRecognizerState state);

// A view that writes each touches callback as "<name> <phase> x,y" (the first touch's location in
// the view), then keeps it, as a view that handles touches does.
class TracingView : public platform::UIView {
    PLATFORM_OBJC_CLASS(TracingView, platform::UIView)
public:
    static std::shared_ptr<TracingView> make(std::shared_ptr<Trace> trace, std::string name,
                                             platform::CGRect frame);

    void touchesBegan(const platform::UITouchSet& touches, platform::UIEvent* event) override;
    void touchesMoved(const platform::UITouchSet& touches, platform::UIEvent* event) override;
    void touchesEnded(const platform::UITouchSet& touches, platform::UIEvent* event) override;
    void touchesCancelled(const platform::UITouchSet& touches, platform::UIEvent* event) override;

private:
    void note(const char* phase, const platform::UITouchSet& touches);
    std::shared_ptr<Trace> trace_;
    std::string name_;
};

// The target of recognizers' actions: writes "<name> <state>" for each action it gets, and calls
// `then` after, if set.
class ActionRecorder : public platform::NSObject {
    PLATFORM_OBJC_CLASS(ActionRecorder, platform::NSObject)
public:
    static std::shared_ptr<ActionRecorder> make(std::shared_ptr<Trace> trace, std::string name);
    // The selector the recorder answers: void (UIGestureRecognizer*).
    static platform::SEL action();
    // Adds this recorder to `recognizer` as a target.
    void observe(platform::UIGestureRecognizer& recognizer);

    std::function<void(platform::UIGestureRecognizer&)> then;

private:
    std::shared_ptr<Trace> trace_;
    std::string name_;
};

bool traceHas(const Trace& trace, const std::string& line);

}  // namespace qlm_test
