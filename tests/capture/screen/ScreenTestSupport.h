#pragma once
// Building view trees for screen capture tests, and reading what a capture drew.
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "capture/screen/RecursiveViewProcessor.h"
#include "platform/coregraphics/CGContext.h"
#include "platform/uikit/UIColor.h"
#include "platform/uikit/UILabel.h"
#include "platform/uikit/UIView.h"
#include "tests/support/PdfReader.h"

namespace qlm_test {

struct Rgb {
    uint8_t r, g, b;
};
inline constexpr Rgb kWhite{255, 255, 255};
inline constexpr Rgb kRed{255, 0, 0};
inline constexpr Rgb kGreen{0, 255, 0};
inline constexpr Rgb kBlue{0, 0, 255};
inline constexpr Rgb kBlack{0, 0, 0};

inline platform::CGColorRef cgColor(Rgb c) {
    return platform::CGColorCreateGenericRGB(c.r / 255.0, c.g / 255.0, c.b / 255.0, 1.0);
}

inline std::shared_ptr<platform::UIView> coloredView(platform::CGRect frame, Rgb color) {
    auto view = platform::UIView::make(frame);
    view->setBackgroundColor(platform::UIColor::colorWithCGColor(cgColor(color)));
    return view;
}

inline std::shared_ptr<platform::UILabel> label(platform::CGRect frame, std::string text) {
    auto view = platform::UIView::make<platform::UILabel>(frame);
    view->setText(std::move(text));
    return view;
}

// An opaque RGB image; `fills` are rectangles in pixels from the image's top left.
inline platform::CGImageRef makeImage(std::size_t width, std::size_t height,
                                      const std::vector<std::pair<platform::CGRect, Rgb>>& fills) {
    using namespace platform;
    const auto bitmap = CGBitmapContextCreate(nullptr, width, height, 8, 0, CGColorSpaceCreateDeviceRGB(),
                                              kCGImageAlphaPremultipliedFirst | kCGBitmapByteOrder32Little);
    EXPECT_TRUE(bitmap);
    if (!bitmap) return nullptr;
    for (const auto& [rect, color] : fills) {
        // A bitmap context runs y upward.
        CGContextSetFillColorWithColor(bitmap, cgColor(color));
        CGContextFillRect(bitmap,
                          CGRectMake(rect.origin.x, static_cast<CGFloat>(height) - CGRectGetMaxY(rect),
                                     rect.size.width, rect.size.height));
    }
    return CGBitmapContextCreateImage(bitmap);
}

// The document's bytes read back; a document that is no PDF of exactly one page fails the test.
inline PdfDocument onePage(const std::shared_ptr<platform::NSData>& data) {
    EXPECT_TRUE(data);
    auto document = PdfDocument::load(data ? data->view() : std::string_view());
    EXPECT_TRUE(document) << "not a PDF";
    if (!document) return {};
    EXPECT_EQ(document->pageCount(), 1);
    return *document;
}

inline PdfDocument render(const std::vector<std::shared_ptr<platform::UIView>>& views,
                          std::set<std::string> redactionTags = {}) {
    const quillmere::RecursiveViewProcessor processor(std::move(redactionTags));
    return onePage(processor.renderViews(views));
}

#define EXPECT_PIXEL(page, x, y, color)                                 \
    EXPECT_TRUE((page).near((x), (y), (color).r, (color).g, (color).b)) \
        << "pixel (" << (x) << ", " << (y) << ") is 0x" << std::hex << (page).at((x), (y)) << std::dec

}  // namespace qlm_test
