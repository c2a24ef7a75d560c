#include "platform/uikit/UIApplication.h"

#include <algorithm>

#include "platform/uikit/UIWindow.h"

namespace platform {

std::shared_ptr<UIApplication> UIApplication::sharedApplication() {
    // Never destroyed: windows may outlive static destruction order.
    static const std::shared_ptr<UIApplication>* instance =
        new std::shared_ptr<UIApplication>(std::make_shared<UIApplication>());
    return *instance;
}

std::vector<std::shared_ptr<UIWindow>> UIApplication::windows() const {
    std::vector<std::shared_ptr<UIWindow>> live;
    std::erase_if(windows_, [&live](const std::weak_ptr<UIWindow>& weak) {
        auto window = weak.lock();
        if (!window) return true;
        live.push_back(std::move(window));
        return false;
    });
    return live;
}

void UIApplication::addWindow(const std::shared_ptr<UIWindow>& window) {
    if (!window) return;
    std::erase_if(windows_, [](const std::weak_ptr<UIWindow>& weak) { return weak.expired(); });
    windows_.push_back(window);
}

}  // namespace platform
