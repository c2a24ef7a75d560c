#pragma once
// Views: a rectangle of the screen, backed by a layer whose delegate the view is. Main thread.
//
// Make a view with UIView::make<T>(frame) (initWithFrame:), which also makes its layer. Geometry
// and hidden state live in the layer; the order of subviews is the order of their layers among the
// layer's sublayers. A view holds its subviews and gesture recognizers strongly and its superview
// weakly.
//
// Touches: hitTest:withEvent: finds the deepest view under a point that takes touches; a view's
// touches callbacks (UIResponder) pass them on to its superview unless it handles them.
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/coregraphics/CGGeometry.h"
#include "platform/foundation/NSObject.h"
#include "platform/quartzcore/CALayer.h"
#include "platform/uikit/UIColor.h"
#include "platform/uikit/UIGestureRecognizer.h"
#include "platform/uikit/UIResponder.h"

namespace platform {

class UIWindow;

class UIView : public UIResponder, public CALayerDelegate {
    PLATFORM_OBJC_CLASS(UIView, UIResponder)
public:
    UIView() = default;

    template <class T = UIView>
    static std::shared_ptr<T> make(CGRect frame = CGRectZero) {
        auto view = std::make_shared<T>();
        static_cast<UIView&>(*view).initWithFrame(frame);  // through the base: overrides may be protected
        return view;
    }

    const std::shared_ptr<CALayer>& layer() const { return layer_; }

    CGRect frame() const { return layer_->frame(); }
    void setFrame(CGRect frame) { layer_->setFrame(frame); }
    CGRect bounds() const { return layer_->bounds(); }
    virtual void setBounds(CGRect bounds) { layer_->setBounds(bounds); }
    CGPoint center() const { return layer_->position(); }
    void setCenter(CGPoint center) { layer_->setPosition(center); }
    CGAffineTransform transform() const { return layer_->affineTransform(); }
    void setTransform(CGAffineTransform t) { layer_->setAffineTransform(t); }
    bool isHidden() const { return layer_->isHidden(); }
    void setHidden(bool hidden) { layer_->setHidden(hidden); }
    CGFloat alpha() const { return layer_->opacity(); }
    void setAlpha(CGFloat alpha) { layer_->setOpacity(static_cast<float>(alpha)); }
    std::shared_ptr<UIColor> backgroundColor() const { return backgroundColor_; }
    void setBackgroundColor(std::shared_ptr<UIColor> color);
    bool clipsToBounds() const { return layer_->masksToBounds(); }
    void setClipsToBounds(bool clips) { layer_->setMasksToBounds(clips); }
    long tag() const { return tag_; }
    void setTag(long tag) { tag_ = tag; }
    // May be absent.
    const std::optional<std::string>& accessibilityIdentifier() const { return accessibilityIdentifier_; }
    void setAccessibilityIdentifier(std::optional<std::string> identifier) {
        accessibilityIdentifier_ = std::move(identifier);
    }

    // The hierarchy. Adding a view that has a superview moves it.
    std::shared_ptr<UIView> superview() const { return superview_.lock(); }
    std::vector<std::shared_ptr<UIView>> subviews() const;
    void addSubview(const std::shared_ptr<UIView>& view);
    void insertSubview(const std::shared_ptr<UIView>& view, std::size_t index);
    void removeFromSuperview();
    // The window at the root of the view's hierarchy, if any.
    std::shared_ptr<UIWindow> window() const;

    const std::vector<std::shared_ptr<UIGestureRecognizer>>& gestureRecognizers() const { return recognizers_; }
    // Adding one that belongs to another view moves it.
    void addGestureRecognizer(const std::shared_ptr<UIGestureRecognizer>& recognizer);
    void removeGestureRecognizer(const std::shared_ptr<UIGestureRecognizer>& recognizer);

    // Whether touches may land on the view or its subviews. YES, but for labels and image views.
    bool isUserInteractionEnabled() const { return userInteractionEnabled_; }
    void setUserInteractionEnabled(bool enabled) { userInteractionEnabled_ = enabled; }
    // The deepest descendant (or the view itself) under `point`, in the view's coordinates, that
    // takes touches; null if none. Hidden views, views that don't take touches and views of alpha
    // below 0.01 take none, nor do their subviews; later subviews are tried first.
    virtual std::shared_ptr<UIView> hitTest(CGPoint point, UIEvent* event);
    // Whether `point`, in the view's coordinates, lies in its bounds.
    virtual bool pointInside(CGPoint point, UIEvent* event) const;

    // A point between this view's coordinates and `view`'s; a null view means the window's (the
    // root of the hierarchy's). Views in different windows convert through screen coordinates.
    CGPoint convertPointToView(CGPoint point, const UIView* view) const;
    CGPoint convertPointFromView(CGPoint point, const UIView* view) const;

    // The superview: a view that doesn't handle a touch passes it up.
    std::shared_ptr<UIResponder> nextResponder() const override { return superview(); }

    // Draws the view's own content in its bounds' coordinates into the current context. The
    // default draws nothing.
    virtual void drawRect(CGRect rect);
    // Nothing to do in the stand-in: layers draw when a capture asks them.
    void setNeedsDisplay() {}

    // CALayerDelegate: pushes the context as UIKit's current one and calls drawRect: with bounds.
    void drawLayer_inContext(CALayer& layer, const CGContextRef& context) override;

protected:
    // initWithFrame:. Subclasses that override it call this one first.
    virtual void initWithFrame(CGRect frame);
    // The layer to make for this view (layerClass).
    virtual std::shared_ptr<CALayer> makeBackingLayer() { return CALayer::layer(); }

private:
    std::shared_ptr<CALayer> layer_;
    std::shared_ptr<UIColor> backgroundColor_;
    long tag_ = 0;
    std::optional<std::string> accessibilityIdentifier_;
    std::weak_ptr<UIView> superview_;
    std::vector<std::shared_ptr<UIView>> ownedSubviews_;  // keeps them alive; order is the layer's
    std::vector<std::shared_ptr<UIGestureRecognizer>> recognizers_;
    bool userInteractionEnabled_ = true;
};

}  // namespace platform
