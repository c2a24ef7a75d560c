#pragma once
// Puts NetworkShim first in every session configuration's protocol classes, exported as
// QLMNetworkRequestInterceptor. It replaces the protocolClasses getter of the concrete class of
// default configurations (a private subclass) with fakeProtocolClasses, a method it adds to
// NSURLSessionConfiguration, so sessions made before the library started are reached too.
//
// Threads: swizzleProtocolClasses on the thread that starts or shuts down the library; the
// replaced getter runs wherever a configuration is asked. There is no state here: the runtime's
// method tables are the state.
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
};

}  // namespace quillmere
