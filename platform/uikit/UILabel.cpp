#include "platform/uikit/UILabel.h"

#include <algorithm>

namespace platform {

void UILabel::setFont(std::shared_ptr<UIFont> font) {
    font_ = font ? std::move(font) : UIFont::systemFontOfSize(17);
}

void UILabel::setTextColor(std::shared_ptr<UIColor> color) {
    textColor_ = color ? std::move(color) : UIColor::blackColor();
}

void UILabel::drawRect(CGRect rect) {
    drawTextInRect(rect);
}

void UILabel::drawTextInRect(CGRect rect) {
    if (!text_ || text_->empty()) return;
    rect = CGRectStandardize(rect);
    const NSStringDrawingAttributes attributes{font_, textColor_, alignment_};
    // Only the height centres the text; measuring the width would cost a glyph layout per capture.
    const auto lines = static_cast<CGFloat>(std::count(text_->begin(), text_->end(), '\n') + 1);
    const CGFloat height = lines * font_->lineHeight();
    NSStringDrawInRect(
        *text_,
        CGRectMake(rect.origin.x, rect.origin.y + (rect.size.height - height) / 2, rect.size.width, height),
        attributes);
}

}  // namespace platform
