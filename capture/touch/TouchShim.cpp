#include "capture/touch/TouchShim.h"

#include <exception>
#include <mutex>
#include <utility>

namespace quillmere {

namespace {

using platform::UITouch;
using platform::UITouchSet;
using qm::ios::TouchEvent;

TouchShim::PendingMoves::Sample sampleOf(const UITouch& touch) {
    const platform::CGPoint p = touch.locationInView(nullptr);
    return {static_cast<float>(p.x), static_cast<float>(p.y), touch.timestamp() * 1000.0};
}

TouchEvent messageAt(TouchEvent::MotionType type, const TouchShim::PendingMoves::Sample& head) {
    TouchEvent message;
    message.set_type(type);
    message.set_x(head.x);
    message.set_y(head.y);
    message.set_eventtime(head.eventTime);
    return message;
}

void addMoves(TouchEvent& message, const std::vector<TouchShim::PendingMoves::Sample>& samples,
              std::size_t count) {
    auto* moves = message.mutable_moves();
    moves->Reserve(static_cast<int>(count));
    for (std::size_t i = 0; i < count; ++i) {
        auto* move = moves->Add();
        move->set_x(samples[i].x);
        move->set_y(samples[i].y);
        move->set_eventtime(samples[i].eventTime);
    }
}

}  // namespace

void TouchShim::hand(TouchEvent message) {
    if (const auto sink = sink_.lock()) sink->addEvent(EventType::touchEvent, std::move(message));
}

void TouchShim::exportToRuntime() {
    static std::once_flag once;
    std::call_once(once, [] {
        // The one delegate answer it gives: it recognizes together with every other recognizer.
        platform::class_addMethod(
            class_(),
            platform::sel_getUid(platform::UIGestureRecognizerDelegate::shouldRecognizeSimultaneously),
            platform::imp_makeFunction<platform::BOOL, UIGestureRecognizer*, UIGestureRecognizer*>(
                [](platform::NSObject*, platform::SEL, UIGestureRecognizer*, UIGestureRecognizer*) {
                    return platform::YES;
                }));
    });
}

TouchShim::TouchShim() : trackedTouches_(TrackedTouches::weakToStrongObjectsMapTable()) {
    // The base initializer ran with no target and no action; nothing it does may reach the views.
    setCancelsTouchesInView(false);
    setDelaysTouchesBegan(false);
    setDelaysTouchesEnded(false);
}

void TouchShim::encodeBegan(const UITouchSet& touches) {
    for (const auto& touch : touches) {
        if (trackedTouches_->objectForKey(touch)) continue;
        auto pending = std::make_shared<PendingMoves>();
        pending->samples.reserve(moveBatchLimit);
        trackedTouches_->setObjectForKey(std::move(pending), touch);
        hand(messageAt(TouchEvent::DOWN, sampleOf(*touch)));
    }
}

void TouchShim::encodeMoved(const UITouchSet& touches) {
    for (const auto& touch : touches) {
        const auto pending = trackedTouches_->objectForKey(touch);
        if (!pending) continue;
        auto& samples = pending->samples;
        if (samples.size() < moveBatchLimit) {
            samples.push_back(sampleOf(*touch));
            continue;
        }
        // The 11th sample heads the message that carries the 10 before it.
        TouchEvent message = messageAt(TouchEvent::MOVE, sampleOf(*touch));
        addMoves(message, samples, samples.size());
        hand(std::move(message));
        samples.clear();
    }
}

void TouchShim::encodeEnded(const UITouchSet& touches) {
    for (const auto& touch : touches) {
        const auto pending = trackedTouches_->objectForKey(touch);
        if (!pending) continue;
        const auto& samples = pending->samples;
        if (!samples.empty()) {
            // The newest buffered sample heads the last MOVE; where the touch lifts is the UP's.
            TouchEvent message = messageAt(TouchEvent::MOVE, samples.back());
            addMoves(message, samples, samples.size() - 1);
            hand(std::move(message));
        }
        trackedTouches_->removeObjectForKey(touch);
        hand(messageAt(TouchEvent::UP, sampleOf(*touch)));
    }
}

bool TouchShim::canBePreventedByGestureRecognizer(const UIGestureRecognizer*) const {
    return false;
}
bool TouchShim::canPreventGestureRecognizer(const UIGestureRecognizer*) const {
    return false;
}
void TouchShim::ignoreTouch(const std::shared_ptr<UITouch>&, platform::UIEvent*) {}
void TouchShim::ignorePress(const platform::id&, platform::UIEvent*) {}
bool TouchShim::shouldRequireFailureOfGestureRecognizer(const UIGestureRecognizer*) const {
    return false;
}
bool TouchShim::shouldBeRequiredToFailByGestureRecognizer(const UIGestureRecognizer*) const {
    return false;
}

// The platform calls these in the middle of event delivery: nothing may escape to it.
void TouchShim::touchesBegan(const UITouchSet& touches, platform::UIEvent*) {
    try {
        encodeBegan(touches);
    } catch (const std::exception&) {
        // Out of memory: the touch goes unreported.
    }
}

void TouchShim::touchesCancelled(const UITouchSet& touches, platform::UIEvent* event) {
    touchesEnded(touches, event);
}

void TouchShim::touchesEnded(const UITouchSet& touches, platform::UIEvent*) {
    try {
        encodeEnded(touches);
    } catch (const std::exception&) {
    }
}

void TouchShim::touchesMoved(const UITouchSet& touches, platform::UIEvent*) {
    try {
        encodeMoved(touches);
    } catch (const std::exception&) {
    }
}

}  // namespace quillmere
