#pragma once
// Touch capture: a gesture recognizer on each window that sees every touch reaching the window and
// reports it as qm.ios.TouchEvent messages, without taking part in recognition. It never leaves
// Possible, has no target, and is set up so that nothing it does can change what the host's views
// and recognizers get: it cancels and delays no touches, recognizes together with every other
// recognizer, can neither prevent nor be prevented, and neither waits for nor is waited for by any
// other. (React Native's touch handler asks otherwise of its delegate; QLMReactNativeSwizzler
// answers for it.)
//
// A touch gives one DOWN, then MOVE messages each carrying up to moveBatchLimit earlier samples
// in `moves` with the newest sample at its head, then one UP; a cancelled touch ends as an ended
// one does. Positions are window points narrowed to float, times the touch's uptime in
// milliseconds. Each message goes to the shim's sink when it is built; with none (gone, or never
// given) it is dropped, and the bookkeeping goes on all the same.
//
// Exported to the runtime as QLMTouchShim. A window owns its shim; the scanner that added it keeps
// it only weakly, and takes it off the window at shutdown (see RootViewScanner), so a later start
// adds a new one, reporting to the new session. Main thread only, where the platform delivers
// touches.
#include <cstddef>
#include <memory>
#include <vector>

#include "engine/EventSink.h"
#include "platform/foundation/NSMapTable.h"
#include "platform/uikit/UIGestureRecognizer.h"
#include "platform/uikit/UITouch.h"
#include "wire/qm_ios.pb.h"

namespace quillmere {

class TouchShim : public platform::UIGestureRecognizer {
    PLATFORM_OBJC_CLASS_NAMED(TouchShim, platform::UIGestureRecognizer, "QLMTouchShim")
public:
    static constexpr std::size_t moveBatchLimit = 10;

    // A touch's samples not sent yet, oldest first, held as plain values; never more than
    // moveBatchLimit.
    struct PendingMoves {
        struct Sample {
            float x;
            float y;
            double eventTime;
        };
        std::vector<Sample> samples;
    };
    using TrackedTouches = platform::NSMapTable<platform::UITouch, PendingMoves>;

    // The one way to make a shim (init): T is TouchShim or a subclass with a public default
    // constructor. Its messages go to `sink`, held weakly.
    template <class T = TouchShim>
    static std::shared_ptr<T> make(std::weak_ptr<EventSink> sink = {}) {
        exportToRuntime();
        auto shim = std::make_shared<T>();
        shim->sink_ = std::move(sink);
        // Its own delegate, held weakly like any.
        shim->setDelegate(shim);
        return shim;
    }
    // Adds the class and its delegate answer to the runtime; idempotent, any thread.
    static void exportToRuntime();
    // Whether `recognizer` is of exactly this class: a subclass is somebody else's recognizer.
    static bool isExactly(const platform::UIGestureRecognizer* recognizer) {
        return recognizer != nullptr && recognizer->isMemberOfClass(class_());
    }

    TouchShim();

    // The touches between their begin and end, each with its unsent samples; weak keys, so a touch
    // that goes away without ending leaves by itself.
    const TrackedTouches& trackedTouches() const { return *trackedTouches_; }

    void encodeBegan(const platform::UITouchSet& touches);
    void encodeMoved(const platform::UITouchSet& touches);
    void encodeEnded(const platform::UITouchSet& touches);

    bool canBePreventedByGestureRecognizer(const UIGestureRecognizer* other) const override;
    bool canPreventGestureRecognizer(const UIGestureRecognizer* other) const override;
    void ignoreTouch(const std::shared_ptr<platform::UITouch>& touch, platform::UIEvent* event) override;
    void ignorePress(const platform::id& press, platform::UIEvent* event) override;
    bool shouldRequireFailureOfGestureRecognizer(const UIGestureRecognizer* other) const override;
    bool shouldBeRequiredToFailByGestureRecognizer(const UIGestureRecognizer* other) const override;
    void touchesBegan(const platform::UITouchSet& touches, platform::UIEvent* event) override;
    void touchesCancelled(const platform::UITouchSet& touches, platform::UIEvent* event) override;
    void touchesEnded(const platform::UITouchSet& touches, platform::UIEvent* event) override;
    void touchesMoved(const platform::UITouchSet& touches, platform::UIEvent* event) override;

private:
    // With no sink the message goes nowhere.
    void hand(qm::ios::TouchEvent message);

    const std::shared_ptr<TrackedTouches> trackedTouches_;  // main thread only
    std::weak_ptr<EventSink> sink_;  // set by make, before the shim is shared; immutable after
};

}  // namespace quillmere
