#pragma once
// Puts NetworkShim first in every session configuration's protocol classes, exported as
// QLMNetworkRequestInterceptor. It replaces the protocolClasses getter of the concrete class of
// default configurations (a private subclass) with fakeProtocolClasses, a method it adds to
// NSURLSessionConfiguration, so sessions made before the library started are reached too.
//
// It installs network capture as a whole: start registers NetworkShim with NSURLProtocol, puts it
// first and names the sink that shims report to; stop undoes all three.
//
// Threads: start, stop and swizzleProtocolClasses on the thread that starts or shuts down the
// library; the replaced getter runs wherever a configuration is asked. Beyond the sink it started
// with, there is no state here: the runtime's method tables are the state.
#include <memory>

#include "engine/NetworkEventSink.h"
#include "platform/foundation/NSObject.h"
#include "platform/url/NSURLSessionConfiguration.h"

namespace quillmere {

class NetworkRequestInterceptor final : public platform::NSObject {
    PLATFORM_OBJC_CLASS_NAMED(NetworkRequestInterceptor, platform::NSObject, "QLMNetworkRequestInterceptor")
public:
    static constexpr const char* kFakeProtocolClassesSelector = "fakeProtocolClasses";

    // Adds fakeProtocolClasses to NSURLSessionConfiguration if it isn't there yet.
    NetworkRequestInterceptor();

    // The class and the fakeProtocolClasses category, known to the runtime as the library loads;
    // idempotent.
    static void exportToRuntime();

    // Installs network capture, reporting to `sink`. Call once.
    void start(std::weak_ptr<NetworkEventSink> sink);
    // Uninstalls it: no new request reaches a shim, and requests that shims already serve go on to
    // their end unreported.
    void stop();

    // Exchanges the getter with fakeProtocolClasses; a second call undoes the first. Does nothing
    // when either method can't be found.
    void swizzleProtocolClasses();
    // Swizzles or unswizzles so that default configurations answer protocolClasses with
    // fakeProtocolClasses exactly when `swizzled`; nothing happens when they already do. A Core
    // before may have left the swizzle in place (its host turned capture off before shutdown), and
    // swizzling again would undo it.
    void setProtocolClassesSwizzled(bool swizzled);

    // What a configuration reports once swizzled: NetworkShim, then the platform's list without
    // it. A configuration whose list is nil reports an empty list, without NetworkShim.
    static platform::NSURLSessionConfiguration::ProtocolClasses fakeProtocolClasses(platform::NSObject* self);

private:
    std::weak_ptr<NetworkEventSink> sink_;  // confined to the thread that starts and stops
};

}  // namespace quillmere
