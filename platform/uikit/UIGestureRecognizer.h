#pragma once
// The base of gesture recognizers. A recognizer belongs to the view it was added to, which holds
// it strongly; it holds the view weakly. Main thread.
#include <memory>

#include "platform/foundation/NSObject.h"

namespace platform {

class UIView;

class UIGestureRecognizer : public NSObject {
    PLATFORM_OBJC_CLASS(UIGestureRecognizer, NSObject)
public:
    UIGestureRecognizer() = default;

    std::shared_ptr<UIView> view() const { return view_.lock(); }
    bool isEnabled() const { return enabled_; }
    void setEnabled(bool enabled) { enabled_ = enabled; }
    bool cancelsTouchesInView() const { return cancelsTouchesInView_; }
    void setCancelsTouchesInView(bool value) { cancelsTouchesInView_ = value; }
    bool delaysTouchesBegan() const { return delaysTouchesBegan_; }
    void setDelaysTouchesBegan(bool value) { delaysTouchesBegan_ = value; }
    bool delaysTouchesEnded() const { return delaysTouchesEnded_; }
    void setDelaysTouchesEnded(bool value) { delaysTouchesEnded_ = value; }

private:
    friend class UIView;
    std::weak_ptr<UIView> view_;
    bool enabled_ = true;
    bool cancelsTouchesInView_ = true;
    bool delaysTouchesBegan_ = false;
    bool delaysTouchesEnded_ = true;
};

}  // namespace platform
