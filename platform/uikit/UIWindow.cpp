#include "platform/uikit/UIWindow.h"

#include "platform/uikit/UIApplication.h"
#include "platform/uikit/detail/GestureEnvironment.h"

namespace platform {

void UIWindow::initWithFrame(CGRect frame) {
    UIView::initWithFrame(frame);
    // Windows start hidden; makeKeyAndVisible shows them.
    setHidden(true);
    UIApplication::sharedApplication()->addWindow(
        std::static_pointer_cast<UIWindow>(weak_from_this().lock()));
}

void UIWindow::setRootViewController(std::shared_ptr<UIViewController> controller) {
    if (rootViewController_) {
        const auto old = rootViewController_->viewIfLoaded();
        if (old && old->superview().get() == this) old->removeFromSuperview();
    }
    rootViewController_ = std::move(controller);
    if (!rootViewController_) return;
    if (const auto view = rootViewController_->view()) {
        view->setFrame(bounds());
        addSubview(view);
    }
}

void UIWindow::makeKeyAndVisible() {
    setHidden(false);
    UIApplication::sharedApplication()->setKeyWindow(
        std::static_pointer_cast<UIWindow>(weak_from_this().lock()));
}

bool UIWindow::isKeyWindow() const {
    return UIApplication::sharedApplication()->keyWindow().get() == this;
}

void UIWindow::sendEvent(const std::shared_ptr<UIEvent>& event) {
    if (!event) return;
    detail::GestureEnvironment::shared().dispatch(*this, event);
}

std::shared_ptr<UIResponder> UIWindow::nextResponder() const {
    return UIApplication::sharedApplication();
}

}  // namespace platform
