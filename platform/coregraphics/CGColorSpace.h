#pragma once
// Device colour spaces. Colours and bitmaps carry one; only gray and RGB exist here.
#include <cstddef>
#include <memory>

#include "platform/coregraphics/CFType.h"

namespace platform {

enum class CGColorSpaceModel { kCGColorSpaceModelMonochrome = 0, kCGColorSpaceModelRGB = 1 };

class CGColorSpace : public CFType {
public:
    explicit CGColorSpace(CGColorSpaceModel model) : model_(model) {}
    CFTypeID typeID() const override;
    CGColorSpaceModel model() const { return model_; }

private:
    const CGColorSpaceModel model_;
};
using CGColorSpaceRef = std::shared_ptr<CGColorSpace>;

CGColorSpaceRef CGColorSpaceCreateDeviceGray();
CGColorSpaceRef CGColorSpaceCreateDeviceRGB();
CGColorSpaceModel CGColorSpaceGetModel(const CGColorSpaceRef& space);
std::size_t CGColorSpaceGetNumberOfComponents(const CGColorSpaceRef& space);
CFTypeID CGColorSpaceGetTypeID();

}  // namespace platform
