#include "platform/coregraphics/CGColor.h"

namespace platform {

CFTypeID CGColorGetTypeID() { return 41; }

CGColor::CGColor(CGColorSpaceRef space, std::vector<CGFloat> components)
    : space_(std::move(space)), components_(std::move(components)) {}

CFTypeID CGColor::typeID() const { return CGColorGetTypeID(); }

bool CGColor::isEqual(const NSObject* other) const {
    auto c = dynamic_cast<const CGColor*>(other);
    return c != nullptr && c->space_ == space_ && c->components_ == components_;
}

void CGColor::getRGBA(CGFloat rgba[4]) const {
    if (space_->model() == CGColorSpaceModel::kCGColorSpaceModelRGB) {
        for (int i = 0; i < 4; ++i) rgba[i] = components_[i];
    } else {
        rgba[0] = rgba[1] = rgba[2] = components_[0];
        rgba[3] = components_[1];
    }
}

CGColorRef CGColorCreate(const CGColorSpaceRef& space, const CGFloat* components) {
    if (!space || components == nullptr) return nullptr;
    std::size_t n = CGColorSpaceGetNumberOfComponents(space) + 1;
    return std::make_shared<CGColor>(space, std::vector<CGFloat>(components, components + n));
}

CGColorRef CGColorCreateGenericRGB(CGFloat red, CGFloat green, CGFloat blue, CGFloat alpha) {
    return std::make_shared<CGColor>(CGColorSpaceCreateDeviceRGB(), std::vector<CGFloat>{red, green, blue, alpha});
}

CGColorRef CGColorCreateGenericGray(CGFloat gray, CGFloat alpha) {
    return std::make_shared<CGColor>(CGColorSpaceCreateDeviceGray(), std::vector<CGFloat>{gray, alpha});
}

CGColorRef CGColorCreateCopyWithAlpha(const CGColorRef& color, CGFloat alpha) {
    if (!color) return nullptr;
    auto components = color->components();
    components.back() = alpha;
    return std::make_shared<CGColor>(color->colorSpace(), std::move(components));
}

CGFloat CGColorGetAlpha(const CGColorRef& color) { return color ? color->alpha() : 0; }

std::size_t CGColorGetNumberOfComponents(const CGColorRef& color) { return color ? color->components().size() : 0; }

const CGFloat* CGColorGetComponents(const CGColorRef& color) { return color ? color->components().data() : nullptr; }

CGColorSpaceRef CGColorGetColorSpace(const CGColorRef& color) { return color ? color->colorSpace() : nullptr; }

bool CGColorEqualToColor(const CGColorRef& a, const CGColorRef& b) {
    if (!a || !b) return a == b;
    return a->isEqual(b.get());
}

}  // namespace platform
