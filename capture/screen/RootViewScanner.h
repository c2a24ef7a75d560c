#pragma once
// Screen capture's clock and window pass. About once a second the scanner takes the root view of
// every window that has one, has them drawn into a one-page PDF, and hands the page with the
// screen's size to its Core as a qm.ios.PDFViewCapture. The same pass puts the touch recognizer on
// windows that have none yet, so touch capture runs only while scanning does.
//
// The timer is one-shot and re-armed when a capture has ended, so the pause of one interval runs
// from the end of a capture to the start of the next: a slow capture lowers the rate and two
// captures never overlap.
//
// Threads: make, start and the timer's cancellation on the caller's thread; captures on the global
// queue, with the walk of views on the main thread while the capturing thread waits. The scanner
// holds its Core strongly, and the Core holds the scanner: they stay alive together. The timer
// holds the scanner weakly.
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "capture/screen/ViewProcessor.h"
#include "engine/Configuration.h"
#include "platform/dispatch/DispatchSourceTimer.h"
#include "platform/dispatch/DispatchTime.h"
#include "platform/foundation/NSData.h"
#include "platform/foundation/NSHashTable.h"
#include "platform/uikit/UIWindow.h"
#include "wire/qm_ios.pb.h"

namespace quillmere {

class Core;
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
    static std::shared_ptr<RootViewScanner> make(std::shared_ptr<Core> eventAdder,
                                                 const Configuration& configuration);

    RootViewScanner(const RootViewScanner&) = delete;
    RootViewScanner& operator=(const RootViewScanner&) = delete;

    // Arms the timer for the first capture one interval from now. Call once; never after the
    // timer has been cancelled, after which the scanner stays stopped.
    void start();
    // Made, inactive, on first use and kept for the scanner's life. Cancelling it stops scanning;
    // a capture under way still finishes and sends its event.
    std::shared_ptr<platform::DispatchSourceTimer> timer();

    // One whole capture, then the timer re-armed. Does nothing at all on the main thread, whose
    // queue it has to wait for; any other thread may call it.
    void captureScreen();
    // Main thread: collects the root views, attaches missing touch recognizers, and leaves the page
    // in `capture`.
    void scanWindows(PendingCapture& capture);

    platform::DispatchTimeInterval repeatInterval() const { return repeatInterval_; }
    bool registerTouchHandlers() const { return registerTouchHandlers_; }
    const ViewProcessor& viewProcessor() const { return *viewProcessor_; }
    // Main thread only. The windows that already carry a touch recognizer, held weakly.
    const platform::NSHashTable<platform::UIWindow>& trackedWindows() const { return *trackedWindows_; }

    // Takes every touch recognizer this scanner attached off its window and forgets the windows;
    // no capture attaches one afterwards. On the main thread at once; from any other thread later,
    // on the main queue, since waiting for the main thread could wait for a host thread that waits
    // for this one.
    void detachTouchShims();

private:
    RootViewScanner(std::shared_ptr<Core> eventAdder, const Configuration& configuration);

    // One firing, one interval from now, with no leeway.
    void armOnce(platform::DispatchSourceTimer& source) const;

    // Set at construction, never changed.
    const std::shared_ptr<Core> eventAdder_;
    const platform::DispatchTimeInterval repeatInterval_;
    const bool registerTouchHandlers_;
    const std::unique_ptr<const ViewProcessor> viewProcessor_;
    const std::shared_ptr<platform::NSHashTable<platform::UIWindow>> trackedWindows_;  // main thread only
    // Main thread only. The shims attached, held weakly: each belongs to its window.
    std::vector<std::weak_ptr<TouchShim>> attachedShims_;
    bool shimsDetached_ = false;  // main thread only

    std::mutex timerMutex_;
    std::shared_ptr<platform::DispatchSourceTimer> timer_;  // guarded by timerMutex_; made lazily
};

}  // namespace quillmere
