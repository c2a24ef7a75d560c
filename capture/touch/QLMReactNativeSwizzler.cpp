#include "capture/touch/QLMReactNativeSwizzler.h"

#include <mutex>

#include "capture/touch/TouchShim.h"
#include "platform/uikit/UIGestureRecognizer.h"

namespace quillmere {

std::atomic<platform::Method> originalMethod{nullptr};
std::atomic<platform::IMP> originalImplementation{nullptr};

namespace {

using platform::BOOL;
using platform::IMP;
using platform::NSObject;
using platform::UIGestureRecognizer;

// Made once: the same implementation each time, so that swizzle can tell it is already in place.
IMP replacement() {
    static const IMP imp = [] {
        const platform::SEL selector = platform::sel_getUid(QLMReactNativeSwizzler::kSelector);
        return platform::imp_implementationWithBlock<BOOL, UIGestureRecognizer*, UIGestureRecognizer*>(
            [selector](NSObject* receiver, UIGestureRecognizer* a, UIGestureRecognizer* b) -> BOOL {
                if (TouchShim::isExactly(a) || TouchShim::isExactly(b)) return platform::NO;
                const IMP original = originalImplementation.load();
                if (original == nullptr) return platform::NO;
                return platform::imp_call<BOOL, UIGestureRecognizer*, UIGestureRecognizer*>(
                    original, receiver, selector, a, b);
            });
    }();
    return imp;
}

}  // namespace

void QLMReactNativeSwizzler::exportToRuntime() {
    static std::once_flag once;
    std::call_once(once, [] {
        const auto add = [](const char* name, void (QLMReactNativeSwizzler::*operation)()) {
            platform::class_addMethod(
                class_(), platform::sel_getUid(name),
                platform::imp_makeFunction<void>([operation](NSObject* self, platform::SEL) {
                    (static_cast<QLMReactNativeSwizzler*>(self)->*operation)();
                }));
        };
        add("swizzle", &QLMReactNativeSwizzler::swizzle);
        add("deswizzle", &QLMReactNativeSwizzler::deswizzle);
    });
}

std::shared_ptr<QLMReactNativeSwizzler> QLMReactNativeSwizzler::make() {
    exportToRuntime();
    return std::make_shared<QLMReactNativeSwizzler>();
}

void QLMReactNativeSwizzler::swizzle() {
    const platform::SEL selector = platform::sel_getUid(kSelector);
    const platform::Class handler = platform::NSClassFromString(kTouchHandlerClassName);
    const platform::Method method = platform::class_getInstanceMethod(handler, selector);
    // Already replaced: what the globals hold is still the original.
    if (method != nullptr && platform::method_getImplementation(method) == replacement()) return;
    originalMethod.store(method);
    originalImplementation.store(platform::method_getImplementation(method));
    if (method != nullptr) platform::method_setImplementation(method, replacement());
}

void QLMReactNativeSwizzler::deswizzle() {
    platform::method_setImplementation(originalMethod.load(), originalImplementation.load());
}

}  // namespace quillmere
