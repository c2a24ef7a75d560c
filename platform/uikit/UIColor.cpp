#include "platform/uikit/UIColor.h"

namespace platform {

std::shared_ptr<UIColor> UIColor::colorWithRed(CGFloat red, CGFloat green, CGFloat blue, CGFloat alpha) {
    return std::make_shared<UIColor>(CGColorCreateGenericRGB(red, green, blue, alpha));
}

std::shared_ptr<UIColor> UIColor::colorWithWhite(CGFloat white, CGFloat alpha) {
    return std::make_shared<UIColor>(CGColorCreateGenericGray(white, alpha));
}

std::shared_ptr<UIColor> UIColor::colorWithCGColor(CGColorRef color) {
    if (!color) return nullptr;
    return std::make_shared<UIColor>(std::move(color));
}

std::shared_ptr<UIColor> UIColor::blackColor() {
    return colorWithWhite(0, 1);
}
std::shared_ptr<UIColor> UIColor::whiteColor() {
    return colorWithWhite(1, 1);
}
std::shared_ptr<UIColor> UIColor::clearColor() {
    return colorWithWhite(0, 0);
}
std::shared_ptr<UIColor> UIColor::grayColor() {
    return colorWithWhite(0.5, 1);
}
std::shared_ptr<UIColor> UIColor::lightGrayColor() {
    return colorWithWhite(2.0 / 3.0, 1);
}
std::shared_ptr<UIColor> UIColor::redColor() {
    return colorWithRed(1, 0, 0, 1);
}
std::shared_ptr<UIColor> UIColor::blueColor() {
    return colorWithRed(0, 0, 1, 1);
}
// The light appearance of the dynamic system colours.
std::shared_ptr<UIColor> UIColor::systemBlueColor() {
    return colorWithRed(0, 122.0 / 255, 1, 1);
}
std::shared_ptr<UIColor> UIColor::placeholderTextColor() {
    return colorWithRed(60.0 / 255, 60.0 / 255, 67.0 / 255, 0.3);
}

bool UIColor::isEqual(const NSObject* other) const {
    const auto* color = dynamic_cast<const UIColor*>(other);
    return color != nullptr && CGColorEqualToColor(color_, color->color_);
}

}  // namespace platform
