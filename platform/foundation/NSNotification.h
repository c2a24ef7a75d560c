#pragma once
// A notification: a name, the object that posts it (may be nil) and a user-info dictionary (may be
// nil). Immutable; any thread.
#include <memory>
#include <string>

#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSObject.h"

namespace platform {

class NSNotification : public NSObject {
    PLATFORM_OBJC_CLASS(NSNotification, NSObject)
public:
    NSNotification(std::string name, id object, std::shared_ptr<NSDictionary> userInfo)
        : name_(std::move(name)), object_(std::move(object)), userInfo_(std::move(userInfo)) {}

    static std::shared_ptr<NSNotification> notificationWithName(
        std::string name, id object, std::shared_ptr<NSDictionary> userInfo = nullptr) {
        return std::make_shared<NSNotification>(std::move(name), std::move(object), std::move(userInfo));
    }

    const std::string& name() const { return name_; }
    const id& object() const { return object_; }
    const std::shared_ptr<NSDictionary>& userInfo() const { return userInfo_; }

    std::string description() const override;

private:
    std::string name_;
    id object_;
    std::shared_ptr<NSDictionary> userInfo_;
};

}  // namespace platform
