#pragma once
// A view that shows an image through its layer's contents: the CGImage, its scale, and for a
// resizable stretching image the matching contentsCenter. contentMode maps to contentsGravity.
// Main thread.
#include <memory>

#include "platform/uikit/UIImage.h"
#include "platform/uikit/UIView.h"

namespace platform {

enum class UIViewContentMode {
    UIViewContentModeScaleToFill = 0,
    UIViewContentModeScaleAspectFit = 1,
    UIViewContentModeScaleAspectFill = 2,
    UIViewContentModeCenter = 4,
};

class UIImageView : public UIView {
    PLATFORM_OBJC_CLASS(UIImageView, UIView)
public:
    // Touches pass through to the view behind, as on the platform.
    UIImageView() { setUserInteractionEnabled(false); }

    std::shared_ptr<UIImage> image() const { return image_; }
    void setImage(std::shared_ptr<UIImage> image);
    UIViewContentMode contentMode() const { return contentMode_; }
    void setContentMode(UIViewContentMode mode);

private:
    std::shared_ptr<UIImage> image_;
    UIViewContentMode contentMode_ = UIViewContentMode::UIViewContentModeScaleToFill;
};

}  // namespace platform
