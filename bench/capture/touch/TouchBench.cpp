// What touch capture costs the main thread per touch sample: one move of one finger delivered with
// UIWindow::sendEvent: to a small view tree with a host pan recognizer, without a TouchShim on the
// window and, in the same run, with one. With no session for it the shim only keeps its
// bookkeeping; with the library running every 11th sample and each DOWN and UP also go to the
// Core, whose uploader posts to a closed loopback port and drops the batches.
//
// The finger lifts and lands again every 64 samples, so DOWN, UP and the tail MOVE count in their
// share.
#include <benchmark/benchmark.h>

#include <memory>

#include "capture/touch/TouchShim.h"
#include "engine/Configuration.h"
#include "engine/Core.h"
#include "engine/SDK.h"
#include "platform/uikit/TouchScreen.h"
#include "platform/uikit/UIPanGestureRecognizer.h"
#include "platform/uikit/UIWindow.h"

using namespace platform;

namespace {

constexpr int kSamplesPerStroke = 64;

struct Screen {
    // The shim reports to the running session, if any.
    explicit Screen(bool withShim) {
        window = UIView::make<UIWindow>(CGRectMake(0, 0, 390, 844));
        window->makeKeyAndVisible();
        auto root = UIView::make(window->bounds());
        window->addSubview(root);
        auto list = UIView::make(CGRectMake(16, 100, 358, 600));
        root->addSubview(list);
        for (int i = 0; i < 8; ++i) list->addSubview(UIView::make(CGRectMake(0, 64.0 * i, 358, 56)));
        list->addGestureRecognizer(std::make_shared<UIPanGestureRecognizer>());
        if (withShim) window->addGestureRecognizer(quillmere::TouchShim::make(quillmere::SDK::currentCore()));
    }
    std::shared_ptr<UIWindow> window;
};

void strokes(benchmark::State& state, bool withShim) {
    Screen screen(withShim);
    TouchScreen touches(screen.window);
    std::shared_ptr<UITouch> finger;
    int sample = 0;
    for (auto _ : state) {
        if (sample == 0) finger = touches.touchDown({200, 650});
        touches.touchMove(finger, {200, 650 - 8.0 * sample});
        if (++sample == kSamplesPerStroke) {
            touches.touchUp(finger);
            sample = 0;
        }
    }
    if (finger && sample != 0) touches.touchUp(finger);
    state.SetItemsProcessed(state.iterations());
}

void BM_SampleWithoutShim(benchmark::State& state) {
    strokes(state, false);
}
void BM_SampleWithShimLibraryStopped(benchmark::State& state) {
    strokes(state, true);
}

void BM_SampleWithShimLibraryRunning(benchmark::State& state) {
    auto configuration = std::make_shared<quillmere::Configuration>("bench");
    configuration->setServerURL("http://127.0.0.1:9/i");
    configuration->setLogCaptureEnabled(false);
    configuration->setViewScanningEnabled(false);
    configuration->setNetworkCaptureEnabled(false);
    if (!quillmere::SDK::initialize(configuration)) {
        state.SkipWithError("the library did not start");
        return;
    }
    strokes(state, true);
    quillmere::SDK::shutdown();
}

BENCHMARK(BM_SampleWithoutShim);
BENCHMARK(BM_SampleWithShimLibraryStopped);
BENCHMARK(BM_SampleWithShimLibraryRunning);

}  // namespace
