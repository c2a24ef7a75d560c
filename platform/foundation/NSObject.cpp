#include "platform/foundation/NSObject.h"

#include <cstdio>

namespace platform {

Class NSObject::class_() {
    static const Class cls = objc_defineClass("NSObject", nullptr);
    return cls;
}

bool NSObject::isKindOfClass(Class cls) const { return class_isSubclassOf(objcClass(), cls); }
bool NSObject::isMemberOfClass(Class cls) const { return objcClass() == cls; }
bool NSObject::respondsToSelector(SEL sel) const { return class_respondsToSelector(objcClass(), sel); }

std::string NSObject::description() const {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, ": %p>", static_cast<const void*>(this));
    return "<" + NSStringFromClass(objcClass()) + buffer;
}

bool NSObjectsEqual(const id& a, const id& b) {
    if (a == b) return true;
    if (!a || !b) return false;
    return a->isEqual(b.get());
}

}  // namespace platform
