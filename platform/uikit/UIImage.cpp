#include "platform/uikit/UIImage.h"

#include <cmath>

#include "platform/quartzcore/detail/NinePart.h"
#include "platform/uikit/UIGraphics.h"

namespace platform {

namespace {

// UIKit's context runs y downward and images are stored top row first, while CoreGraphics puts an
// image's first row at the rectangle's maximum y: flip about the rectangle.
void flipAbout(const CGContextRef& c, CGRect rect) {
    CGContextTranslateCTM(c, 0, CGRectGetMinY(rect) + CGRectGetMaxY(rect));
    CGContextScaleCTM(c, 1, -1);
}

void drawUpright(const CGContextRef& c, CGRect rect, const CGImageRef& image) {
    CGContextSaveGState(c);
    flipAbout(c, rect);
    CGContextDrawImage(c, rect, image);
    CGContextRestoreGState(c);
}

// Repeats `image` at `tile` size over `rect`, from its top left.
void drawTiled(const CGContextRef& c, CGRect rect, CGSize tile, const CGImageRef& image) {
    CGContextSaveGState(c);
    CGContextClipToRect(c, rect);
    flipAbout(c, rect);
    CGContextDrawTiledImage(
        c, CGRectMake(rect.origin.x, CGRectGetMaxY(rect) - tile.height, tile.width, tile.height), image);
    CGContextRestoreGState(c);
}

}  // namespace

UIImage::UIImage(CGImageRef image, CGFloat scale, UIImageOrientation orientation)
    : image_(std::move(image)),
      scale_(scale > 0 && std::isfinite(scale) ? scale : 1),
      orientation_(orientation) {}

std::shared_ptr<UIImage> UIImage::imageWithCGImage(CGImageRef image, CGFloat scale,
                                                   UIImageOrientation orientation) {
    if (!image) return nullptr;
    return std::make_shared<UIImage>(std::move(image), scale, orientation);
}

std::shared_ptr<UIImage> UIImage::imageWithData(const std::shared_ptr<NSData>& data, CGFloat scale) {
    if (!data) return nullptr;
    CGImageRef image = CGImageCreateWithPNGDataProvider(CGDataProviderCreateWithCFData(data), nullptr, false,
                                                        kCGRenderingIntentDefault);
    return imageWithCGImage(std::move(image), scale);
}

CGSize UIImage::size() const {
    if (!image_) return {0, 0};
    return {static_cast<CGFloat>(CGImageGetWidth(image_)) / scale_,
            static_cast<CGFloat>(CGImageGetHeight(image_)) / scale_};
}

std::shared_ptr<UIImage> UIImage::resizableImageWithCapInsets(UIEdgeInsets insets,
                                                              UIImageResizingMode mode) const {
    auto copy = std::make_shared<UIImage>(image_, scale_, orientation_);
    const auto clamp = [](CGFloat v) { return v > 0 && std::isfinite(v) ? v : 0; };
    copy->capInsets_ = {clamp(insets.top), clamp(insets.left), clamp(insets.bottom), clamp(insets.right)};
    copy->resizingMode_ = mode;
    copy->resizable_ = true;
    return copy;
}

void UIImage::drawInRect(CGRect rect) const {
    const CGContextRef context = UIGraphicsGetCurrentContext();
    if (!context || !image_) return;
    rect = CGRectStandardize(rect);
    if (!(rect.size.width > 0 && rect.size.height > 0)) return;
    const double width = static_cast<double>(CGImageGetWidth(image_));
    const double height = static_cast<double>(CGImageGetHeight(image_));
    if (width <= 0 || height <= 0) return;
    if (!resizable_) {
        drawUpright(context, rect, image_);
        return;
    }
    const bool tile = resizingMode_ == UIImageResizingMode::UIImageResizingModeTile;
    const auto pixels = [this](CGFloat points) { return std::round(points * scale_); };
    const auto columns = detail::ninePartSpans(width, pixels(capInsets_.left), pixels(capInsets_.right),
                                               1 / scale_, rect.origin.x, rect.size.width);
    const auto rows = detail::ninePartSpans(height, pixels(capInsets_.top), pixels(capInsets_.bottom),
                                            1 / scale_, rect.origin.y, rect.size.height);
    for (const auto& row : rows) {
        for (const auto& column : columns) {
            if (row.srcLength <= 0 || column.srcLength <= 0 || row.dstLength <= 0 || column.dstLength <= 0)
                continue;
            const CGRect cell = CGRectMake(column.dstStart, row.dstStart, column.dstLength, row.dstLength);
            if (tile && (column.middle || row.middle)) {
                const CGImageRef part = CGImageCreateWithImageInRect(
                    image_, CGRectMake(column.srcStart, row.srcStart, column.srcLength, row.srcLength));
                if (!part) continue;
                // Tiles keep the image's scale along the axes they repeat on.
                drawTiled(context, cell,
                          CGSizeMake(column.middle ? column.srcLength / scale_ : cell.size.width,
                                     row.middle ? row.srcLength / scale_ : cell.size.height),
                          part);
            } else {
                // The whole image, placed so that this part of it fills the cell, seen through the
                // cell: no copy of the pixels, and a PDF keeps one image for all nine parts.
                const double sx = cell.size.width / column.srcLength, sy = cell.size.height / row.srcLength;
                CGContextSaveGState(context);
                CGContextClipToRect(context, cell);
                drawUpright(context,
                            CGRectMake(cell.origin.x - column.srcStart * sx, cell.origin.y - row.srcStart * sy,
                                       width * sx, height * sy),
                            image_);
                CGContextRestoreGState(context);
            }
        }
    }
}

}  // namespace platform
