#include "platform/coregraphics/CFType.h"

namespace platform {

namespace {
constexpr CFTypeID kObjectTypeID = 1;
}

CFTypeID CFGetTypeID(const id& value) {
    if (!value) return 0;
    if (auto cf = dynamic_cast<const CFType*>(value.get())) return cf->typeID();
    return kObjectTypeID;
}

}  // namespace platform
