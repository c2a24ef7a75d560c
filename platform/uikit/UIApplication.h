#pragma once
// The application object: its windows. Main thread.
#include <memory>
#include <vector>

#include "platform/foundation/NSObject.h"
#include "platform/uikit/UIResponder.h"

namespace platform {

class UIWindow;

// The last responder of every window's chain.
class UIApplication : public UIResponder {
    PLATFORM_OBJC_CLASS(UIApplication, UIResponder)
public:
    UIApplication() = default;
    static std::shared_ptr<UIApplication> sharedApplication();

    // The live windows, in the order they were made, hidden ones included.
    std::vector<std::shared_ptr<UIWindow>> windows() const;
    // May be null.
    std::shared_ptr<UIWindow> keyWindow() const { return keyWindow_.lock(); }

private:
    friend class UIWindow;
    void addWindow(const std::shared_ptr<UIWindow>& window);
    void setKeyWindow(const std::shared_ptr<UIWindow>& window) { keyWindow_ = window; }

    mutable std::vector<std::weak_ptr<UIWindow>> windows_;
    std::weak_ptr<UIWindow> keyWindow_;
};

}  // namespace platform
