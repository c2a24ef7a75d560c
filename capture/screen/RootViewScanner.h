#pragma once
// Screen capture's clock and window pass. About once a second the scanner takes the root view of
// every window that has one, has them drawn into a one-page PDF, and hands the page with the
// screen's size to its sink as a qm.ios.PDFViewCapture. The same pass puts the touch recognizer on
// windows that have none yet, reporting to the same sink, so touch capture runs only while scanning
// does.
//
// The timer is paced: the pause of one interval runs from the end of a capture to the start of the
// next, so a slow capture lowers the rate and two captures never overlap.
//
// Threads: make, start and stop on the caller's thread; captures on the global queue, with the walk
// of views on the main thread while the capturing thread waits. The scanner holds its sink weakly
// (the sink, a Core, owns the scanner): with the sink gone, captures go nowhere. The timer holds
// the scanner weakly.
#include <cstdint>
#include <memory>
#include <vector>

#include "capture/screen/ViewProcessor.h"
#include "engine/Configuration.h"
#include "engine/EventSink.h"
#include "engine/PacedTimer.h"
#include "platform/foundation/NSData.h"
#include "platform/foundation/NSHashTable.h"
#include "platform/uikit/UIWindow.h"
#include "wire/qm_ios.pb.h"

namespace quillmere {

class TouchShim;

class RootViewScanner : public std::enable_shared_from_this<RootViewScanner> {
public:
    static constexpr int64_t kRepeatIntervalMilliseconds = 1000;

    // A capture while it is being made: the timer's thread owns it, and the main thread fills it
    // only while that thread waits for it.
    struct PendingCapture {
        qm::ios::PDFViewCapture message;
        // The page as the processor gave it; its bytes are not read yet.
        std::shared_ptr<platform::NSData> page;
    };

    // Copies what it needs of `configuration` now (redaction tags, whether to register touch
    // handlers): later changes to it have no effect here. Starts nothing.
    static std::shared_ptr<RootViewScanner> make(std::weak_ptr<EventSink> sink,
                                                 const Configuration& configuration);

    RootViewScanner(const RootViewScanner&) = delete;
    RootViewScanner& operator=(const RootViewScanner&) = delete;

    // Arms the timer for the first capture one interval from now. Call once; after stop it does
    // nothing.
    void start();
    // Stops scanning for good, and takes the touch recognizers off their windows (see
    // detachTouchShims). A capture under way still finishes and sends its event.
    void stop();

    // One whole capture. Does nothing at all on the main thread, whose queue it has to wait for;
    // any other thread may call it.
    void captureScreen();
    // Main thread: collects the root views, attaches missing touch recognizers, and leaves the page
    // in `capture`.
    void scanWindows(PendingCapture& capture);

    // Main thread only. The windows that already carry a touch recognizer, held weakly.
    const platform::NSHashTable<platform::UIWindow>& trackedWindows() const { return *trackedWindows_; }

    // Takes every touch recognizer this scanner attached off its window and forgets the windows;
    // no capture attaches one afterwards. On the main thread at once; from any other thread later,
    // on the main queue, since waiting for the main thread could wait for a host thread that waits
    // for this one.
    void detachTouchShims();

private:
    RootViewScanner(std::weak_ptr<EventSink> sink, const Configuration& configuration);

    // Set at construction, never changed.
    const std::weak_ptr<EventSink> sink_;
    const std::shared_ptr<PacedTimer> timer_;
    const bool registerTouchHandlers_;
    const std::unique_ptr<const ViewProcessor> viewProcessor_;
    const std::shared_ptr<platform::NSHashTable<platform::UIWindow>> trackedWindows_;  // main thread only
    // Main thread only. The shims attached, held weakly: each belongs to its window.
    std::vector<std::weak_ptr<TouchShim>> attachedShims_;
    bool shimsDetached_ = false;  // main thread only
};

}  // namespace quillmere
