#include "capture/screen/RecursiveViewProcessor.h"

#include <algorithm>
#include <cmath>
#include <string_view>

#include "platform/foundation/NSString.h"
#include "platform/objc/Runtime.h"
#include "platform/uikit/UIGraphicsPDFRenderer.h"
#include "platform/uikit/UITextField.h"

namespace quillmere {

namespace {

// The class that hosts the system keyboard, whatever the exact name of its variant.
constexpr std::string_view kKeyboardHostSuffix = "InputSetContainerView";

// The class name as written in its module: "App.MyView" gives "MyView".
std::string_view withoutModulePrefix(std::string_view className) {
    const auto dot = className.rfind('.');
    return dot == std::string_view::npos ? className : className.substr(dot + 1);
}

// A NaN would leave the sort without a consistent order; such a layer sorts as if at depth 0.
double depth(const platform::CALayer& layer) {
    const double z = layer.zPosition();
    return std::isnan(z) ? 0.0 : z;
}

std::set<std::string> precomposed(const std::set<std::string>& tags) {
    std::set<std::string> result;
    for (const auto& tag : tags) result.insert(platform::NSStringPrecomposedWithCanonicalMapping(tag));
    return result;
}

}  // namespace

RecursiveViewProcessor::RecursiveViewProcessor(std::set<std::string> redactionTags)
    : redactionTags_(precomposed(redactionTags)) {}

bool RecursiveViewProcessor::isRedactionTag(const std::string& identifier) const {
    if (redactionTags_.empty()) return false;
    // Most identifiers are already composed, and most hosts spell a tag as they set it.
    if (redactionTags_.contains(identifier)) return true;
    return redactionTags_.contains(platform::NSStringPrecomposedWithCanonicalMapping(identifier));
}

std::shared_ptr<platform::NSData> RecursiveViewProcessor::renderViews(
    const std::vector<std::shared_ptr<platform::UIView>>& views) const {
    // No bounds: the page takes the renderer's default size, and what lies beyond it is cut off.
    // The screen's true size travels beside the page.
    const auto renderer = std::make_shared<platform::UIGraphicsPDFRenderer>();
    return renderer->PDFDataWithActions([&](platform::UIGraphicsPDFRendererContext& context) {
        // One page also when there is nothing to draw, so every capture reads as a screen.
        context.beginPage();
        for (const auto& view : views) {
            if (view && shouldDrawView(view)) renderer_.drawLayer(*view->layer(), context.CGContext());
        }
    });
}

bool RecursiveViewProcessor::shouldDrawView(const std::shared_ptr<platform::UIView>& view) const {
    if (view->isHidden()) return false;
    // The runtime's own copy of the name: no string is made per view per capture.
    const std::string_view className = platform::class_getName(view->objcClass());
    if (withoutModulePrefix(className).ends_with(kKeyboardHostSuffix)) return false;
    if (const auto& identifier = view->accessibilityIdentifier();
        identifier && isRedactionTag(*identifier)) {
        return false;
    }
    // An empty secure field that isn't being edited shows only its placeholder, which is safe.
    if (const auto field = platform::objc_cast<platform::UITextField>(view);
        field && field->isSecureTextEntry() && (field->hasText() || field->isEditing())) {
        return false;
    }
    return true;
}

void RecursiveViewProcessor::drawSublayers(const platform::CALayer& layer,
                                           const platform::CGContextRef& context) const {
    // A copy: drawing may run view code, which must not reorder what we iterate.
    auto sublayers = layer.sublayers();
    const auto byDepth = [](const auto& a, const auto& b) { return depth(*a) < depth(*b); };
    // Almost always in order already (no zPosition set); sorting would allocate for nothing.
    if (!std::is_sorted(sublayers.begin(), sublayers.end(), byDepth))
        std::stable_sort(sublayers.begin(), sublayers.end(), byDepth);
    for (const auto& sublayer : sublayers) {
        // Only layers that back views are walked: the view is what redaction is decided on.
        const auto view = platform::objc_cast<platform::UIView>(sublayer->delegate());
        if (!view || !shouldDrawView(view)) continue;
        renderer_.drawLayer(*sublayer, context);
    }
}

}  // namespace quillmere
