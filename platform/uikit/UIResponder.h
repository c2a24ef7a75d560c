#pragma once
// Objects that take part in event handling. A responder that doesn't handle a touch passes it on
// to its next responder, as the default implementations here do; the chain ends at nil. Main
// thread.
#include <memory>
#include <vector>

#include "platform/foundation/NSObject.h"

namespace platform {

class UITouch;
class UIEvent;

// An NSSet of touches: each touch at most once, walked in the order given.
using UITouchSet = std::vector<std::shared_ptr<UITouch>>;

class UIResponder : public NSObject {
    PLATFORM_OBJC_CLASS(UIResponder, NSObject)
public:
    UIResponder() = default;

    // May be null: the end of the chain.
    virtual std::shared_ptr<UIResponder> nextResponder() const { return nullptr; }

    // `event` may be null. The defaults hand the touches to the next responder.
    virtual void touchesBegan(const UITouchSet& touches, UIEvent* event);
    virtual void touchesMoved(const UITouchSet& touches, UIEvent* event);
    virtual void touchesEnded(const UITouchSet& touches, UIEvent* event);
    virtual void touchesCancelled(const UITouchSet& touches, UIEvent* event);
};

}  // namespace platform
