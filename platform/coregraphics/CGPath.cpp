#include "platform/coregraphics/CGPath.h"

#include <algorithm>
#include <limits>

namespace platform {

namespace {

// The distance of the control points from a quarter circle's ends, for a unit radius.
constexpr CGFloat kKappa = 0.5522847498307936;

CGPoint apply(CGPoint p, const CGAffineTransform* m) { return m ? CGPointApplyAffineTransform(p, *m) : p; }

}  // namespace

CFTypeID CGPathGetTypeID() { return 44; }
CFTypeID CGPath::typeID() const { return CGPathGetTypeID(); }

void CGMutablePath::moveTo(CGPoint p, const CGAffineTransform* m) {
    p = apply(p, m);
    elements_.push_back({CGPathElementType::moveToPoint, {p}});
    hasCurrentPoint_ = true;
    start_ = p;
}

void CGMutablePath::addLineTo(CGPoint p, const CGAffineTransform* m) {
    if (!hasCurrentPoint_) return moveTo(p, m);
    elements_.push_back({CGPathElementType::addLineToPoint, {apply(p, m)}});
}

void CGMutablePath::addCurveTo(CGPoint c1, CGPoint c2, CGPoint end, const CGAffineTransform* m) {
    if (!hasCurrentPoint_) moveTo(c1, m);
    elements_.push_back({CGPathElementType::addCurveToPoint, {apply(c1, m), apply(c2, m), apply(end, m)}});
}

void CGMutablePath::closeSubpath() {
    if (!hasCurrentPoint_) return;
    elements_.push_back({CGPathElementType::closeSubpath, {}});
    // After a close the current point is the subpath's start, as on the platform.
}

void CGMutablePath::addRect(CGRect r, const CGAffineTransform* m) {
    r = CGRectStandardize(r);
    moveTo(r.origin, m);
    addLineTo({CGRectGetMaxX(r), r.origin.y}, m);
    addLineTo({CGRectGetMaxX(r), CGRectGetMaxY(r)}, m);
    addLineTo({r.origin.x, CGRectGetMaxY(r)}, m);
    closeSubpath();
}

void CGMutablePath::addRoundedRect(CGRect r, CGFloat cw, CGFloat ch, const CGAffineTransform* m) {
    r = CGRectStandardize(r);
    cw = std::clamp(cw, CGFloat(0), r.size.width / 2);
    ch = std::clamp(ch, CGFloat(0), r.size.height / 2);
    if (cw == 0 || ch == 0) return addRect(r, m);
    CGFloat x0 = r.origin.x, y0 = r.origin.y, x1 = CGRectGetMaxX(r), y1 = CGRectGetMaxY(r);
    CGFloat kx = cw * kKappa, ky = ch * kKappa;
    moveTo({x0 + cw, y0}, m);
    addLineTo({x1 - cw, y0}, m);
    addCurveTo({x1 - cw + kx, y0}, {x1, y0 + ch - ky}, {x1, y0 + ch}, m);
    addLineTo({x1, y1 - ch}, m);
    addCurveTo({x1, y1 - ch + ky}, {x1 - cw + kx, y1}, {x1 - cw, y1}, m);
    addLineTo({x0 + cw, y1}, m);
    addCurveTo({x0 + cw - kx, y1}, {x0, y1 - ch + ky}, {x0, y1 - ch}, m);
    addLineTo({x0, y0 + ch}, m);
    addCurveTo({x0, y0 + ch - ky}, {x0 + cw - kx, y0}, {x0 + cw, y0}, m);
    closeSubpath();
}

void CGMutablePath::addEllipseInRect(CGRect r, const CGAffineTransform* m) {
    r = CGRectStandardize(r);
    addRoundedRect(r, r.size.width / 2, r.size.height / 2, m);
}

CGMutablePathRef CGPathCreateMutable() { return std::make_shared<CGMutablePath>(); }

CGMutablePathRef CGPathCreateMutableCopy(const CGPathRef& path) {
    auto copy = CGPathCreateMutable();
    if (path) CGPathAddPath(copy, nullptr, path);
    return copy;
}

CGPathRef CGPathCreateWithRect(CGRect rect, const CGAffineTransform* transform) {
    CGMutablePath path;
    path.reserve(5);
    path.addRect(rect, transform);
    return path.take();
}

CGPathRef CGPathCreateWithEllipseInRect(CGRect rect, const CGAffineTransform* transform) {
    CGMutablePath path;
    path.reserve(10);
    path.addEllipseInRect(rect, transform);
    return path.take();
}

CGPathRef CGPathCreateWithRoundedRect(CGRect rect, CGFloat cornerWidth, CGFloat cornerHeight,
                                      const CGAffineTransform* transform) {
    CGMutablePath path;
    path.reserve(10);
    path.addRoundedRect(rect, cornerWidth, cornerHeight, transform);
    return path.take();
}

void CGPathMoveToPoint(const CGMutablePathRef& path, const CGAffineTransform* m, CGFloat x, CGFloat y) {
    if (path) path->moveTo({x, y}, m);
}

void CGPathAddLineToPoint(const CGMutablePathRef& path, const CGAffineTransform* m, CGFloat x, CGFloat y) {
    if (path) path->addLineTo({x, y}, m);
}

void CGPathAddCurveToPoint(const CGMutablePathRef& path, const CGAffineTransform* m, CGFloat cp1x, CGFloat cp1y,
                           CGFloat cp2x, CGFloat cp2y, CGFloat x, CGFloat y) {
    if (path) path->addCurveTo({cp1x, cp1y}, {cp2x, cp2y}, {x, y}, m);
}

void CGPathAddRect(const CGMutablePathRef& path, const CGAffineTransform* m, CGRect rect) {
    if (path) path->addRect(rect, m);
}

void CGPathAddPath(const CGMutablePathRef& path, const CGAffineTransform* m, const CGPathRef& other) {
    if (!path || !other) return;
    for (const auto& e : other->elements()) {
        switch (e.type) {
            case CGPathElementType::moveToPoint:
                path->moveTo(e.points[0], m);
                break;
            case CGPathElementType::addLineToPoint:
                path->addLineTo(e.points[0], m);
                break;
            case CGPathElementType::addCurveToPoint:
                path->addCurveTo(e.points[0], e.points[1], e.points[2], m);
                break;
            case CGPathElementType::closeSubpath:
                path->closeSubpath();
                break;
        }
    }
}

void CGPathCloseSubpath(const CGMutablePathRef& path) {
    if (path) path->closeSubpath();
}

bool CGPathIsEmpty(const CGPathRef& path) { return !path || path->elements().empty(); }

CGRect CGPathGetBoundingBox(const CGPathRef& path) {
    if (CGPathIsEmpty(path)) return CGRectNull;
    CGFloat x0 = std::numeric_limits<CGFloat>::infinity(), y0 = x0, x1 = -x0, y1 = -x0;
    for (const auto& e : path->elements()) {
        int n = e.type == CGPathElementType::addCurveToPoint ? 3 : e.type == CGPathElementType::closeSubpath ? 0 : 1;
        for (int i = 0; i < n; ++i) {
            x0 = std::min(x0, e.points[i].x);
            y0 = std::min(y0, e.points[i].y);
            x1 = std::max(x1, e.points[i].x);
            y1 = std::max(y1, e.points[i].y);
        }
    }
    return CGRectMake(x0, y0, x1 - x0, y1 - y0);
}

}  // namespace platform
