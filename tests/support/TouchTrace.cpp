#include "tests/support/TouchTrace.h"

#include <algorithm>
#include <cstdio>

#include "platform/uikit/UITouch.h"

using namespace platform;

namespace qlm_test {

std::string stateName(UIGestureRecognizerState state) {
    switch (state) {
        case UIGestureRecognizerState::UIGestureRecognizerStatePossible:
            return "possible";
        case UIGestureRecognizerState::UIGestureRecognizerStateBegan:
            return "began";
        case UIGestureRecognizerState::UIGestureRecognizerStateChanged:
            return "changed";
        case UIGestureRecognizerState::UIGestureRecognizerStateEnded:
            return "ended";
        case UIGestureRecognizerState::UIGestureRecognizerStateCancelled:
            return "cancelled";
        case UIGestureRecognizerState::UIGestureRecognizerStateFailed:
            return "failed";
    }
    return "?";
}

std::shared_ptr<TracingView> TracingView::make(std::shared_ptr<Trace> trace, std::string name, CGRect frame) {
    auto view = UIView::make<TracingView>(frame);
    view->trace_ = std::move(trace);
    view->name_ = std::move(name);
    return view;
}

void TracingView::note(const char* phase, const UITouchSet& touches) {
    std::string line = name_ + " " + phase;
    for (const auto& touch : touches) {
        const CGPoint p = touch->locationInView(this);
        char buffer[64];
        std::snprintf(buffer, sizeof buffer, " %g,%g", p.x, p.y);
        line += buffer;
    }
    trace_->push_back(std::move(line));
}

void TracingView::touchesBegan(const UITouchSet& touches, UIEvent*) {
    note("began", touches);
}
void TracingView::touchesMoved(const UITouchSet& touches, UIEvent*) {
    note("moved", touches);
}
void TracingView::touchesEnded(const UITouchSet& touches, UIEvent*) {
    note("ended", touches);
}
void TracingView::touchesCancelled(const UITouchSet& touches, UIEvent*) {
    note("cancelled", touches);
}

SEL ActionRecorder::action() {
    static const SEL selector = [] {
        const SEL sel = sel_getUid("recognizerFired:");
        class_addMethod(
            class_(), sel,
            imp_makeFunction<void, UIGestureRecognizer*>([](NSObject* self, SEL, UIGestureRecognizer* r) {
                auto& recorder = static_cast<ActionRecorder&>(*self);
                recorder.trace_->push_back(recorder.name_ + " " + stateName(r->state()));
                if (recorder.then) recorder.then(*r);
            }));
        return sel;
    }();
    return selector;
}

std::shared_ptr<ActionRecorder> ActionRecorder::make(std::shared_ptr<Trace> trace, std::string name) {
    auto recorder = std::make_shared<ActionRecorder>();
    recorder->trace_ = std::move(trace);
    recorder->name_ = std::move(name);
    return recorder;
}

void ActionRecorder::observe(UIGestureRecognizer& recognizer) {
    recognizer.addTarget(shared_from_this(), action());
}

bool traceHas(const Trace& trace, const std::string& line) {
    return std::find(trace.begin(), trace.end(), line) != trace.end();
}

}  // namespace qlm_test
