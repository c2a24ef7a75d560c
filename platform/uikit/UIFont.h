#pragma once
// Fonts for text. The stand-in draws every family with the system's sans-serif face through
// fontconfig; weight is regular or bold. Immutable; any thread.
#include <memory>
#include <string>

#include "platform/coregraphics/CGGeometry.h"
#include "platform/foundation/NSObject.h"

namespace platform {

class UIFont : public NSObject {
    PLATFORM_OBJC_CLASS(UIFont, NSObject)
public:
    UIFont(std::string familyName, CGFloat pointSize, bool bold)
        : familyName_(std::move(familyName)), pointSize_(pointSize), bold_(bold) {}

    static std::shared_ptr<UIFont> systemFontOfSize(CGFloat size);
    static std::shared_ptr<UIFont> boldSystemFontOfSize(CGFloat size);
    // nullptr for an empty name, as the platform gives nil for an unknown one.
    static std::shared_ptr<UIFont> fontWithName(const std::string& name, CGFloat size);

    const std::string& familyName() const { return familyName_; }
    CGFloat pointSize() const { return pointSize_; }
    bool isBold() const { return bold_; }
    // Ascender plus descender plus leading, in points.
    CGFloat lineHeight() const;
    CGFloat ascender() const;

private:
    const std::string familyName_;
    const CGFloat pointSize_;
    const bool bold_;
};

}  // namespace platform
