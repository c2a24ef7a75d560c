#include "platform/uikit/UIBezierPath.h"

#include <algorithm>

#include "platform/uikit/UIGraphics.h"

namespace platform {

std::shared_ptr<UIBezierPath> UIBezierPath::bezierPathWithRect(CGRect rect) {
    return std::make_shared<UIBezierPath>(CGPathCreateWithRect(rect, nullptr));
}

std::shared_ptr<UIBezierPath> UIBezierPath::bezierPathWithOvalInRect(CGRect rect) {
    return std::make_shared<UIBezierPath>(CGPathCreateWithEllipseInRect(rect, nullptr));
}

std::shared_ptr<UIBezierPath> UIBezierPath::bezierPathWithRoundedRect(CGRect rect, CGFloat cornerRadius) {
    const CGFloat radius = std::min({cornerRadius, CGRectGetWidth(rect) / 2, CGRectGetHeight(rect) / 2});
    if (!(radius > 0)) return bezierPathWithRect(rect);
    return std::make_shared<UIBezierPath>(CGPathCreateWithRoundedRect(rect, radius, radius, nullptr));
}

void UIBezierPath::fill() const {
    const CGContextRef context = UIGraphicsGetCurrentContext();
    if (!context || !path_) return;
    CGContextSaveGState(context);
    CGContextBeginPath(context);
    CGContextAddPath(context, path_);
    CGContextFillPath(context);
    CGContextRestoreGState(context);
}

void UIBezierPath::stroke() const {
    const CGContextRef context = UIGraphicsGetCurrentContext();
    if (!context || !path_) return;
    CGContextSaveGState(context);
    CGContextSetLineWidth(context, lineWidth_);
    CGContextBeginPath(context);
    CGContextAddPath(context, path_);
    CGContextStrokePath(context);
    CGContextRestoreGState(context);
}

}  // namespace platform
