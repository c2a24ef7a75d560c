#pragma once
// The private concrete class of the configurations the platform makes. It defines the
// "protocolClasses" getter on itself, so that host code exchanging that method on the class of a
// default configuration changes what every such configuration reports.
#include <memory>

#include "platform/url/NSURLSessionConfiguration.h"

namespace platform {

class NSCFURLSessionConfiguration final : public NSURLSessionConfiguration {
    PLATFORM_OBJC_CLASS_NAMED(NSCFURLSessionConfiguration, NSURLSessionConfiguration,
                              "__NSCFURLSessionConfiguration")
public:
    // A configuration listing the built-in protocol class; sets the classes' methods up first.
    static std::shared_ptr<NSCFURLSessionConfiguration> make();
    std::shared_ptr<NSURLSessionConfiguration> copy() const override;

    NSCFURLSessionConfiguration() = default;

private:
    // Adds the getter's implementation to this class and to NSURLSessionConfiguration, once.
    static void setUpClasses();
};

}  // namespace platform
