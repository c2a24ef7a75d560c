#pragma once
// Immutable colours: components in their colour space, alpha last. Any thread.
#include <cstddef>
#include <memory>
#include <vector>

#include "platform/coregraphics/CGColorSpace.h"
#include "platform/coregraphics/CGGeometry.h"

namespace platform {

class CGColor : public CFType {
public:
    CGColor(CGColorSpaceRef space, std::vector<CGFloat> components);
    CFTypeID typeID() const override;
    bool isEqual(const NSObject* other) const override;

    const CGColorSpaceRef& colorSpace() const { return space_; }
    const std::vector<CGFloat>& components() const { return components_; }
    CGFloat alpha() const { return components_.back(); }
    // Stand-in only: the colour as red, green, blue and alpha, for drawing.
    void getRGBA(CGFloat rgba[4]) const;

private:
    const CGColorSpaceRef space_;
    const std::vector<CGFloat> components_;
};
using CGColorRef = std::shared_ptr<CGColor>;

CFTypeID CGColorGetTypeID();
// `components` holds the space's components and then alpha; nullptr if the count is wrong.
CGColorRef CGColorCreate(const CGColorSpaceRef& space, const CGFloat* components);
CGColorRef CGColorCreateGenericRGB(CGFloat red, CGFloat green, CGFloat blue, CGFloat alpha);
CGColorRef CGColorCreateGenericGray(CGFloat gray, CGFloat alpha);
CGColorRef CGColorCreateCopyWithAlpha(const CGColorRef& color, CGFloat alpha);
CGFloat CGColorGetAlpha(const CGColorRef& color);
std::size_t CGColorGetNumberOfComponents(const CGColorRef& color);
const CGFloat* CGColorGetComponents(const CGColorRef& color);
CGColorSpaceRef CGColorGetColorSpace(const CGColorRef& color);
bool CGColorEqualToColor(const CGColorRef& a, const CGColorRef& b);

}  // namespace platform
