#pragma once
// Images for UIKit: a CGImage with a scale (pixels per point), an orientation, and for a
// resizable image the cap insets that keep their size while the middle stretches or tiles.
// Immutable; any thread, drawing on the main thread.
#include <memory>

#include "platform/coregraphics/CGImage.h"
#include "platform/foundation/NSData.h"
#include "platform/foundation/NSObject.h"

namespace platform {

struct UIEdgeInsets {
    CGFloat top = 0, left = 0, bottom = 0, right = 0;
};
inline UIEdgeInsets UIEdgeInsetsMake(CGFloat top, CGFloat left, CGFloat bottom, CGFloat right) {
    return {top, left, bottom, right};
}
inline bool UIEdgeInsetsEqualToEdgeInsets(UIEdgeInsets a, UIEdgeInsets b) {
    return a.top == b.top && a.left == b.left && a.bottom == b.bottom && a.right == b.right;
}

enum class UIImageOrientation { UIImageOrientationUp = 0 };
enum class UIImageResizingMode { UIImageResizingModeTile = 0, UIImageResizingModeStretch = 1 };

class UIImage : public NSObject {
    PLATFORM_OBJC_CLASS(UIImage, NSObject)
public:
    // initWithCGImage:scale:orientation:. Only the up orientation is drawn as such; others are
    // kept and drawn up.
    UIImage(CGImageRef image, CGFloat scale, UIImageOrientation orientation);
    static std::shared_ptr<UIImage> imageWithCGImage(CGImageRef image, CGFloat scale = 1,
                                                     UIImageOrientation orientation = UIImageOrientation::UIImageOrientationUp);
    // PNG bytes; nullptr if they are none.
    static std::shared_ptr<UIImage> imageWithData(const std::shared_ptr<NSData>& data, CGFloat scale = 1);

    const CGImageRef& CGImage() const { return image_; }
    CGFloat scale() const { return scale_; }
    UIImageOrientation imageOrientation() const { return orientation_; }
    // In points: pixels divided by scale.
    CGSize size() const;
    UIEdgeInsets capInsets() const { return capInsets_; }
    UIImageResizingMode resizingMode() const { return resizingMode_; }

    // A copy that draws in nine parts: corners at their size, edges and middle stretched (or
    // tiled) to fill. Insets are in points.
    std::shared_ptr<UIImage> resizableImageWithCapInsets(UIEdgeInsets insets, UIImageResizingMode mode) const;
    // Into the current context (UIGraphicsGetCurrentContext), which is taken to be UIKit's,
    // y downward: the image comes out upright. Does nothing without a current context.
    void drawInRect(CGRect rect) const;

private:
    const CGImageRef image_;
    const CGFloat scale_;
    const UIImageOrientation orientation_;
    UIEdgeInsets capInsets_;
    UIImageResizingMode resizingMode_ = UIImageResizingMode::UIImageResizingModeTile;
    bool resizable_ = false;  // made by resizableImageWithCapInsets; others draw whole
};

}  // namespace platform
