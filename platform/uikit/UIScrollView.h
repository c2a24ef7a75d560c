#pragma once
// A view whose content moves under its frame: contentOffset is the origin of its bounds, so its
// subviews, placed in bounds coordinates, appear scrolled. Main thread.
#include "platform/uikit/UIView.h"

namespace platform {

class UIScrollView : public UIView {
    PLATFORM_OBJC_CLASS(UIScrollView, UIView)
public:
    CGPoint contentOffset() const { return bounds().origin; }
    void setContentOffset(CGPoint offset);
    CGSize contentSize() const { return contentSize_; }
    void setContentSize(CGSize size) { contentSize_ = size; }

private:
    CGSize contentSize_;
};

}  // namespace platform
