#include "platform/url/NSCFURLSessionConfiguration.h"

#include <mutex>

#include "platform/url/detail/URLHTTPProtocol.h"

namespace platform {

void NSCFURLSessionConfiguration::setUpClasses() {
    static std::once_flag once;
    std::call_once(once, [] {
        using Getter = NSURLSessionConfiguration::ProtocolClasses;
        IMP getter =
            imp_makeFunction<Getter>(std::function<Getter(NSObject*, SEL)>([](NSObject* self, SEL) -> Getter {
                auto* configuration = dynamic_cast<NSURLSessionConfiguration*>(self);
                return configuration ? configuration->storedProtocolClasses() : std::nullopt;
            }));
        const SEL name = sel_getUid("protocolClasses");
        class_addMethod(NSURLSessionConfiguration::class_(), name, getter);
        class_addMethod(NSCFURLSessionConfiguration::class_(), name, getter);
    });
}

std::shared_ptr<NSCFURLSessionConfiguration> NSCFURLSessionConfiguration::make() {
    setUpClasses();
    auto configuration = std::make_shared<NSCFURLSessionConfiguration>();
    // As on the platform, the classes registered by then come first, most recent first.
    std::vector<Class> classes = NSURLProtocol::registeredClasses();
    classes.push_back(detail::URLHTTPProtocol::protocolClass());
    configuration->setProtocolClasses(std::move(classes));
    return configuration;
}

std::shared_ptr<NSURLSessionConfiguration> NSCFURLSessionConfiguration::copy() const {
    setUpClasses();
    auto copied = std::make_shared<NSCFURLSessionConfiguration>();
    copied->copySettingsFrom(*this);
    return copied;
}

}  // namespace platform
