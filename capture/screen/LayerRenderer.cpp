#include "capture/screen/LayerRenderer.h"

#include <cmath>
#include <cstddef>

#include "capture/screen/RecursiveViewProcessor.h"
#include "platform/coregraphics/CFType.h"
#include "platform/coregraphics/CGColorSpace.h"
#include "platform/uikit/UIBezierPath.h"
#include "platform/uikit/UIScrollView.h"

namespace quillmere {

namespace {

// A bitmap dimension from a length in points, truncated toward zero. Lengths that no bitmap can
// have (negative, NaN, beyond 64 bits) give 0, for which no bitmap is made.
std::size_t pixelCount(platform::CGFloat points) {
    if (!(points >= 0 && points < 9223372036854775807.0)) return 0;
    return static_cast<std::size_t>(points);
}

void clipToPath(const platform::CGContextRef& context, const platform::UIBezierPath& path) {
    platform::CGContextAddPath(context, path.CGPath());
    platform::CGContextClip(context);  // the non-zero winding rule
}

}  // namespace

void LayerRenderer::drawLayer(platform::CALayer& layer, const platform::CGContextRef& context) const {
    using namespace platform;
    CGContextSaveGState(context);

    // The frame is read against the parent's coordinates, which the CTM carries down the walk.
    const CGRect frame = layer.frame();
    CGContextTranslateCTM(context, CGRectGetMinX(frame), CGRectGetMinY(frame));
    // A scroll view's bounds start at its offset, so shifting back puts the clip below on the frame
    // while the sublayers, placed in bounds coordinates, come out scrolled.
    if (const auto scrollView = objc_cast<UIScrollView>(layer.delegate())) {
        const CGPoint offset = scrollView->contentOffset();
        CGContextTranslateCTM(context, -offset.x, -offset.y);
    }
    // About the frame's origin: the anchor point is not taken into account.
    CGContextConcatCTM(context, layer.affineTransform());

    // Every layer cuts what it contains to its bounds (or its mask), whatever masksToBounds says.
    const CGRect bounds = layer.bounds();
    if (const auto mask = makeMaskImage(layer)) {
        CGContextClipToMask(context, bounds, mask);
    } else {
        CGContextClipToRect(context, bounds);
    }

    // Built only for the layers that have corners: most have none, and this runs on the main
    // thread for every layer of every capture.
    const bool rounded = layer.cornerRadius() > 0;
    const auto backgroundPath =
        rounded ? UIBezierPath::bezierPathWithRoundedRect(bounds, layer.cornerRadius()) : nullptr;
    if (rounded) {
        CGContextSaveGState(context);
        clipToPath(context, *backgroundPath);
    }
    if (const auto background = layer.backgroundColor()) {
        CGContextSetFillColorWithColor(context, background);
        CGContextFillRect(context, bounds);
    }

    // masksToBounds decides only whether the rounded corners cut the content; background and
    // border keep to the rounded shape either way.
    if (layer.masksToBounds()) {
        drawLayerContent(layer, context);
    } else {
        if (rounded) CGContextRestoreGState(context);
        drawLayerContent(layer, context);
        if (rounded) {
            CGContextSaveGState(context);
            clipToPath(context, *backgroundPath);
        }
    }

    if (const auto borderColor = layer.borderColor(); borderColor && layer.borderWidth() > 0) {
        // Inset by half the width, so the whole stroke falls inside the bounds.
        const CGFloat halfBorder = layer.borderWidth() / 2;
        const auto borderPath = UIBezierPath::bezierPathWithRoundedRect(
            CGRectInset(bounds, halfBorder, halfBorder), layer.cornerRadius());
        CGContextAddPath(context, borderPath->CGPath());
        CGContextSetStrokeColorWithColor(context, borderColor);
        CGContextSetLineWidth(context, layer.borderWidth());
        CGContextStrokePath(context);
    }

    if (rounded) CGContextRestoreGState(context);
    CGContextRestoreGState(context);
}

void LayerRenderer::drawLayerContent(platform::CALayer& layer, const platform::CGContextRef& context) const {
    drawContentsImage(layer, context);
    // Views that draw themselves, text among them, reach the page as vector drawing this way.
    layer.drawInContext(context);
    processor_.drawSublayers(layer, context);
}

void LayerRenderer::drawContentsImage(const platform::CALayer& layer, const platform::CGContextRef& context) {
    using namespace platform;
    const id contents = layer.contents();
    if (!contents || CFGetTypeID(contents) != CGImageGetTypeID()) return;
    const auto image = objc_cast<CGImage>(contents);
    if (!image) return;

    CGContextSaveGState(context);
    // The frame's size, not the bounds': for a transformed layer the image fills the box the layer
    // occupies. Gravity places nothing; the image is always stretched over the whole rectangle.
    const CGRect frame = layer.frame();
    const CGRect target = CGRectMake(0, 0, CGRectGetWidth(frame), CGRectGetHeight(frame));
    if (const auto resizable = makeResizableImage(image, layer)) {
        // UIKit drawing goes to the current context, which during the capture is this page, and
        // already draws upright.
        resizable->drawInRect(target);
    } else {
        // An image draws with y upward and the page runs downward.
        CGContextTranslateCTM(context, 0, CGRectGetHeight(frame));
        CGContextScaleCTM(context, 1.0, -1.0);
        CGContextDrawImage(context, target, image);
    }
    CGContextRestoreGState(context);
}

std::shared_ptr<platform::UIImage> LayerRenderer::makeResizableImage(const platform::CGImageRef& image,
                                                                     const platform::CALayer& layer) {
    using namespace platform;
    if (layer.contentsGravity() != kCAGravityResize) return nullptr;
    const CGRect center = layer.contentsCenter();
    if (CGRectEqualToRect(center, CGRectMake(0, 0, 1, 1))) return nullptr;

    const auto whole =
        std::make_shared<UIImage>(image, layer.contentsScale(), UIImageOrientation::UIImageOrientationUp);
    const CGSize size = whole->size();
    // Whole points; top and left are rounded before the far sides are worked out from them.
    const CGFloat top = std::floor(size.height * CGRectGetMinY(center));
    const CGFloat left = std::floor(size.width * CGRectGetMinX(center));
    const CGFloat bottom = std::floor(size.height - size.height * CGRectGetHeight(center) - top);
    const CGFloat right = std::floor(size.width - size.width * CGRectGetWidth(center) - left);
    return whole->resizableImageWithCapInsets(UIEdgeInsetsMake(top, left, bottom, right),
                                              UIImageResizingMode::UIImageResizingModeStretch);
}

platform::CGImageRef LayerRenderer::makeMaskImage(const platform::CALayer& layer) {
    using namespace platform;
    const auto mask = layer.mask();
    if (!mask) return nullptr;
    const CGRect bounds = layer.bounds();
    // Alpha only: the mask's coverage is all that decides what shows.
    const auto bitmap = CGBitmapContextCreate(nullptr, pixelCount(CGRectGetWidth(bounds)),
                                              pixelCount(CGRectGetHeight(bounds)), 8, 0,
                                              CGColorSpaceCreateDeviceGray(), kCGImageAlphaOnly);
    if (!bitmap) return nullptr;
    // The bitmap runs y upward and clipping to an image flips it back, so no flip is needed here.
    mask->renderInContext(bitmap);
    return CGBitmapContextCreateImage(bitmap);
}

}  // namespace quillmere
