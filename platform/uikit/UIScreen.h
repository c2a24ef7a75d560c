#pragma once
// The display. The stand-in has none to ask, so a host sets its size in points and its scale
// (defaults: 390 by 844 points at scale 3). Any thread.
#include <memory>
#include <mutex>

#include "platform/coregraphics/CGGeometry.h"
#include "platform/foundation/NSObject.h"

namespace platform {

class UIScreen : public NSObject {
    PLATFORM_OBJC_CLASS(UIScreen, NSObject)
public:
    UIScreen() = default;
    static std::shared_ptr<UIScreen> mainScreen();

    CGRect bounds() const;
    CGFloat scale() const;

    // Stand-in only.
    void setBounds(CGRect bounds);
    void setScale(CGFloat scale);

private:
    mutable std::mutex mutex_;
    CGRect bounds_{{0, 0}, {390, 844}};  // guarded by mutex_
    CGFloat scale_ = 3;                  // guarded by mutex_
};

}  // namespace platform
