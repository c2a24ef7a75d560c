// The React Native arrangement: the touch handler's failure requirement answered for TouchShims,
// and the handler recognizing as if the library had never run once it has shut down.
#include <gtest/gtest.h>

#include "capture/screen/RootViewScanner.h"
#include "capture/touch/QLMReactNativeSwizzler.h"
#include "capture/touch/TouchShim.h"
#include "platform/reactnative/RCTTouchHandler.h"
#include "platform/uikit/UITapGestureRecognizer.h"
#include "platform/uikit/UIViewController.h"
#include "tests/capture/touch/TouchTestSupport.h"
#include "engine/SDK.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TouchTrace.h"

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
    window->addGestureRecognizer(TouchShim::make(quillmere::SDK::currentSink()));
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

std::vector<std::shared_ptr<UIGestureRecognizer>> shimsOn(const UIWindow& window) {
    std::vector<std::shared_ptr<UIGestureRecognizer>> shims;
    for (const auto& r : window.gestureRecognizers()) {
        if (r->isMemberOfClass(TouchShim::class_())) shims.push_back(r);
    }
    return shims;
}

// A scanner for the running library, as the Core makes one; scanning stops as the library does.
struct Scanning {
    Scanning() : scanner(quillmere::RootViewScanner::make(quillmere::SDK::currentSink(), configuration)) {}
    void scan() {
        quillmere::RootViewScanner::PendingCapture capture;
        scanner->scanWindows(capture);
    }
    std::vector<std::string> stop() {
        scanner->stop();
        return summaries(library.stop());
    }
    RunningLibrary library;
    quillmere::Configuration configuration{"app-1"};
    std::shared_ptr<quillmere::RootViewScanner> scanner;
};

// React Native's handler on the root view, beside the shim the scanner attaches to the window. By
// its own answer the handler would wait for the shim, which fails only as the touches end, so it
// would never begin: while the library runs it is kept from waiting, and as scanning stops the shim
// goes. Before, during, after and during a second run, a drag is the same to the handler.
TEST(ReactNativeTouchHandler, RecognizesBeforeWhileAfterAndAgainWhileTheLibraryRuns) {
    const auto window = shownWindow();
    const auto controller = std::make_shared<UIViewController>();
    window->setRootViewController(controller);
    const auto handler = RCTTouchHandler::make();
    controller->view()->addGestureRecognizer(handler);
    const auto trace = std::make_shared<Trace>();
    const auto recorder = ActionRecorder::make(trace, "handler");
    recorder->observe(*handler);
    TouchScreen screen(window);
    const auto drag = [&] {
        trace->clear();
        screen.drag({100, 100}, {100, 200}, 3);
        return *trace;
    };
    const Trace recognized{"handler began", "handler changed", "handler changed", "handler changed",
                           "handler ended"};
    EXPECT_EQ(drag(), recognized);

    Scanning first;
    first.scan();
    const auto firstShims = shimsOn(*window);
    ASSERT_EQ(firstShims.size(), 1u);
    EXPECT_EQ(drag(), recognized);
    first.stop();
    EXPECT_TRUE(shimsOn(*window).empty());
    EXPECT_EQ(drag(), recognized);

    Scanning second;
    second.scan();
    second.scan();
    const auto secondShims = shimsOn(*window);
    ASSERT_EQ(secondShims.size(), 1u);
    EXPECT_NE(secondShims[0], firstShims[0]);
    EXPECT_TRUE(second.scanner->trackedWindows().containsObject(window));
    EXPECT_EQ(drag(), recognized);
    EXPECT_EQ(second.stop(), (std::vector<std::string>{"DOWN 100", "MOVE 100 <100 100>", "UP 100"}));
    EXPECT_TRUE(shimsOn(*window).empty());
    EXPECT_EQ(drag(), recognized);
}

}  // namespace
