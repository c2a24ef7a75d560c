#include "capture/screen/RootViewScanner.h"

#include <cstdint>
#include <exception>
#include <utility>
#include <vector>

#include "capture/screen/RecursiveViewProcessor.h"
#include "capture/touch/TouchShim.h"
#include "platform/coregraphics/CGGeometry.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/foundation/NSThread.h"
#include "platform/uikit/UIApplication.h"
#include "platform/uikit/UIScreen.h"
#include "platform/uikit/UIViewController.h"

namespace quillmere {

namespace {

// The wire's size fields are 32-bit. Every real screen fits; for anything else the nearest value
// that does: NaN and negative sizes give 0, sizes past the range its maximum. Within it, the
// points are truncated toward zero.
uint32_t wireDimension(platform::CGFloat points) {
    if (!(points > 0)) return 0;
    if (points >= 4294967296.0) return UINT32_MAX;
    return static_cast<uint32_t>(points);
}

}  // namespace

std::shared_ptr<RootViewScanner> RootViewScanner::make(std::weak_ptr<EventSink> sink,
                                                       const Configuration& configuration) {
    return std::shared_ptr<RootViewScanner>(new RootViewScanner(std::move(sink), configuration));
}

RootViewScanner::RootViewScanner(std::weak_ptr<EventSink> sink, const Configuration& configuration)
    : sink_(std::move(sink)),
      timer_(PacedTimer::make(platform::DispatchQueue::global(platform::DispatchQoS::default_),
                              platform::DispatchTimeInterval::milliseconds(kRepeatIntervalMilliseconds))),
      registerTouchHandlers_(configuration.registerTouchHandlers()),
      viewProcessor_(std::make_unique<RecursiveViewProcessor>(configuration.redactionTags())),
      trackedWindows_(platform::NSHashTable<platform::UIWindow>::weakObjectsHashTable()) {}

void RootViewScanner::start() {
    // Weakly: a pending firing must not keep a dropped scanner alive.
    timer_->start([weak = weak_from_this()] {
        if (const auto self = weak.lock()) self->captureScreen();
    });
}

void RootViewScanner::stop() {
    timer_->cancel();
    detachTouchShims();
}

void RootViewScanner::captureScreen() {
    // The hop below would wait for this very thread.
    if (platform::NSThread::isMainThread()) return;
    try {
        PendingCapture capture;
        platform::dispatch_sync(platform::DispatchQueue::main(), [this, &capture] {
            try {
                scanWindows(capture);
            } catch (const std::exception&) {
                // Out of memory while drawing: this capture goes out without a page.
                capture.page.reset();
            }
        });
        // Only now are the PDF's bytes made from what the walk recorded: reading them here, on the
        // timer's thread, keeps that work off the main thread.
        if (capture.page) capture.message.set_pdfdata(capture.page->bytes(), capture.page->length());
        capture.page.reset();
        const platform::CGRect screen = platform::UIScreen::mainScreen()->bounds();
        capture.message.set_height(wireDimension(platform::CGRectGetHeight(screen)));
        capture.message.set_width(wireDimension(platform::CGRectGetWidth(screen)));
        if (const auto sink = sink_.lock()) sink->addEvent(EventType::pdfViewCapture, std::move(capture.message));
    } catch (const std::exception&) {
        // Only allocation can fail here; the capture is lost, and scanning goes on.
    }
}

void RootViewScanner::scanWindows(PendingCapture& capture) {
    std::vector<std::shared_ptr<platform::UIView>> rootViews;
    // Every window counts that has a root view controller with a view, hidden or not, key or not:
    // whether its view is drawn is the processor's call, and the recognizer goes on regardless.
    for (const auto& window : platform::UIApplication::sharedApplication()->windows()) {
        const auto controller = window->rootViewController();
        if (!controller) continue;
        auto view = controller->view();
        if (!view) continue;
        rootViews.push_back(std::move(view));

        if (registerTouchHandlers_ && !shimsDetached_ && !trackedWindows_->containsObject(window)) {
            // On the window itself, not its root view, so touches anywhere in it are seen.
            auto shim = TouchShim::make(sink_);
            window->addGestureRecognizer(shim);
            attachedShims_.push_back(shim);
            trackedWindows_->addObject(window);
        }
    }
    // Kept unread: reading the bytes is what makes the document, and that waits for the timer's thread.
    capture.page = viewProcessor_->renderViews(rootViews);
}

void RootViewScanner::detachTouchShims() {
    if (!platform::NSThread::isMainThread()) {
        platform::DispatchQueue::main()->async([self = shared_from_this()] { self->detachTouchShims(); });
        return;
    }
    shimsDetached_ = true;
    for (const auto& weak : attachedShims_) {
        const auto shim = weak.lock();
        if (!shim) continue;
        if (const auto view = shim->view()) view->removeGestureRecognizer(shim);
    }
    attachedShims_.clear();
    trackedWindows_->removeAllObjects();
}

}  // namespace quillmere
