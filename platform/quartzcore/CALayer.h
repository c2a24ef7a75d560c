#pragma once
// Layers: the tree that holds what a view shows. Like UIKit's, this is main-thread API: build,
// change and draw a layer tree on one thread.
//
// Geometry follows the platform: `bounds` is the layer's own coordinate space, `position` is where
// `anchorPoint` (unit coordinates of bounds, default the centre) sits in the superlayer, and
// `frame` is derived from them and `affineTransform`: the box around the transformed bounds.
// Setting `frame` sets `position` and the size of `bounds` (with the transform taken as identity,
// which the platform leaves undefined otherwise).
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/coregraphics/CGColor.h"
#include "platform/coregraphics/CGContext.h"
#include "platform/coregraphics/CGGeometry.h"
#include "platform/foundation/NSObject.h"

namespace platform {

class CALayer;

// What a layer asks to draw its content. UIView is the delegate of its own layer.
class CALayerDelegate {
public:
    virtual ~CALayerDelegate() = default;
    virtual void drawLayer_inContext(CALayer& layer, const CGContextRef& context) = 0;
};

// contentsGravity values.
inline constexpr std::string_view kCAGravityCenter = "center";
inline constexpr std::string_view kCAGravityTop = "top";
inline constexpr std::string_view kCAGravityBottom = "bottom";
inline constexpr std::string_view kCAGravityLeft = "left";
inline constexpr std::string_view kCAGravityRight = "right";
inline constexpr std::string_view kCAGravityTopLeft = "topLeft";
inline constexpr std::string_view kCAGravityTopRight = "topRight";
inline constexpr std::string_view kCAGravityBottomLeft = "bottomLeft";
inline constexpr std::string_view kCAGravityBottomRight = "bottomRight";
inline constexpr std::string_view kCAGravityResize = "resize";
inline constexpr std::string_view kCAGravityResizeAspect = "resizeAspect";
inline constexpr std::string_view kCAGravityResizeAspectFill = "resizeAspectFill";

class CALayer : public NSObject {
    PLATFORM_OBJC_CLASS(CALayer, NSObject)
public:
    CALayer() = default;
    static std::shared_ptr<CALayer> layer() { return std::make_shared<CALayer>(); }

    // Geometry.
    CGRect bounds() const { return bounds_; }
    void setBounds(CGRect bounds) { bounds_ = bounds; }
    CGPoint position() const { return position_; }
    void setPosition(CGPoint position) { position_ = position; }
    CGPoint anchorPoint() const { return anchorPoint_; }
    void setAnchorPoint(CGPoint anchor) { anchorPoint_ = anchor; }
    CGRect frame() const;
    void setFrame(CGRect frame);
    CGAffineTransform affineTransform() const { return transform_; }
    void setAffineTransform(CGAffineTransform transform) { transform_ = transform; }
    CGFloat zPosition() const { return zPosition_; }
    void setZPosition(CGFloat z) { zPosition_ = z; }

    // Appearance. Colours, contents and mask may be null.
    bool isHidden() const { return hidden_; }
    void setHidden(bool hidden) { hidden_ = hidden; }
    float opacity() const { return opacity_; }
    void setOpacity(float opacity) { opacity_ = opacity; }
    CGColorRef backgroundColor() const { return backgroundColor_; }
    void setBackgroundColor(CGColorRef color) { backgroundColor_ = std::move(color); }
    CGColorRef borderColor() const { return borderColor_; }
    void setBorderColor(CGColorRef color) { borderColor_ = std::move(color); }
    CGFloat borderWidth() const { return borderWidth_; }
    void setBorderWidth(CGFloat width) { borderWidth_ = width; }
    CGFloat cornerRadius() const { return cornerRadius_; }
    void setCornerRadius(CGFloat radius) { cornerRadius_ = radius; }
    bool masksToBounds() const { return masksToBounds_; }
    void setMasksToBounds(bool masks) { masksToBounds_ = masks; }
    // Usually a CGImage; any other value is kept and not drawn.
    id contents() const { return contents_; }
    void setContents(id contents) { contents_ = std::move(contents); }
    const std::string& contentsGravity() const { return contentsGravity_; }
    void setContentsGravity(std::string gravity) { contentsGravity_ = std::move(gravity); }
    // Unit rectangle of the contents image that stretches; (0, 0, 1, 1) stretches all of it.
    CGRect contentsCenter() const { return contentsCenter_; }
    void setContentsCenter(CGRect center) { contentsCenter_ = center; }
    CGFloat contentsScale() const { return contentsScale_; }
    void setContentsScale(CGFloat scale) { contentsScale_ = scale; }
    // A layer whose alpha decides what of this one shows; it has no superlayer.
    std::shared_ptr<CALayer> mask() const { return mask_; }
    void setMask(std::shared_ptr<CALayer> mask) { mask_ = std::move(mask); }

    // The tree. A layer holds its sublayers strongly and its superlayer weakly; adding a layer
    // that has a superlayer moves it.
    const std::vector<std::shared_ptr<CALayer>>& sublayers() const { return sublayers_; }
    std::shared_ptr<CALayer> superlayer() const { return superlayer_.lock(); }
    void addSublayer(const std::shared_ptr<CALayer>& layer);
    void insertSublayer(const std::shared_ptr<CALayer>& layer, std::size_t index);
    void removeFromSuperlayer();

    // Held weakly. A view's layer has the view as its delegate.
    id delegate() const { return delegate_.lock(); }
    void setDelegate(const id& delegate) { delegate_ = delegate; }

    // The layer's own content, in its bounds' coordinates: asks the delegate, if it draws.
    virtual void drawInContext(const CGContextRef& context);
    // Draws the layer and its sublayers into `context`, the layer's bounds origin at the context's
    // current origin: background, contents, own drawing, sublayers in zPosition order, border,
    // with corner radius, masksToBounds, masks, opacity and hidden state applied.
    void renderInContext(const CGContextRef& context);

private:
    CGRect bounds_;
    CGPoint position_;
    CGPoint anchorPoint_{0.5, 0.5};
    CGAffineTransform transform_;
    CGFloat zPosition_ = 0;
    bool hidden_ = false;
    float opacity_ = 1;
    CGColorRef backgroundColor_;
    CGColorRef borderColor_;
    CGFloat borderWidth_ = 0;
    CGFloat cornerRadius_ = 0;
    bool masksToBounds_ = false;
    id contents_;
    std::string contentsGravity_{kCAGravityResize};
    CGRect contentsCenter_{{0, 0}, {1, 1}};
    CGFloat contentsScale_ = 1;
    std::shared_ptr<CALayer> mask_;
    std::vector<std::shared_ptr<CALayer>> sublayers_;
    std::weak_ptr<CALayer> superlayer_;
    std::weak_ptr<NSObject> delegate_;
};

}  // namespace platform
