#pragma once
// Paths for UIKit drawing, around a CGPath.
#include <memory>

#include "platform/coregraphics/CGPath.h"
#include "platform/foundation/NSObject.h"

namespace platform {

class UIBezierPath : public NSObject {
    PLATFORM_OBJC_CLASS(UIBezierPath, NSObject)
public:
    explicit UIBezierPath(CGPathRef path) : path_(std::move(path)) {}

    static std::shared_ptr<UIBezierPath> bezierPathWithRect(CGRect rect);
    static std::shared_ptr<UIBezierPath> bezierPathWithOvalInRect(CGRect rect);
    // Corners of `cornerRadius`, clamped to half the shorter side; a radius of 0 gives the rectangle.
    static std::shared_ptr<UIBezierPath> bezierPathWithRoundedRect(CGRect rect, CGFloat cornerRadius);

    const CGPathRef& CGPath() const { return path_; }
    CGRect bounds() const { return CGPathGetBoundingBox(path_); }
    // The width stroke() draws with; 1 unless set.
    CGFloat lineWidth() const { return lineWidth_; }
    void setLineWidth(CGFloat width) { lineWidth_ = width; }

    // Into the current context (UIGraphicsGetCurrentContext) with its fill or stroke colour.
    void fill() const;
    void stroke() const;

private:
    const CGPathRef path_;
    CGFloat lineWidth_ = 1;
};

}  // namespace platform
