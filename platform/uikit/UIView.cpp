#include "platform/uikit/UIView.h"

#include <algorithm>

#include "platform/uikit/UIGraphics.h"
#include "platform/uikit/UIWindow.h"

namespace platform {

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
}

void UIView::drawRect(CGRect) {}

void UIView::drawLayer_inContext(CALayer&, const CGContextRef& context) {
    UIGraphicsPushContext(context);
    drawRect(bounds());
    UIGraphicsPopContext();
}

}  // namespace platform
