#include "platform/uikit/UIFont.h"

#include "platform/uikit/detail/TextMetrics.h"

namespace platform {

namespace {
const char* const kSystemFamily = ".AppleSystemUIFont";
}

std::shared_ptr<UIFont> UIFont::systemFontOfSize(CGFloat size) {
    return std::make_shared<UIFont>(kSystemFamily, size, false);
}

std::shared_ptr<UIFont> UIFont::boldSystemFontOfSize(CGFloat size) {
    return std::make_shared<UIFont>(kSystemFamily, size, true);
}

std::shared_ptr<UIFont> UIFont::fontWithName(const std::string& name, CGFloat size) {
    if (name.empty()) return nullptr;
    // PostScript names carry the weight: "Helvetica-Bold".
    const auto dash = name.find('-');
    const bool bold = dash != std::string::npos && name.find("Bold", dash) != std::string::npos;
    return std::make_shared<UIFont>(name.substr(0, dash), size, bold);
}

CGFloat UIFont::lineHeight() const {
    return detail::fontMetrics(*this).lineHeight;
}

CGFloat UIFont::ascender() const {
    return detail::fontMetrics(*this).ascent;
}

}  // namespace platform
