#include "platform/foundation/NSNotification.h"

namespace platform {

std::string NSNotification::description() const {
    return "NSConcreteNotification {name = " + name_ +
           (object_ ? "; object = " + object_->description() : "") +
           (userInfo_ ? "; userInfo = " + userInfo_->description() : "") + "}";
}

}  // namespace platform
