#pragma once
// Immutable bitmap images. Made from a bitmap context (CGBitmapContextCreateImage), or from PNG
// bytes through a data provider. Any thread; an image never changes after it is made.
#include <cstddef>
#include <cstdint>
#include <memory>

#include "platform/coregraphics/CGColorSpace.h"
#include "platform/coregraphics/CGGeometry.h"
#include "platform/foundation/NSData.h"

typedef struct _cairo_surface cairo_surface_t;

namespace platform {

// The alpha part of a CGBitmapInfo.
enum CGImageAlphaInfo : uint32_t {
    kCGImageAlphaNone = 0,
    kCGImageAlphaPremultipliedLast = 1,
    kCGImageAlphaPremultipliedFirst = 2,
    kCGImageAlphaLast = 3,
    kCGImageAlphaFirst = 4,
    kCGImageAlphaNoneSkipLast = 5,
    kCGImageAlphaNoneSkipFirst = 6,
    kCGImageAlphaOnly = 7,
};
using CGBitmapInfo = uint32_t;
inline constexpr CGBitmapInfo kCGBitmapAlphaInfoMask = 0x1F;
inline constexpr CGBitmapInfo kCGBitmapByteOrderMask = 0x7000;
inline constexpr CGBitmapInfo kCGBitmapByteOrderDefault = 0;
inline constexpr CGBitmapInfo kCGBitmapByteOrder32Little = 2 << 12;

enum CGColorRenderingIntent { kCGRenderingIntentDefault = 0 };

// Bytes an image is decoded from.
class CGDataProvider : public CFType {
public:
    explicit CGDataProvider(std::shared_ptr<NSData> data) : data_(std::move(data)) {}
    CFTypeID typeID() const override;
    const std::shared_ptr<NSData>& data() const { return data_; }

private:
    const std::shared_ptr<NSData> data_;
};
using CGDataProviderRef = std::shared_ptr<CGDataProvider>;
CGDataProviderRef CGDataProviderCreateWithCFData(std::shared_ptr<NSData> data);

class CGImage : public CFType {
public:
    // Stand-in only: takes one reference to `surface` (an A8, RGB24 or ARGB32 cairo image surface
    // that nothing draws into any more).
    explicit CGImage(cairo_surface_t* surface);
    ~CGImage() override;
    CFTypeID typeID() const override;

    std::size_t width() const { return width_; }
    std::size_t height() const { return height_; }
    CGImageAlphaInfo alphaInfo() const { return alphaInfo_; }
    // nullptr for an alpha-only image (a mask).
    const CGColorSpaceRef& colorSpace() const { return space_; }
    // Stand-in only: the pixels, for drawing. Borrowed; lives as long as the image.
    cairo_surface_t* surface() const { return surface_; }

private:
    cairo_surface_t* const surface_;
    std::size_t width_ = 0;
    std::size_t height_ = 0;
    CGImageAlphaInfo alphaInfo_ = kCGImageAlphaNone;
    CGColorSpaceRef space_;
};
using CGImageRef = std::shared_ptr<CGImage>;

CFTypeID CGImageGetTypeID();
std::size_t CGImageGetWidth(const CGImageRef& image);
std::size_t CGImageGetHeight(const CGImageRef& image);
CGImageAlphaInfo CGImageGetAlphaInfo(const CGImageRef& image);
CGColorSpaceRef CGImageGetColorSpace(const CGImageRef& image);
// nullptr if the bytes are no PNG image.
CGImageRef CGImageCreateWithPNGDataProvider(const CGDataProviderRef& source, const CGFloat* decode,
                                            bool shouldInterpolate, CGColorRenderingIntent intent);
// The part of `image` inside `rect` (pixels), or nullptr if they don't meet.
CGImageRef CGImageCreateWithImageInRect(const CGImageRef& image, CGRect rect);

}  // namespace platform
