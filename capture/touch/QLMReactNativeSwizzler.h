#pragma once
// Keeps React Native's touch handler from waiting on a TouchShim. The handler (runtime class
// "RCTTouchHandler", looked up by name: there is no link-time tie to React Native) asks of
// itself, as its own delegate, whether it has to wait for another recognizer to fail, and says YES
// for recognizers outside its root view, among them the shim on the window, which never fails: it
// would never begin. While the library runs, swizzle replaces that answer with NO whenever either
// recognizer is exactly a TouchShim (a subclass doesn't count), and lets the handler's own
// implementation answer, with the same selector, in every other case; deswizzle puts the original
// back.
//
// With no React Native in the process both globals stay null and both operations do nothing.
// Unlike a plain swap, a second swizzle without a deswizzle in between leaves everything as it is,
// so the replacement can never end up calling itself.
//
// Threads: swizzle on the thread that starts the Core, deswizzle on the one that shuts it down
// (SDK runs the two one after the other); the replacement runs on the main thread.
#include <atomic>
#include <memory>

#include "platform/foundation/NSObject.h"
#include "platform/objc/Runtime.h"
#include "platform/uikit/UIGestureRecognizer.h"

namespace quillmere {

// The handler's method and its implementation as they were before swizzle; null while React Native
// isn't in the process. Atomic: written by swizzle before it installs the replacement, read by the
// replacement on the main thread and by deswizzle.
extern std::atomic<platform::Method> originalMethod;
extern std::atomic<platform::IMP> originalImplementation;

class QLMReactNativeSwizzler : public platform::NSObject {
    PLATFORM_OBJC_CLASS(QLMReactNativeSwizzler, platform::NSObject)
public:
    static constexpr const char* kTouchHandlerClassName = "RCTTouchHandler";
    static constexpr const char* kSelector = platform::UIGestureRecognizerDelegate::shouldRequireFailure;

    // The class, with swizzle and deswizzle under those names; idempotent, any thread.
    static void exportToRuntime();
    static std::shared_ptr<QLMReactNativeSwizzler> make();

    void swizzle();
    void deswizzle();
};

}  // namespace quillmere
