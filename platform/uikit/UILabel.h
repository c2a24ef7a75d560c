#pragma once
// A view that draws a text, vertically centred in its bounds. Main thread.
#include <memory>
#include <optional>
#include <string>

#include "platform/uikit/NSStringDrawing.h"
#include "platform/uikit/UIView.h"

namespace platform {

class UILabel : public UIView {
    PLATFORM_OBJC_CLASS(UILabel, UIView)
public:
    // Touches pass through to the view behind, as on the platform.
    UILabel() { setUserInteractionEnabled(false); }

    const std::optional<std::string>& text() const { return text_; }
    void setText(std::optional<std::string> text) { text_ = std::move(text); }
    std::shared_ptr<UIFont> font() const { return font_; }
    void setFont(std::shared_ptr<UIFont> font);
    std::shared_ptr<UIColor> textColor() const { return textColor_; }
    void setTextColor(std::shared_ptr<UIColor> color);
    NSTextAlignment textAlignment() const { return alignment_; }
    void setTextAlignment(NSTextAlignment alignment) { alignment_ = alignment; }

    void drawRect(CGRect rect) override;
    virtual void drawTextInRect(CGRect rect);

private:
    std::optional<std::string> text_;
    std::shared_ptr<UIFont> font_ = UIFont::systemFontOfSize(17);
    std::shared_ptr<UIColor> textColor_ = UIColor::blackColor();
    NSTextAlignment alignment_ = NSTextAlignment::NSTextAlignmentLeft;
};

}  // namespace platform
