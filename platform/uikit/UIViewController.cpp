#include "platform/uikit/UIViewController.h"

namespace platform {

std::shared_ptr<UIView> UIViewController::view() {
    // A loadView that reads `view` gets what is there so far instead of loading again.
    if (!view_ && !loading_) {
        loading_ = true;
        loadView();
        loading_ = false;
    }
    return view_;
}

void UIViewController::setView(std::shared_ptr<UIView> view) {
    view_ = std::move(view);
}

void UIViewController::loadView() {
    view_ = UIView::make();
}

}  // namespace platform
