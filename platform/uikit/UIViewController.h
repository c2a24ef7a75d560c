#pragma once
// Manages one view. `view` loads it on first read through loadView, whose default makes a plain
// view; a subclass's loadView may leave it absent, and setView may clear it. Main thread.
#include <memory>

#include "platform/uikit/UIView.h"

namespace platform {

class UIViewController : public NSObject {
    PLATFORM_OBJC_CLASS(UIViewController, NSObject)
public:
    UIViewController() = default;

    // May be null.
    std::shared_ptr<UIView> view();
    std::shared_ptr<UIView> viewIfLoaded() const { return view_; }
    void setView(std::shared_ptr<UIView> view);
    bool isViewLoaded() const { return view_ != nullptr; }

protected:
    virtual void loadView();

private:
    std::shared_ptr<UIView> view_;
    bool loading_ = false;
};

}  // namespace platform
