#pragma once
// Immutable and mutable paths of lines and cubic curves. A path is a value once built; a mutable
// path belongs to one thread at a time.
#include <memory>
#include <vector>

#include "platform/coregraphics/CFType.h"
#include "platform/coregraphics/CGGeometry.h"

namespace platform {

enum class CGPathElementType { moveToPoint, addLineToPoint, addCurveToPoint, closeSubpath };

struct CGPathElement {
    CGPathElementType type;
    CGPoint points[3];  // 1 for move and line, 3 for a curve (two controls, then the end), 0 for close
};

class CGPath : public CFType {
public:
    CGPath() = default;
    explicit CGPath(std::vector<CGPathElement> elements) : elements_(std::move(elements)) {}
    CFTypeID typeID() const override;
    const std::vector<CGPathElement>& elements() const { return elements_; }
    // Whether the path may still change (a CGMutablePath).
    virtual bool isMutable() const { return false; }

protected:
    std::vector<CGPathElement> elements_;
};
using CGPathRef = std::shared_ptr<const CGPath>;

class CGMutablePath : public CGPath {
public:
    bool isMutable() const override { return true; }
    void moveTo(CGPoint p, const CGAffineTransform* m = nullptr);
    void addLineTo(CGPoint p, const CGAffineTransform* m = nullptr);
    void addCurveTo(CGPoint c1, CGPoint c2, CGPoint end, const CGAffineTransform* m = nullptr);
    void addRect(CGRect rect, const CGAffineTransform* m = nullptr);
    // A quarter ellipse from the current point's corner, as used for rounded corners.
    void addRoundedRect(CGRect rect, CGFloat cornerWidth, CGFloat cornerHeight, const CGAffineTransform* m = nullptr);
    void addEllipseInRect(CGRect rect, const CGAffineTransform* m = nullptr);
    void closeSubpath();
    bool hasCurrentPoint() const { return hasCurrentPoint_; }
    // An immutable path with the same elements.
    std::shared_ptr<const CGPath> copy() const { return std::make_shared<CGPath>(elements_); }
    // An immutable path that takes the elements; this path is left empty.
    std::shared_ptr<const CGPath> take() {
        hasCurrentPoint_ = false;
        return std::make_shared<CGPath>(std::move(elements_));
    }
    void reserve(std::size_t count) { elements_.reserve(count); }

private:
    bool hasCurrentPoint_ = false;
    CGPoint start_;
};
using CGMutablePathRef = std::shared_ptr<CGMutablePath>;

CFTypeID CGPathGetTypeID();
CGMutablePathRef CGPathCreateMutable();
CGMutablePathRef CGPathCreateMutableCopy(const CGPathRef& path);
CGPathRef CGPathCreateWithRect(CGRect rect, const CGAffineTransform* transform);
CGPathRef CGPathCreateWithEllipseInRect(CGRect rect, const CGAffineTransform* transform);
// Corner sizes are clamped to half the rectangle's width and height.
CGPathRef CGPathCreateWithRoundedRect(CGRect rect, CGFloat cornerWidth, CGFloat cornerHeight,
                                      const CGAffineTransform* transform);
void CGPathMoveToPoint(const CGMutablePathRef& path, const CGAffineTransform* m, CGFloat x, CGFloat y);
void CGPathAddLineToPoint(const CGMutablePathRef& path, const CGAffineTransform* m, CGFloat x, CGFloat y);
void CGPathAddCurveToPoint(const CGMutablePathRef& path, const CGAffineTransform* m, CGFloat cp1x, CGFloat cp1y,
                           CGFloat cp2x, CGFloat cp2y, CGFloat x, CGFloat y);
void CGPathAddRect(const CGMutablePathRef& path, const CGAffineTransform* m, CGRect rect);
void CGPathAddPath(const CGMutablePathRef& path, const CGAffineTransform* m, const CGPathRef& other);
void CGPathCloseSubpath(const CGMutablePathRef& path);
bool CGPathIsEmpty(const CGPathRef& path);
// The box of all points, control points included; CGRectNull for an empty path.
CGRect CGPathGetBoundingBox(const CGPathRef& path);

}  // namespace platform
