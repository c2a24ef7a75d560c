#include "platform/uikit/UIScrollView.h"

namespace platform {

void UIScrollView::setContentOffset(CGPoint offset) {
    CGRect b = bounds();
    b.origin = offset;
    setBounds(b);
}

}  // namespace platform
