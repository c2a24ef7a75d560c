#include "platform/uikit/UIDevice.h"

namespace platform {

std::shared_ptr<UIDevice> UIDevice::currentDevice() {
    // Never destroyed: threads still running at exit may ask.
    static const std::shared_ptr<UIDevice>* instance =
        new std::shared_ptr<UIDevice>(std::make_shared<UIDevice>());
    return *instance;
}

std::string UIDevice::model() const {
    std::lock_guard lock(mutex_);
    return model_;
}

std::string UIDevice::systemName() const {
    std::lock_guard lock(mutex_);
    return systemName_;
}

std::string UIDevice::systemVersion() const {
    std::lock_guard lock(mutex_);
    return systemVersion_;
}

void UIDevice::setModel(std::string model) {
    std::lock_guard lock(mutex_);
    model_ = std::move(model);
}

void UIDevice::setSystemName(std::string name) {
    std::lock_guard lock(mutex_);
    systemName_ = std::move(name);
}

void UIDevice::setSystemVersion(std::string version) {
    std::lock_guard lock(mutex_);
    systemVersion_ = std::move(version);
}

}  // namespace platform
