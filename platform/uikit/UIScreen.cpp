#include "platform/uikit/UIScreen.h"

namespace platform {

std::shared_ptr<UIScreen> UIScreen::mainScreen() {
    // Never destroyed: threads still running at exit may ask.
    static const std::shared_ptr<UIScreen>* instance =
        new std::shared_ptr<UIScreen>(std::make_shared<UIScreen>());
    return *instance;
}

CGRect UIScreen::bounds() const {
    std::lock_guard lock(mutex_);
    return bounds_;
}

CGFloat UIScreen::scale() const {
    std::lock_guard lock(mutex_);
    return scale_;
}

void UIScreen::setBounds(CGRect bounds) {
    std::lock_guard lock(mutex_);
    bounds_ = bounds;
}

void UIScreen::setScale(CGFloat scale) {
    std::lock_guard lock(mutex_);
    scale_ = scale;
}

}  // namespace platform
