#pragma once
// Colours for views. Immutable; any thread.
#include <memory>

#include "platform/coregraphics/CGColor.h"
#include "platform/foundation/NSObject.h"

namespace platform {

class UIColor : public NSObject {
    PLATFORM_OBJC_CLASS(UIColor, NSObject)
public:
    explicit UIColor(CGColorRef color) : color_(std::move(color)) {}

    static std::shared_ptr<UIColor> colorWithRed(CGFloat red, CGFloat green, CGFloat blue, CGFloat alpha);
    static std::shared_ptr<UIColor> colorWithWhite(CGFloat white, CGFloat alpha);
    static std::shared_ptr<UIColor> colorWithCGColor(CGColorRef color);
    static std::shared_ptr<UIColor> blackColor();
    static std::shared_ptr<UIColor> whiteColor();
    static std::shared_ptr<UIColor> clearColor();
    static std::shared_ptr<UIColor> grayColor();
    static std::shared_ptr<UIColor> lightGrayColor();
    static std::shared_ptr<UIColor> redColor();
    static std::shared_ptr<UIColor> blueColor();
    static std::shared_ptr<UIColor> systemBlueColor();
    static std::shared_ptr<UIColor> placeholderTextColor();

    const CGColorRef& CGColor() const { return color_; }
    bool isEqual(const NSObject* other) const override;

private:
    const CGColorRef color_;
};

}  // namespace platform
