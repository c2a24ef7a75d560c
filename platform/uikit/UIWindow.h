#pragma once
// The root of a view hierarchy on screen. A window joins UIApplication's `windows` when it is made
// (UIView::make<UIWindow>) and stays there for as long as something else keeps it alive: the
// application holds it weakly, so a host keeps its windows. Main thread.
#include <memory>

#include "platform/uikit/UIEvent.h"
#include "platform/uikit/UIView.h"
#include "platform/uikit/UIViewController.h"

namespace platform {

class UIWindow : public UIView {
    PLATFORM_OBJC_CLASS(UIWindow, UIView)
public:
    // Held strongly. Setting one puts its view in the window, sized to the window's bounds.
    std::shared_ptr<UIViewController> rootViewController() const { return rootViewController_; }
    void setRootViewController(std::shared_ptr<UIViewController> controller);
    // Shows the window and makes it the application's key window.
    void makeKeyAndVisible();
    bool isKeyWindow() const;

    // Delivers a touch event: a touch that begins is hit-tested to its view and handed to the
    // recognizers of that view and its ancestors up to this window; they get each touch first,
    // then the view, as far as they let it through.
    void sendEvent(const std::shared_ptr<UIEvent>& event);

    std::shared_ptr<UIResponder> nextResponder() const override;

protected:
    void initWithFrame(CGRect frame) override;

private:
    std::shared_ptr<UIViewController> rootViewController_;
};

}  // namespace platform
