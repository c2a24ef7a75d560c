#pragma once
// The device the process runs on. The stand-in has no hardware to ask, so a host plays the device
// with the setters (defaults: an "iPhone" on "iOS" "17.0"). Every member may be called from any
// thread.
#include <memory>
#include <mutex>
#include <string>

#include "platform/foundation/NSObject.h"

namespace platform {

class UIDevice : public NSObject {
    PLATFORM_OBJC_CLASS(UIDevice, NSObject)
public:
    UIDevice() = default;

    static std::shared_ptr<UIDevice> currentDevice();
    static std::shared_ptr<UIDevice> current() { return currentDevice(); }

    std::string model() const;          // "iPhone", "iPad"
    std::string systemName() const;     // "iOS"
    std::string systemVersion() const;  // "17.0"

    // Stand-in only.
    void setModel(std::string model);
    void setSystemName(std::string name);
    void setSystemVersion(std::string version);

private:
    mutable std::mutex mutex_;
    std::string model_ = "iPhone";        // guarded by mutex_
    std::string systemName_ = "iOS";      // guarded by mutex_
    std::string systemVersion_ = "17.0";  // guarded by mutex_
};

}  // namespace platform
