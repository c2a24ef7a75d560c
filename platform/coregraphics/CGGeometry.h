#pragma once
// Points, sizes, rectangles and affine transforms, as CoreGraphics defines them. A CGRect may have
// a negative size; the Get functions read it standardised, as the platform's do.
#include <cmath>

namespace platform {

using CGFloat = double;

struct CGPoint {
    CGFloat x = 0;
    CGFloat y = 0;
};

struct CGSize {
    CGFloat width = 0;
    CGFloat height = 0;
};

struct CGRect {
    CGPoint origin;
    CGSize size;
};

// [a b 0; c d 0; tx ty 1]: x' = a x + c y + tx, y' = b x + d y + ty.
struct CGAffineTransform {
    CGFloat a = 1, b = 0, c = 0, d = 1, tx = 0, ty = 0;
};

inline constexpr CGPoint CGPointZero{};
inline constexpr CGRect CGRectZero{};
inline constexpr CGAffineTransform CGAffineTransformIdentity{};

inline CGPoint CGPointMake(CGFloat x, CGFloat y) { return {x, y}; }
inline CGSize CGSizeMake(CGFloat w, CGFloat h) { return {w, h}; }
inline CGRect CGRectMake(CGFloat x, CGFloat y, CGFloat w, CGFloat h) { return {{x, y}, {w, h}}; }

CGRect CGRectStandardize(CGRect rect);
inline CGFloat CGRectGetMinX(CGRect r) { return CGRectStandardize(r).origin.x; }
inline CGFloat CGRectGetMinY(CGRect r) { return CGRectStandardize(r).origin.y; }
inline CGFloat CGRectGetMaxX(CGRect r) { r = CGRectStandardize(r); return r.origin.x + r.size.width; }
inline CGFloat CGRectGetMaxY(CGRect r) { r = CGRectStandardize(r); return r.origin.y + r.size.height; }
inline CGFloat CGRectGetMidX(CGRect r) { r = CGRectStandardize(r); return r.origin.x + r.size.width / 2; }
inline CGFloat CGRectGetMidY(CGRect r) { r = CGRectStandardize(r); return r.origin.y + r.size.height / 2; }
inline CGFloat CGRectGetWidth(CGRect r) { return std::fabs(r.size.width); }
inline CGFloat CGRectGetHeight(CGRect r) { return std::fabs(r.size.height); }
bool CGRectIsEmpty(CGRect rect);
bool CGRectIsNull(CGRect rect);
bool CGRectEqualToRect(CGRect a, CGRect b);
// Shrinks by dx on the left and right and dy at top and bottom; CGRectNull if nothing is left.
CGRect CGRectInset(CGRect rect, CGFloat dx, CGFloat dy);
CGRect CGRectOffset(CGRect rect, CGFloat dx, CGFloat dy);
CGRect CGRectIntersection(CGRect a, CGRect b);
CGRect CGRectUnion(CGRect a, CGRect b);
bool CGRectContainsPoint(CGRect rect, CGPoint point);
bool CGRectIntersectsRect(CGRect a, CGRect b);
bool CGSizeEqualToSize(CGSize a, CGSize b);
bool CGPointEqualToPoint(CGPoint a, CGPoint b);
extern const CGRect CGRectNull;

CGAffineTransform CGAffineTransformMake(CGFloat a, CGFloat b, CGFloat c, CGFloat d, CGFloat tx, CGFloat ty);
CGAffineTransform CGAffineTransformMakeTranslation(CGFloat tx, CGFloat ty);
CGAffineTransform CGAffineTransformMakeScale(CGFloat sx, CGFloat sy);
CGAffineTransform CGAffineTransformMakeRotation(CGFloat angle);
// t1 then t2.
CGAffineTransform CGAffineTransformConcat(CGAffineTransform t1, CGAffineTransform t2);
CGAffineTransform CGAffineTransformInvert(CGAffineTransform t);
bool CGAffineTransformIsIdentity(CGAffineTransform t);
bool CGAffineTransformEqualToTransform(CGAffineTransform t1, CGAffineTransform t2);
CGPoint CGPointApplyAffineTransform(CGPoint point, CGAffineTransform t);
CGSize CGSizeApplyAffineTransform(CGSize size, CGAffineTransform t);
// The smallest rectangle that holds the transformed corners.
CGRect CGRectApplyAffineTransform(CGRect rect, CGAffineTransform t);

}  // namespace platform
