#include "platform/quartzcore/CALayer.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "platform/quartzcore/detail/NinePart.h"

namespace platform {

namespace {

// Larger masks are drawn coarser rather than allocated whole.
constexpr double kMaxMaskPixels = 4096;

bool isUnitRect(CGRect r) {
    return r.origin.x == 0 && r.origin.y == 0 && r.size.width == 1 && r.size.height == 1;
}

CGPathRef roundedRectPath(CGRect rect, CGFloat radius) {
    if (radius > 0) return CGPathCreateWithRoundedRect(rect, radius, radius, nullptr);
    return CGPathCreateWithRect(rect, nullptr);
}

// Layer contents are stored top row first and shown that way in the layer's y-down geometry,
// while CGContextDrawImage puts the first row at the rectangle's maximum y: flip about the rect.
void drawImageUpright(const CGContextRef& c, CGRect rect, const CGImageRef& image) {
    if (!image || rect.size.width <= 0 || rect.size.height <= 0) return;
    CGContextSaveGState(c);
    CGContextTranslateCTM(c, 0, CGRectGetMinY(rect) + CGRectGetMaxY(rect));
    CGContextScaleCTM(c, 1, -1);
    CGContextDrawImage(c, rect, image);
    CGContextRestoreGState(c);
}

// Where the contents go in `bounds` for a gravity, the image being `size` points.
CGRect gravityRect(CGRect bounds, CGSize size, const std::string& gravity) {
    const CGFloat bw = bounds.size.width, bh = bounds.size.height;
    if (gravity == kCAGravityResize || size.width <= 0 || size.height <= 0) return bounds;
    CGSize placed = size;
    if (gravity == kCAGravityResizeAspect || gravity == kCAGravityResizeAspectFill) {
        const CGFloat sx = bw / size.width, sy = bh / size.height;
        const CGFloat s = gravity == kCAGravityResizeAspect ? std::min(sx, sy) : std::max(sx, sy);
        placed = {size.width * s, size.height * s};
    }
    // Unknown gravities centre, as the platform does.
    CGFloat x = bounds.origin.x + (bw - placed.width) / 2;
    CGFloat y = bounds.origin.y + (bh - placed.height) / 2;
    if (gravity == kCAGravityLeft || gravity == kCAGravityTopLeft || gravity == kCAGravityBottomLeft) {
        x = bounds.origin.x;
    } else if (gravity == kCAGravityRight || gravity == kCAGravityTopRight ||
               gravity == kCAGravityBottomRight) {
        x = bounds.origin.x + bw - placed.width;
    }
    if (gravity == kCAGravityTop || gravity == kCAGravityTopLeft || gravity == kCAGravityTopRight) {
        y = bounds.origin.y;
    } else if (gravity == kCAGravityBottom || gravity == kCAGravityBottomLeft ||
               gravity == kCAGravityBottomRight) {
        y = bounds.origin.y + bh - placed.height;
    }
    return {{x, y}, placed};
}

void placeAndRender(const CGContextRef& c, CALayer& layer) {
    const CGRect b = CGRectStandardize(layer.bounds());
    const CGPoint position = layer.position();
    const CGPoint anchor = layer.anchorPoint();
    CGContextSaveGState(c);
    CGContextTranslateCTM(c, position.x, position.y);
    if (!CGAffineTransformIsIdentity(layer.affineTransform())) CGContextConcatCTM(c, layer.affineTransform());
    CGContextTranslateCTM(c, -anchor.x * b.size.width, -anchor.y * b.size.height);
    layer.renderInContext(c);
    CGContextRestoreGState(c);
}

void drawContents(const CALayer& layer, const CGContextRef& c, CGRect b) {
    const auto image = objc_cast<CGImage>(layer.contents());
    if (!image) return;
    const double width = static_cast<double>(CGImageGetWidth(image));
    const double height = static_cast<double>(CGImageGetHeight(image));
    const CGFloat scale = layer.contentsScale() > 0 ? layer.contentsScale() : 1;
    const CGRect dst = gravityRect(b, {width / scale, height / scale}, layer.contentsGravity());
    const CGRect center = CGRectStandardize(layer.contentsCenter());
    if (isUnitRect(center) || layer.contentsGravity() != kCAGravityResize) {
        drawImageUpright(c, dst, image);
        return;
    }
    // The unit rectangle counts from the image's top left, as the layer's geometry does.
    const double left = std::round(std::clamp(center.origin.x, 0.0, 1.0) * width);
    const double right = std::round(std::clamp(1 - CGRectGetMaxX(center), 0.0, 1.0) * width);
    const double top = std::round(std::clamp(center.origin.y, 0.0, 1.0) * height);
    const double bottom = std::round(std::clamp(1 - CGRectGetMaxY(center), 0.0, 1.0) * height);
    const auto columns = detail::ninePartSpans(width, left, right, 1 / scale, dst.origin.x, dst.size.width);
    const auto rows = detail::ninePartSpans(height, top, bottom, 1 / scale, dst.origin.y, dst.size.height);
    for (const auto& row : rows) {
        for (const auto& column : columns) {
            if (row.srcLength <= 0 || column.srcLength <= 0 || row.dstLength <= 0 || column.dstLength <= 0)
                continue;
            const CGImageRef part = CGImageCreateWithImageInRect(
                image, CGRectMake(column.srcStart, row.srcStart, column.srcLength, row.srcLength));
            drawImageUpright(c, CGRectMake(column.dstStart, row.dstStart, column.dstLength, row.dstLength),
                             part);
        }
    }
}

bool clipToMaskLayer(const CALayer& layer, const CGContextRef& c) {
    const auto& mask = layer.mask();
    const CGRect area = CGRectStandardize(mask->frame());
    const CGFloat w = area.size.width, h = area.size.height;
    if (!(w > 0 && h > 0) || !std::isfinite(w) || !std::isfinite(h)) return false;
    // At least as many mask pixels per unit as the destination has, and two per point for pages
    // that are viewed enlarged, so the edge stays sharp.
    const CGAffineTransform ctm = CGContextGetCTM(c);
    double density = std::sqrt(std::fabs(ctm.a * ctm.d - ctm.b * ctm.c));
    if (!std::isfinite(density)) density = 2;
    density = std::clamp(density, 2.0, 4.0);
    density = std::min({density, kMaxMaskPixels / w, kMaxMaskPixels / h});
    const auto pw = static_cast<std::size_t>(std::max(1.0, std::ceil(w * density)));
    const auto ph = static_cast<std::size_t>(std::max(1.0, std::ceil(h * density)));
    const CGContextRef bitmap =
        CGBitmapContextCreate(nullptr, pw, ph, 8, 0, CGColorSpaceRef(), kCGImageAlphaOnly);
    if (!bitmap) return false;
    // The bitmap's rows map back to `area` exactly as CGContextClipToMask places them, so no flip.
    CGContextScaleCTM(bitmap, static_cast<double>(pw) / w, static_cast<double>(ph) / h);
    CGContextTranslateCTM(bitmap, -area.origin.x, -area.origin.y);
    placeAndRender(bitmap, *mask);
    const CGImageRef image = CGBitmapContextCreateImage(bitmap);
    if (!image) return false;
    CGContextClipToMask(c, area, image);
    return true;
}

}  // namespace

CGRect CALayer::frame() const {
    const CGRect b = CGRectStandardize(bounds_);
    const CGRect local{{-anchorPoint_.x * b.size.width, -anchorPoint_.y * b.size.height}, b.size};
    const CGRect placed =
        CGAffineTransformIsIdentity(transform_) ? local : CGRectApplyAffineTransform(local, transform_);
    return CGRectOffset(placed, position_.x, position_.y);
}

void CALayer::setFrame(CGRect frame) {
    frame = CGRectStandardize(frame);
    bounds_.size = frame.size;
    position_ = {frame.origin.x + anchorPoint_.x * frame.size.width,
                 frame.origin.y + anchorPoint_.y * frame.size.height};
}

void CALayer::addSublayer(const std::shared_ptr<CALayer>& layer) {
    insertSublayer(layer, std::numeric_limits<std::size_t>::max());
}

void CALayer::insertSublayer(const std::shared_ptr<CALayer>& layer, std::size_t index) {
    if (!layer) return;
    // A layer can't hold itself or one of its ancestors.
    for (const CALayer* up = this; up != nullptr;) {
        if (up == layer.get()) return;
        auto next = up->superlayer_.lock();
        up = next.get();
    }
    const auto self = std::static_pointer_cast<CALayer>(weak_from_this().lock());
    const std::shared_ptr<CALayer> keep = layer;  // the old superlayer may hold the last reference
    keep->removeFromSuperlayer();
    index = std::min(index, sublayers_.size());
    sublayers_.insert(sublayers_.begin() + static_cast<std::ptrdiff_t>(index), keep);
    keep->superlayer_ = self;
}

void CALayer::removeFromSuperlayer() {
    const auto parent = superlayer_.lock();
    superlayer_.reset();
    if (!parent) return;
    auto& siblings = parent->sublayers_;
    const auto it =
        std::find_if(siblings.begin(), siblings.end(), [this](const auto& l) { return l.get() == this; });
    if (it == siblings.end()) return;
    const std::shared_ptr<CALayer> keep = *it;  // this may be the last reference
    siblings.erase(it);
}

void CALayer::drawInContext(const CGContextRef& context) {
    const id owner = delegate();
    if (auto* drawer = dynamic_cast<CALayerDelegate*>(owner.get()))
        drawer->drawLayer_inContext(*this, context);
}

void CALayer::renderInContext(const CGContextRef& c) {
    if (!c || hidden_ || !(opacity_ > 0)) return;
    const CGRect b = CGRectStandardize(bounds_);
    CGContextSaveGState(c);
    CGContextTranslateCTM(c, -b.origin.x, -b.origin.y);
    if (mask_ && !clipToMaskLayer(*this, c)) {
        CGContextRestoreGState(c);  // an empty mask shows nothing
        return;
    }
    // Opacity applies to the layer and its sublayers together, not to each part.
    const bool group = opacity_ < 1;
    if (group) {
        CGContextSetAlpha(c, opacity_);
        CGContextBeginTransparencyLayer(c, nullptr);
    }

    const CGPathRef shape = roundedRectPath(b, cornerRadius_);
    if (backgroundColor_) {
        CGContextBeginPath(c);
        CGContextAddPath(c, shape);
        CGContextSetFillColorWithColor(c, backgroundColor_);
        CGContextFillPath(c);
    }

    CGContextSaveGState(c);
    if (masksToBounds_) {
        CGContextBeginPath(c);
        CGContextAddPath(c, shape);
        CGContextClip(c);
    }
    drawContents(*this, c, b);
    CGContextSaveGState(c);
    drawInContext(c);
    CGContextRestoreGState(c);
    std::vector<std::shared_ptr<CALayer>> ordered = sublayers_;
    std::stable_sort(ordered.begin(), ordered.end(),
                     [](const auto& l, const auto& r) { return l->zPosition_ < r->zPosition_; });
    for (const auto& sublayer : ordered) placeAndRender(c, *sublayer);
    CGContextRestoreGState(c);

    if (borderColor_ && borderWidth_ > 0) {
        const CGFloat half = borderWidth_ / 2;
        const CGRect inner = CGRectInset(b, half, half);
        if (!CGRectIsNull(inner)) {
            CGContextBeginPath(c);
            CGContextAddPath(c, roundedRectPath(inner, std::max<CGFloat>(0, cornerRadius_ - half)));
            CGContextSetStrokeColorWithColor(c, borderColor_);
            CGContextSetLineWidth(c, borderWidth_);
            CGContextStrokePath(c);
        }
    }

    if (group) CGContextEndTransparencyLayer(c);
    CGContextRestoreGState(c);
}

}  // namespace platform
