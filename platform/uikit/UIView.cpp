#include "platform/uikit/UIView.h"

#include <algorithm>

#include "platform/uikit/UIGraphics.h"
#include "platform/uikit/UIWindow.h"
#include "platform/uikit/detail/GestureEnvironment.h"

namespace platform {

namespace {

// A point of a layer's bounds in its superlayer's coordinates: the anchor point sits at
// `position`, and the transform turns about it.
CGPoint toSuperlayer(const CALayer& layer, CGPoint p) {
    const CGRect b = layer.bounds();
    const CGPoint anchor = layer.anchorPoint();
    const CGPoint local{p.x - b.origin.x - anchor.x * b.size.width,
                        p.y - b.origin.y - anchor.y * b.size.height};
    const CGPoint turned = CGPointApplyAffineTransform(local, layer.affineTransform());
    return {turned.x + layer.position().x, turned.y + layer.position().y};
}

CGPoint fromSuperlayer(const CALayer& layer, CGPoint q) {
    const CGRect b = layer.bounds();
    const CGPoint anchor = layer.anchorPoint();
    const CGPoint local = CGPointApplyAffineTransform({q.x - layer.position().x, q.y - layer.position().y},
                                                      CGAffineTransformInvert(layer.affineTransform()));
    return {local.x + b.origin.x + anchor.x * b.size.width, local.y + b.origin.y + anchor.y * b.size.height};
}

// The chain from `view` up to its root, the view first.
std::vector<const UIView*> ancestry(const UIView* view) {
    std::vector<const UIView*> chain;
    std::shared_ptr<UIView> keep;
    for (const UIView* v = view; v != nullptr; v = keep.get()) {
        chain.push_back(v);
        keep = v->superview();
    }
    // Every member is kept alive by its subview's owner or by the caller.
    return chain;
}

CGPoint toRoot(const std::vector<const UIView*>& chain, CGPoint p) {
    for (std::size_t i = 0; i + 1 < chain.size(); ++i) p = toSuperlayer(*chain[i]->layer(), p);
    return p;
}

CGPoint fromRoot(const std::vector<const UIView*>& chain, CGPoint p) {
    for (std::size_t i = chain.size(); i-- > 1;) p = fromSuperlayer(*chain[i - 1]->layer(), p);
    return p;
}

}  // namespace

void UIView::initWithFrame(CGRect frame) {
    layer_ = makeBackingLayer();
    if (!layer_) layer_ = CALayer::layer();
    layer_->setDelegate(weak_from_this().lock());
    layer_->setFrame(frame);
}

void UIView::setBackgroundColor(std::shared_ptr<UIColor> color) {
    backgroundColor_ = std::move(color);
    layer_->setBackgroundColor(backgroundColor_ ? backgroundColor_->CGColor() : nullptr);
}

std::vector<std::shared_ptr<UIView>> UIView::subviews() const {
    std::vector<std::shared_ptr<UIView>> ordered;
    ordered.reserve(ownedSubviews_.size());
    for (const auto& sublayer : layer_->sublayers()) {
        auto view = objc_cast<UIView>(sublayer->delegate());
        if (view && view->layer_ == sublayer && view->superview_.lock().get() == this)
            ordered.push_back(std::move(view));
    }
    return ordered;
}

void UIView::addSubview(const std::shared_ptr<UIView>& view) {
    insertSubview(view, ownedSubviews_.size() + 1);
}

void UIView::insertSubview(const std::shared_ptr<UIView>& view, std::size_t index) {
    if (!view) return;
    // A view can't hold itself or one of its ancestors.
    for (auto up = weak_from_this().lock(); up;) {
        if (up.get() == view.get()) return;
        up = static_cast<UIView&>(*up).superview_.lock();
    }
    const std::shared_ptr<UIView> keep = view;  // the old superview may hold the last reference
    keep->removeFromSuperview();
    const auto siblings = subviews();
    if (index < siblings.size()) {
        const auto& sublayers = layer_->sublayers();
        const auto at = std::find(sublayers.begin(), sublayers.end(), siblings[index]->layer_);
        layer_->insertSublayer(keep->layer_, static_cast<std::size_t>(at - sublayers.begin()));
    } else {
        layer_->addSublayer(keep->layer_);
    }
    ownedSubviews_.push_back(keep);
    keep->superview_ = std::static_pointer_cast<UIView>(weak_from_this().lock());
}

void UIView::removeFromSuperview() {
    const auto parent = superview_.lock();
    superview_.reset();
    if (!parent) return;
    layer_->removeFromSuperlayer();
    auto& siblings = parent->ownedSubviews_;
    const auto it =
        std::find_if(siblings.begin(), siblings.end(), [this](const auto& v) { return v.get() == this; });
    if (it == siblings.end()) return;
    const std::shared_ptr<UIView> keep = *it;  // this may be the last reference
    siblings.erase(it);
}

std::shared_ptr<UIWindow> UIView::window() const {
    auto view = std::const_pointer_cast<NSObject>(weak_from_this().lock());
    while (view) {
        if (auto window = std::dynamic_pointer_cast<UIWindow>(view)) return window;
        view = static_cast<UIView&>(*view).superview_.lock();
    }
    return nullptr;
}

void UIView::addGestureRecognizer(const std::shared_ptr<UIGestureRecognizer>& recognizer) {
    if (!recognizer) return;
    const auto owner = recognizer->view_.lock();
    if (owner.get() == this) return;
    if (owner) owner->removeGestureRecognizer(recognizer);
    recognizers_.push_back(recognizer);
    recognizer->view_ = std::static_pointer_cast<UIView>(weak_from_this().lock());
}

void UIView::removeGestureRecognizer(const std::shared_ptr<UIGestureRecognizer>& recognizer) {
    const auto it = std::find(recognizers_.begin(), recognizers_.end(), recognizer);
    if (it == recognizers_.end()) return;
    recognizers_.erase(it);
    recognizer->view_.reset();
    detail::GestureEnvironment::shared().recognizerRemoved(*recognizer);
}

std::shared_ptr<UIView> UIView::hitTest(CGPoint point, UIEvent* event) {
    if (isHidden() || !userInteractionEnabled_ || alpha() < 0.01) return nullptr;
    if (!pointInside(point, event)) return nullptr;
    const auto children = subviews();
    for (auto it = children.rbegin(); it != children.rend(); ++it) {
        if (auto hit = (*it)->hitTest(fromSuperlayer(*(*it)->layer(), point), event)) return hit;
    }
    return std::static_pointer_cast<UIView>(shared_from_this());
}

bool UIView::pointInside(CGPoint point, UIEvent*) const {
    return CGRectContainsPoint(bounds(), point);
}

CGPoint UIView::convertPointToView(CGPoint point, const UIView* view) const {
    const auto from = ancestry(this);
    const CGPoint inRoot = toRoot(from, point);
    if (view == nullptr) return inRoot;
    const auto to = ancestry(view);
    if (to.back() == from.back()) return fromRoot(to, inRoot);
    // Different windows: through the screen, where each window's layer is placed.
    const CGPoint onScreen = toSuperlayer(*from.back()->layer(), inRoot);
    return fromRoot(to, fromSuperlayer(*to.back()->layer(), onScreen));
}

CGPoint UIView::convertPointFromView(CGPoint point, const UIView* view) const {
    if (view != nullptr) return view->convertPointToView(point, this);
    return fromRoot(ancestry(this), point);
}

void UIView::drawRect(CGRect) {}

void UIView::drawLayer_inContext(CALayer&, const CGContextRef& context) {
    UIGraphicsPushContext(context);
    drawRect(bounds());
    UIGraphicsPopContext();
}

}  // namespace platform
