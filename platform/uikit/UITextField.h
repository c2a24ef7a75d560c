#pragma once
// A one-line text input. Draws its text (as bullets when secure) or, when empty, its placeholder,
// left-aligned and vertically centred, inside a small inset. Editing begins with
// becomeFirstResponder and ends with resignFirstResponder. Main thread.
#include <memory>
#include <optional>
#include <string>

#include "platform/uikit/NSStringDrawing.h"
#include "platform/uikit/UIView.h"

namespace platform {

class UITextField : public UIView {
    PLATFORM_OBJC_CLASS(UITextField, UIView)
public:
    const std::string& text() const { return text_; }
    void setText(std::optional<std::string> text) { text_ = text.value_or(""); }
    const std::optional<std::string>& placeholder() const { return placeholder_; }
    void setPlaceholder(std::optional<std::string> placeholder) { placeholder_ = std::move(placeholder); }
    std::shared_ptr<UIFont> font() const { return font_; }
    void setFont(std::shared_ptr<UIFont> font);
    std::shared_ptr<UIColor> textColor() const { return textColor_; }
    void setTextColor(std::shared_ptr<UIColor> color);
    bool isSecureTextEntry() const { return secure_; }
    void setSecureTextEntry(bool secure) { secure_ = secure; }
    bool hasText() const { return !text_.empty(); }
    bool isEditing() const { return editing_; }
    bool becomeFirstResponder();
    bool resignFirstResponder();

    void drawRect(CGRect rect) override;

private:
    std::string text_;
    std::optional<std::string> placeholder_;
    std::shared_ptr<UIFont> font_ = UIFont::systemFontOfSize(17);
    std::shared_ptr<UIColor> textColor_ = UIColor::blackColor();
    bool secure_ = false;
    bool editing_ = false;
};

}  // namespace platform
