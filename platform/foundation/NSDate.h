#pragma once
// Dates on the wall clock, as seconds since 1970.
#include <memory>

#include "platform/foundation/NSObject.h"

namespace platform {

class NSDate : public NSObject {
    PLATFORM_OBJC_CLASS(NSDate, NSObject)
public:
    explicit NSDate(double secondsSince1970) : seconds_(secondsSince1970) {}

    static std::shared_ptr<NSDate> date();  // now
    static std::shared_ptr<NSDate> dateWithTimeIntervalSinceNow(double seconds);
    static std::shared_ptr<NSDate> dateWithTimeIntervalSince1970(double seconds);

    double timeIntervalSince1970() const { return seconds_; }
    double timeIntervalSinceDate(const NSDate& other) const { return seconds_ - other.seconds_; }
    double timeIntervalSinceNow() const;

    bool isEqual(const NSObject* other) const override;
    std::size_t hash() const override;
    std::string description() const override;

private:
    double seconds_;
};

}  // namespace platform
