#include "platform/uikit/UITextField.h"

#include <algorithm>

namespace platform {

namespace {
// The platform's default text inset of a borderless field.
constexpr CGFloat kHorizontalInset = 8;
}  // namespace

void UITextField::setFont(std::shared_ptr<UIFont> font) {
    font_ = font ? std::move(font) : UIFont::systemFontOfSize(17);
}

void UITextField::setTextColor(std::shared_ptr<UIColor> color) {
    textColor_ = color ? std::move(color) : UIColor::blackColor();
}

bool UITextField::becomeFirstResponder() {
    editing_ = true;
    return true;
}

bool UITextField::resignFirstResponder() {
    editing_ = false;
    return true;
}

void UITextField::drawRect(CGRect) {
    const CGRect b = CGRectStandardize(bounds());
    std::string shown;
    NSStringDrawingAttributes attributes{font_, textColor_, NSTextAlignment::NSTextAlignmentLeft};
    if (!text_.empty()) {
        if (secure_) {
            // One bullet for each character (each UTF-8 lead byte), never the text itself.
            const auto characters = std::count_if(text_.begin(), text_.end(), [](char ch) {
                return (static_cast<unsigned char>(ch) & 0xC0) != 0x80;
            });
            for (std::ptrdiff_t i = 0; i < characters; ++i) shown += "\u2022";
        } else {
            shown = text_;
        }
    } else if (placeholder_ && !placeholder_->empty()) {
        shown = *placeholder_;
        attributes.foregroundColor = UIColor::placeholderTextColor();
    } else {
        return;
    }
    // One line: a field shows line breaks as spaces.
    std::replace(shown.begin(), shown.end(), '\n', ' ');
    const CGFloat height = font_->lineHeight();
    NSStringDrawInRect(shown,
                       CGRectMake(b.origin.x + kHorizontalInset, b.origin.y + (b.size.height - height) / 2,
                                  std::max<CGFloat>(0, b.size.width - 2 * kHorizontalInset), height),
                       attributes);
}

}  // namespace platform
