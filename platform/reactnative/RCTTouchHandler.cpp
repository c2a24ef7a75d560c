#include "platform/reactnative/RCTTouchHandler.h"

#include "platform/uikit/UIView.h"

namespace platform {

namespace {

using State = UIGestureRecognizerState;

bool isInside(const std::shared_ptr<UIView>& view, const UIView* ancestor) {
    for (auto v = view; v; v = v->superview()) {
        if (v.get() == ancestor) return true;
    }
    return false;
}

}  // namespace

Class registerReactNativeTouchHandlerClass() {
    static const Class cls = [] {
        const Class defined = objc_defineClass("RCTTouchHandler", UIGestureRecognizer::class_());
        class_addMethod(
            defined, sel_getUid(UIGestureRecognizerDelegate::shouldRequireFailure),
            imp_makeFunction<BOOL, UIGestureRecognizer*, UIGestureRecognizer*>(
                [](NSObject*, SEL, UIGestureRecognizer* self, UIGestureRecognizer* other) -> BOOL {
                    // The host's recognizers around the root view win.
                    const auto own = self->view();
                    return !own || !isInside(other->view(), own.get());
                }));
        return defined;
    }();
    return cls;
}

std::shared_ptr<RCTTouchHandler> RCTTouchHandler::make() {
    registerReactNativeTouchHandlerClass();
    auto handler = std::make_shared<RCTTouchHandler>();
    handler->setDelegate(handler);
    handler->setCancelsTouchesInView(false);
    handler->setDelaysTouchesEnded(false);
    return handler;
}

Class RCTTouchHandler::objcClass() const {
    return registerReactNativeTouchHandlerClass();
}

bool RCTTouchHandler::began() const {
    return state() == State::UIGestureRecognizerStateBegan ||
           state() == State::UIGestureRecognizerStateChanged;
}

void RCTTouchHandler::touchesBegan(const UITouchSet& touches, UIEvent*) {
    fingersDown_ += touches.size();
    setState(began() ? State::UIGestureRecognizerStateChanged : State::UIGestureRecognizerStateBegan);
}

void RCTTouchHandler::touchesMoved(const UITouchSet&, UIEvent*) {
    if (began()) setState(State::UIGestureRecognizerStateChanged);
}

void RCTTouchHandler::touchesEnded(const UITouchSet& touches, UIEvent*) {
    fingersDown_ -= std::min(fingersDown_, touches.size());
    if (fingersDown_ > 0) return;
    setState(began() ? State::UIGestureRecognizerStateEnded : State::UIGestureRecognizerStateFailed);
}

void RCTTouchHandler::touchesCancelled(const UITouchSet& touches, UIEvent*) {
    fingersDown_ -= std::min(fingersDown_, touches.size());
    if (fingersDown_ > 0) return;
    setState(began() ? State::UIGestureRecognizerStateCancelled : State::UIGestureRecognizerStateFailed);
}

}  // namespace platform
