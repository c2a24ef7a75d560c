#include "platform/coregraphics/CGGeometry.h"

#include <algorithm>
#include <limits>

namespace platform {

const CGRect CGRectNull{{std::numeric_limits<CGFloat>::infinity(), std::numeric_limits<CGFloat>::infinity()}, {0, 0}};

CGRect CGRectStandardize(CGRect r) {
    if (r.size.width < 0) {
        r.origin.x += r.size.width;
        r.size.width = -r.size.width;
    }
    if (r.size.height < 0) {
        r.origin.y += r.size.height;
        r.size.height = -r.size.height;
    }
    return r;
}

bool CGRectIsNull(CGRect r) { return std::isinf(r.origin.x) || std::isinf(r.origin.y); }

bool CGRectIsEmpty(CGRect r) { return CGRectIsNull(r) || r.size.width == 0 || r.size.height == 0; }

bool CGRectEqualToRect(CGRect a, CGRect b) {
    if (CGRectIsNull(a) || CGRectIsNull(b)) return CGRectIsNull(a) && CGRectIsNull(b);
    a = CGRectStandardize(a);
    b = CGRectStandardize(b);
    return a.origin.x == b.origin.x && a.origin.y == b.origin.y && a.size.width == b.size.width &&
           a.size.height == b.size.height;
}

CGRect CGRectInset(CGRect r, CGFloat dx, CGFloat dy) {
    if (CGRectIsNull(r)) return CGRectNull;
    r = CGRectStandardize(r);
    r.origin.x += dx;
    r.origin.y += dy;
    r.size.width -= 2 * dx;
    r.size.height -= 2 * dy;
    if (r.size.width < 0 || r.size.height < 0) return CGRectNull;
    return r;
}

CGRect CGRectOffset(CGRect r, CGFloat dx, CGFloat dy) {
    if (CGRectIsNull(r)) return CGRectNull;
    r = CGRectStandardize(r);
    r.origin.x += dx;
    r.origin.y += dy;
    return r;
}

CGRect CGRectIntersection(CGRect a, CGRect b) {
    if (CGRectIsNull(a) || CGRectIsNull(b)) return CGRectNull;
    a = CGRectStandardize(a);
    b = CGRectStandardize(b);
    CGFloat x0 = std::max(a.origin.x, b.origin.x);
    CGFloat y0 = std::max(a.origin.y, b.origin.y);
    CGFloat x1 = std::min(CGRectGetMaxX(a), CGRectGetMaxX(b));
    CGFloat y1 = std::min(CGRectGetMaxY(a), CGRectGetMaxY(b));
    if (x1 < x0 || y1 < y0) return CGRectNull;
    return CGRectMake(x0, y0, x1 - x0, y1 - y0);
}

CGRect CGRectUnion(CGRect a, CGRect b) {
    if (CGRectIsNull(a)) return CGRectStandardize(b);
    if (CGRectIsNull(b)) return CGRectStandardize(a);
    a = CGRectStandardize(a);
    b = CGRectStandardize(b);
    CGFloat x0 = std::min(a.origin.x, b.origin.x);
    CGFloat y0 = std::min(a.origin.y, b.origin.y);
    CGFloat x1 = std::max(CGRectGetMaxX(a), CGRectGetMaxX(b));
    CGFloat y1 = std::max(CGRectGetMaxY(a), CGRectGetMaxY(b));
    return CGRectMake(x0, y0, x1 - x0, y1 - y0);
}

bool CGRectContainsPoint(CGRect r, CGPoint p) {
    if (CGRectIsNull(r)) return false;
    r = CGRectStandardize(r);
    return p.x >= r.origin.x && p.x < CGRectGetMaxX(r) && p.y >= r.origin.y && p.y < CGRectGetMaxY(r);
}

bool CGRectIntersectsRect(CGRect a, CGRect b) { return !CGRectIsEmpty(CGRectIntersection(a, b)); }

bool CGSizeEqualToSize(CGSize a, CGSize b) { return a.width == b.width && a.height == b.height; }

bool CGPointEqualToPoint(CGPoint a, CGPoint b) { return a.x == b.x && a.y == b.y; }

CGAffineTransform CGAffineTransformMake(CGFloat a, CGFloat b, CGFloat c, CGFloat d, CGFloat tx, CGFloat ty) {
    return {a, b, c, d, tx, ty};
}

CGAffineTransform CGAffineTransformMakeTranslation(CGFloat tx, CGFloat ty) { return {1, 0, 0, 1, tx, ty}; }

CGAffineTransform CGAffineTransformMakeScale(CGFloat sx, CGFloat sy) { return {sx, 0, 0, sy, 0, 0}; }

CGAffineTransform CGAffineTransformMakeRotation(CGFloat angle) {
    CGFloat c = std::cos(angle), s = std::sin(angle);
    return {c, s, -s, c, 0, 0};
}

CGAffineTransform CGAffineTransformConcat(CGAffineTransform t1, CGAffineTransform t2) {
    return {t1.a * t2.a + t1.b * t2.c,
            t1.a * t2.b + t1.b * t2.d,
            t1.c * t2.a + t1.d * t2.c,
            t1.c * t2.b + t1.d * t2.d,
            t1.tx * t2.a + t1.ty * t2.c + t2.tx,
            t1.tx * t2.b + t1.ty * t2.d + t2.ty};
}

CGAffineTransform CGAffineTransformInvert(CGAffineTransform t) {
    CGFloat det = t.a * t.d - t.b * t.c;
    if (det == 0) return t;  // as the platform: a singular transform comes back unchanged
    return {t.d / det,
            -t.b / det,
            -t.c / det,
            t.a / det,
            (t.c * t.ty - t.d * t.tx) / det,
            (t.b * t.tx - t.a * t.ty) / det};
}

bool CGAffineTransformIsIdentity(CGAffineTransform t) {
    return CGAffineTransformEqualToTransform(t, CGAffineTransformIdentity);
}

bool CGAffineTransformEqualToTransform(CGAffineTransform x, CGAffineTransform y) {
    return x.a == y.a && x.b == y.b && x.c == y.c && x.d == y.d && x.tx == y.tx && x.ty == y.ty;
}

CGPoint CGPointApplyAffineTransform(CGPoint p, CGAffineTransform t) {
    return {t.a * p.x + t.c * p.y + t.tx, t.b * p.x + t.d * p.y + t.ty};
}

CGSize CGSizeApplyAffineTransform(CGSize s, CGAffineTransform t) {
    return {t.a * s.width + t.c * s.height, t.b * s.width + t.d * s.height};
}

CGRect CGRectApplyAffineTransform(CGRect r, CGAffineTransform t) {
    if (CGRectIsNull(r)) return CGRectNull;
    r = CGRectStandardize(r);
    CGPoint corners[4] = {r.origin,
                          {CGRectGetMaxX(r), r.origin.y},
                          {r.origin.x, CGRectGetMaxY(r)},
                          {CGRectGetMaxX(r), CGRectGetMaxY(r)}};
    CGFloat x0 = std::numeric_limits<CGFloat>::infinity(), y0 = x0, x1 = -x0, y1 = -x0;
    for (auto& c : corners) {
        CGPoint p = CGPointApplyAffineTransform(c, t);
        x0 = std::min(x0, p.x);
        y0 = std::min(y0, p.y);
        x1 = std::max(x1, p.x);
        y1 = std::max(y1, p.y);
    }
    return CGRectMake(x0, y0, x1 - x0, y1 - y0);
}

}  // namespace platform
