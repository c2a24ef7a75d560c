#include "capture/network/NetworkRequestInterceptor.h"

#include <utility>
#include <vector>

#include "capture/network/NetworkShim.h"
#include "platform/url/NSURLProtocol.h"

namespace quillmere {
namespace {

using ProtocolClasses = platform::NSURLSessionConfiguration::ProtocolClasses;

// Made and added once; the runtime keeps implementations for the process.
platform::IMP fakeImplementation() {
    static const platform::IMP imp = [] {
        const platform::IMP made =
            platform::imp_makeFunction<ProtocolClasses>([](platform::NSObject* self, platform::SEL) {
                return NetworkRequestInterceptor::fakeProtocolClasses(self);
            });
        platform::class_addMethod(
            platform::NSURLSessionConfiguration::class_(),
            platform::sel_getUid(NetworkRequestInterceptor::kFakeProtocolClassesSelector), made);
        return made;
    }();
    return imp;
}

platform::Method concreteGetter() {
    const auto configuration = platform::NSURLSessionConfiguration::defaultSessionConfiguration();
    return platform::class_getInstanceMethod(platform::object_getClass(configuration.get()),
                                             platform::sel_getUid("protocolClasses"));
}

}  // namespace

NetworkRequestInterceptor::NetworkRequestInterceptor() {
    fakeImplementation();
}

void NetworkRequestInterceptor::exportToRuntime() {
    class_();
    fakeImplementation();
}

void NetworkRequestInterceptor::start(std::weak_ptr<NetworkEventSink> sink) {
    sink_ = std::move(sink);
    NetworkShim::reportTo(sink_);
    platform::NSURLProtocol::registerClass(NetworkShim::protocolClass());
    setProtocolClassesSwizzled(true);
}

void NetworkRequestInterceptor::stop() {
    platform::NSURLProtocol::unregisterClass(NetworkShim::protocolClass());
    // Requests that a shim already serves go on to their end.
    setProtocolClassesSwizzled(false);
    NetworkShim::stopReportingTo(sink_);
}

void NetworkRequestInterceptor::swizzleProtocolClasses() {
    const platform::Method getter = concreteGetter();
    const platform::Method fake = platform::class_getInstanceMethod(
        platform::NSURLSessionConfiguration::class_(), platform::sel_getUid(kFakeProtocolClassesSelector));
    if (getter == nullptr || fake == nullptr) return;
    platform::method_exchangeImplementations(getter, fake);
}

void NetworkRequestInterceptor::setProtocolClassesSwizzled(bool swizzled) {
    const platform::Method getter = concreteGetter();
    const bool now = getter != nullptr && platform::method_getImplementation(getter) == fakeImplementation();
    if (now != swizzled) swizzleProtocolClasses();
}

ProtocolClasses NetworkRequestInterceptor::fakeProtocolClasses(platform::NSObject* self) {
    // Swizzled, this selector reaches the platform's getter.
    const ProtocolClasses listed =
        platform::objc_msgSend<ProtocolClasses>(self, platform::sel_getUid(kFakeProtocolClassesSelector));
    if (!listed) return std::vector<platform::Class>{};
    const platform::Class shim = NetworkShim::protocolClass();
    std::vector<platform::Class> classes;
    classes.reserve(listed->size() + 1);
    classes.push_back(shim);
    for (const platform::Class cls : *listed) {
        if (cls != shim) classes.push_back(cls);
    }
    return classes;
}

}  // namespace quillmere
