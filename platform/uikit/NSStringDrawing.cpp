#include "platform/uikit/NSStringDrawing.h"

#include <algorithm>
#include <string>
#include <vector>

#include "platform/uikit/UIGraphics.h"
#include "platform/uikit/detail/TextMetrics.h"

namespace platform {

namespace {

// Split as given: the context makes the text drawable when it draws it, off the drawing thread for
// a recorded page, and measuring makes its own copy.
std::vector<std::string> linesOf(std::string_view text) {
    std::vector<std::string> lines;
    std::size_t start = 0;
    for (std::size_t end; (end = text.find('\n', start)) != std::string_view::npos; start = end + 1) {
        lines.emplace_back(text.substr(start, end - start));
    }
    lines.emplace_back(text.substr(start));
    return lines;
}

std::shared_ptr<UIFont> fontOf(const NSStringDrawingAttributes& attributes) {
    return attributes.font ? attributes.font : UIFont::systemFontOfSize(17);
}

}  // namespace

CGSize NSStringSizeWithAttributes(std::string_view string, const NSStringDrawingAttributes& attributes) {
    if (string.empty()) return {0, 0};
    const auto font = fontOf(attributes);
    const auto lines = linesOf(string);
    double width = 0;
    for (const auto& line : lines) width = std::max(width, detail::textAdvance(*font, line));
    return {width, static_cast<double>(lines.size()) * detail::fontMetrics(*font).lineHeight};
}

void NSStringDrawInRect(std::string_view string, CGRect rect, const NSStringDrawingAttributes& attributes) {
    const CGContextRef context = UIGraphicsGetCurrentContext();
    if (!context || string.empty()) return;
    rect = CGRectStandardize(rect);
    const auto font = fontOf(attributes);
    const auto metrics = detail::fontMetrics(*font);
    const CGColorRef color = attributes.foregroundColor && attributes.foregroundColor->CGColor()
                                 ? attributes.foregroundColor->CGColor()
                                 : CGColorCreateGenericGray(0, 1);
    // Every family draws with the one face; CoreGraphics' font names carry the weight.
    const char* const name = font->isBold() ? "Helvetica-Bold" : "Helvetica";

    CGContextSaveGState(context);
    CGContextSetFillColorWithColor(context, color);
    CGContextSelectFont(context, name, font->pointSize(), kCGEncodingMacRoman);
    // UIKit's context runs y downward; glyphs are drawn y-up unless the text matrix flips them.
    // The text matrix isn't part of the graphics state, so it is put back by hand.
    const CGAffineTransform textMatrix = CGContextGetTextMatrix(context);
    CGContextSetTextMatrix(context, CGAffineTransformMakeScale(1, -1));
    const auto lines = linesOf(string);
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (lines[i].empty()) continue;
        double x = rect.origin.x;
        if (attributes.alignment != NSTextAlignment::NSTextAlignmentLeft) {
            const double spare = rect.size.width - detail::textAdvance(*font, lines[i]);
            x += attributes.alignment == NSTextAlignment::NSTextAlignmentCenter ? spare / 2 : spare;
        }
        const double baseline = rect.origin.y + static_cast<double>(i) * metrics.lineHeight + metrics.ascent;
        CGContextShowTextAtPoint(context, x, baseline, lines[i].data(), lines[i].size());
    }
    CGContextSetTextMatrix(context, textMatrix);
    CGContextRestoreGState(context);
}

void NSStringDrawAtPoint(std::string_view string, CGPoint point,
                         const NSStringDrawingAttributes& attributes) {
    const CGSize size = NSStringSizeWithAttributes(string, attributes);
    NSStringDrawingAttributes left = attributes;
    left.alignment = NSTextAlignment::NSTextAlignmentLeft;
    NSStringDrawInRect(string, {point, size}, left);
}

}  // namespace platform
