#pragma once
// The CoreFoundation side of the graphics types. CGColor, CGImage, CGPath, CGColorSpace and
// CGContext are reference-counted values that may be stored where an object goes (a layer's
// `contents` is an `id`), and CFGetTypeID tells them apart from each other and from objects.
#include <memory>

#include "platform/foundation/NSObject.h"

namespace platform {

using CFTypeID = unsigned long;

class CFType : public NSObject {
public:
    virtual CFTypeID typeID() const = 0;
};

// The type of any value; for an object that isn't one of the CoreFoundation types, the one type
// shared by all objects. A null reference gives 0.
CFTypeID CFGetTypeID(const id& value);

}  // namespace platform
