#include "platform/coregraphics/CGColorSpace.h"

namespace platform {

CFTypeID CGColorSpaceGetTypeID() { return 40; }
CFTypeID CGColorSpace::typeID() const { return CGColorSpaceGetTypeID(); }

CGColorSpaceRef CGColorSpaceCreateDeviceGray() {
    static const auto gray = std::make_shared<CGColorSpace>(CGColorSpaceModel::kCGColorSpaceModelMonochrome);
    return gray;
}

CGColorSpaceRef CGColorSpaceCreateDeviceRGB() {
    static const auto rgb = std::make_shared<CGColorSpace>(CGColorSpaceModel::kCGColorSpaceModelRGB);
    return rgb;
}

CGColorSpaceModel CGColorSpaceGetModel(const CGColorSpaceRef& space) {
    return space ? space->model() : CGColorSpaceModel::kCGColorSpaceModelMonochrome;
}

std::size_t CGColorSpaceGetNumberOfComponents(const CGColorSpaceRef& space) {
    if (!space) return 0;
    return space->model() == CGColorSpaceModel::kCGColorSpaceModelRGB ? 3 : 1;
}

}  // namespace platform
