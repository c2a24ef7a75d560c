#include "platform/coregraphics/CGImage.h"

#include <cairo.h>

#include <cmath>
#include <cstring>

namespace platform {

CFTypeID CGImageGetTypeID() { return 42; }
CFTypeID CGDataProvider::typeID() const { return 43; }

CGDataProviderRef CGDataProviderCreateWithCFData(std::shared_ptr<NSData> data) {
    if (!data) return nullptr;
    return std::make_shared<CGDataProvider>(std::move(data));
}

CGImage::CGImage(cairo_surface_t* surface) : surface_(surface) {
    cairo_surface_flush(surface_);
    width_ = static_cast<std::size_t>(cairo_image_surface_get_width(surface_));
    height_ = static_cast<std::size_t>(cairo_image_surface_get_height(surface_));
    switch (cairo_image_surface_get_format(surface_)) {
        case CAIRO_FORMAT_A8:
            alphaInfo_ = kCGImageAlphaOnly;
            break;
        case CAIRO_FORMAT_RGB24:
            alphaInfo_ = kCGImageAlphaNoneSkipFirst;
            space_ = CGColorSpaceCreateDeviceRGB();
            break;
        default:
            alphaInfo_ = kCGImageAlphaPremultipliedFirst;
            space_ = CGColorSpaceCreateDeviceRGB();
            break;
    }
}

CGImage::~CGImage() { cairo_surface_destroy(surface_); }

CFTypeID CGImage::typeID() const { return CGImageGetTypeID(); }

std::size_t CGImageGetWidth(const CGImageRef& image) { return image ? image->width() : 0; }
std::size_t CGImageGetHeight(const CGImageRef& image) { return image ? image->height() : 0; }
CGImageAlphaInfo CGImageGetAlphaInfo(const CGImageRef& image) { return image ? image->alphaInfo() : kCGImageAlphaNone; }
CGColorSpaceRef CGImageGetColorSpace(const CGImageRef& image) { return image ? image->colorSpace() : nullptr; }

namespace {

struct PngReader {
    const uint8_t* bytes;
    std::size_t length;
    std::size_t offset = 0;
};

cairo_status_t readPng(void* closure, unsigned char* out, unsigned int length) {
    auto reader = static_cast<PngReader*>(closure);
    if (reader->length - reader->offset < length) return CAIRO_STATUS_READ_ERROR;
    std::memcpy(out, reader->bytes + reader->offset, length);
    reader->offset += length;
    return CAIRO_STATUS_SUCCESS;
}

}  // namespace

CGImageRef CGImageCreateWithPNGDataProvider(const CGDataProviderRef& source, const CGFloat*, bool,
                                            CGColorRenderingIntent) {
    if (!source || !source->data() || source->data()->length() == 0) return nullptr;
    PngReader reader{source->data()->bytes(), source->data()->length()};
    cairo_surface_t* surface = cairo_image_surface_create_from_png_stream(readPng, &reader);
    if (cairo_surface_status(surface) != CAIRO_STATUS_SUCCESS) {
        cairo_surface_destroy(surface);
        return nullptr;
    }
    return std::make_shared<CGImage>(surface);
}

CGImageRef CGImageCreateWithImageInRect(const CGImageRef& image, CGRect rect) {
    if (!image) return nullptr;
    CGRect whole = CGRectMake(0, 0, static_cast<CGFloat>(image->width()), static_cast<CGFloat>(image->height()));
    CGRect part = CGRectIntersection(CGRectStandardize(rect), whole);
    if (CGRectIsEmpty(part)) return nullptr;
    int x = static_cast<int>(std::floor(part.origin.x)), y = static_cast<int>(std::floor(part.origin.y));
    int w = static_cast<int>(std::ceil(CGRectGetMaxX(part))) - x, h = static_cast<int>(std::ceil(CGRectGetMaxY(part))) - y;
    cairo_surface_t* copy = cairo_image_surface_create(cairo_image_surface_get_format(image->surface()), w, h);
    cairo_t* cr = cairo_create(copy);
    cairo_set_operator(cr, CAIRO_OPERATOR_SOURCE);
    cairo_set_source_surface(cr, image->surface(), -x, -y);
    cairo_paint(cr);
    cairo_destroy(cr);
    return std::make_shared<CGImage>(copy);
}

}  // namespace platform
