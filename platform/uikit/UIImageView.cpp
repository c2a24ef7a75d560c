#include "platform/uikit/UIImageView.h"

#include <algorithm>

namespace platform {

void UIImageView::setImage(std::shared_ptr<UIImage> image) {
    image_ = std::move(image);
    CALayer& layer = *this->layer();
    if (!image_) {
        layer.setContents(nullptr);
        return;
    }
    layer.setContents(image_->CGImage());
    layer.setContentsScale(image_->scale());
    // A stretching resizable image shows through the layer's contentsCenter: the unit rectangle
    // between its caps.
    const UIEdgeInsets caps = image_->capInsets();
    const CGSize size = image_->size();
    CGRect center{{0, 0}, {1, 1}};
    if (image_->resizingMode() == UIImageResizingMode::UIImageResizingModeStretch &&
        !UIEdgeInsetsEqualToEdgeInsets(caps, UIEdgeInsets{}) && size.width > 0 && size.height > 0) {
        center.origin = {std::min(1.0, caps.left / size.width), std::min(1.0, caps.top / size.height)};
        center.size = {std::max(0.0, (size.width - caps.left - caps.right) / size.width),
                       std::max(0.0, (size.height - caps.top - caps.bottom) / size.height)};
    }
    layer.setContentsCenter(center);
}

void UIImageView::setContentMode(UIViewContentMode mode) {
    contentMode_ = mode;
    std::string_view gravity = kCAGravityResize;
    switch (mode) {
        case UIViewContentMode::UIViewContentModeScaleToFill:
            gravity = kCAGravityResize;
            break;
        case UIViewContentMode::UIViewContentModeScaleAspectFit:
            gravity = kCAGravityResizeAspect;
            break;
        case UIViewContentMode::UIViewContentModeScaleAspectFill:
            gravity = kCAGravityResizeAspectFill;
            break;
        case UIViewContentMode::UIViewContentModeCenter:
            gravity = kCAGravityCenter;
            break;
    }
    layer()->setContentsGravity(std::string(gravity));
}

}  // namespace platform
