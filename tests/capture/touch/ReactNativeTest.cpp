// The React Native arrangement: the touch handler's failure requirement answered for TouchShims.
// The handler recognizing before, while and after the library runs is the capture-off/capture-on
// comparison's (tests/noninterference).
#include <gtest/gtest.h>

#include "capture/touch/QLMReactNativeSwizzler.h"
#include "capture/touch/TouchShim.h"
#include "platform/reactnative/RCTTouchHandler.h"
#include "platform/uikit/UITapGestureRecognizer.h"
#include "tests/capture/touch/TouchTestSupport.h"
#include "engine/Core.h"
#include "engine/SDK.h"
#include "tests/support/ChildProcess.h"

using namespace platform;
using namespace qlm_test;
using quillmere::QLMReactNativeSwizzler;
using quillmere::TouchShim;

namespace {

class TouchShimSubclass : public TouchShim {
    PLATFORM_OBJC_CLASS(TouchShimSubclass, TouchShim)
};

using Answer = BOOL(UIGestureRecognizer*, UIGestureRecognizer*);

Method handlerMethod() {
    return class_getInstanceMethod(registerReactNativeTouchHandlerClass(),
                                   sel_getUid(QLMReactNativeSwizzler::kSelector));
}

BOOL ask(const std::shared_ptr<RCTTouchHandler>& handler, UIGestureRecognizer* a, UIGestureRecognizer* b) {
    return objc_msgSend<BOOL, UIGestureRecognizer*, UIGestureRecognizer*>(
        handler.get(), sel_getUid(QLMReactNativeSwizzler::kSelector), a, b);
}

// Stands in for the handler's own implementation while a test runs: answers YES and counts its
// calls, with the selector it was called with.
struct RecordingOriginal {
    RecordingOriginal() {
        imp = imp_makeFunction<BOOL, UIGestureRecognizer*, UIGestureRecognizer*>(
            [this](NSObject*, SEL sel, UIGestureRecognizer*, UIGestureRecognizer*) {
                ++calls;
                selector = sel;
                return YES;
            });
        handlersOwn = method_setImplementation(handlerMethod(), imp);
    }
    ~RecordingOriginal() { method_setImplementation(handlerMethod(), handlersOwn); }
    IMP imp;
    IMP handlersOwn;
    int calls = 0;
    SEL selector = nullptr;
};

TEST(ReactNativeSwizzler, AnswersNoForExactlyATouchShimAndDefersOtherwise) {
    const auto handler = RCTTouchHandler::make();
    RecordingOriginal original;
    const auto swizzler = QLMReactNativeSwizzler::make();
    swizzler->swizzle();
    EXPECT_EQ(quillmere::originalMethod.load(), handlerMethod());
    EXPECT_EQ(quillmere::originalImplementation.load(), original.imp);

    const auto shim = TouchShim::make();
    const auto subclass = TouchShim::make<TouchShimSubclass>();
    const auto tap = std::make_shared<UITapGestureRecognizer>();
    struct Case {
        const char* name;
        UIGestureRecognizer* a;
        UIGestureRecognizer* b;
        BOOL answer;
        bool original;
    };
    const Case cases[] = {
        {"shim first", shim.get(), tap.get(), NO, false},
        {"shim second", handler.get(), shim.get(), NO, false},
        {"subclass of the shim", handler.get(), subclass.get(), YES, true},
        {"two ordinary recognizers", handler.get(), tap.get(), YES, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        original.calls = 0;
        EXPECT_EQ(ask(handler, c.a, c.b), c.answer);
        EXPECT_EQ(original.calls, c.original ? 1 : 0);
        if (c.original) {
            EXPECT_STREQ(sel_getName(original.selector), QLMReactNativeSwizzler::kSelector);
        }
    }

    // Twice: still the original behind the replacement, which doesn't call itself.
    swizzler->swizzle();
    EXPECT_EQ(quillmere::originalImplementation.load(), original.imp);
    original.calls = 0;
    EXPECT_EQ(ask(handler, handler.get(), tap.get()), YES);
    EXPECT_EQ(original.calls, 1);

    swizzler->deswizzle();
    EXPECT_EQ(method_getImplementation(handlerMethod()), original.imp);
    original.calls = 0;
    EXPECT_EQ(ask(handler, handler.get(), shim.get()), YES);
    EXPECT_EQ(original.calls, 1);
}

void startAndStopWithoutReactNative() {
    EXPECT_EQ(NSClassFromString(QLMReactNativeSwizzler::kTouchHandlerClassName), nullptr);
    RunningLibrary library;
    const auto window = shownWindow();
    window->addGestureRecognizer(TouchShim::make(quillmere::SDK::currentCore()));
    TouchScreen screen(window);
    EXPECT_EQ(quillmere::originalMethod.load(), nullptr);
    EXPECT_EQ(quillmere::originalImplementation.load(), nullptr);
    screen.tap({10, 10});
    EXPECT_EQ(summaries(library.stop()), (std::vector<std::string>{"DOWN 10", "UP 10"}));
    EXPECT_EQ(NSClassFromString(QLMReactNativeSwizzler::kTouchHandlerClassName), nullptr);
}

TEST(ReactNativeSwizzler, WithoutReactNativeStartAndShutdownGoAsUsual) {
    // In a process of its own: elsewhere in this program the handler's class is registered.
    inChildProcess(startAndStopWithoutReactNative);
}

}  // namespace
