#pragma once
// UIKit's drawing of plain strings: measuring, and drawing into the current context
// (UIGraphicsGetCurrentContext), as text that a PDF keeps as text. One line per "\n"-separated
// part; no wrapping. Main thread, like the rest of UIKit's drawing.
#include <memory>
#include <string_view>

#include "platform/coregraphics/CGGeometry.h"
#include "platform/uikit/UIColor.h"
#include "platform/uikit/UIFont.h"

namespace platform {

enum class NSTextAlignment { NSTextAlignmentLeft = 0, NSTextAlignmentCenter = 1, NSTextAlignmentRight = 2 };

struct NSStringDrawingAttributes {
    std::shared_ptr<UIFont> font;              // null: the system font of 17 points
    std::shared_ptr<UIColor> foregroundColor;  // null: black
    NSTextAlignment alignment = NSTextAlignment::NSTextAlignmentLeft;
};

CGSize NSStringSizeWithAttributes(std::string_view string, const NSStringDrawingAttributes& attributes);
// Draws the lines from the top of `rect`, aligned within its width. Does nothing without a
// current context.
void NSStringDrawInRect(std::string_view string, CGRect rect, const NSStringDrawingAttributes& attributes);
void NSStringDrawAtPoint(std::string_view string, CGPoint point, const NSStringDrawingAttributes& attributes);

}  // namespace platform
