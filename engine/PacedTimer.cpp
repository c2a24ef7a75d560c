#include "engine/PacedTimer.h"

#include <utility>

namespace quillmere {

std::shared_ptr<PacedTimer> PacedTimer::make(platform::dispatch_queue_t queue,
                                             platform::DispatchTimeInterval interval) {
    return std::shared_ptr<PacedTimer>(new PacedTimer(std::move(queue), interval));
}

PacedTimer::PacedTimer(platform::dispatch_queue_t queue, platform::DispatchTimeInterval interval)
    : interval_(interval),
      source_(platform::DispatchSourceTimer::makeTimerSource(platform::DispatchTimerFlags::none, std::move(queue))) {}

PacedTimer::~PacedTimer() {
    // Also from the work itself, when its run drops the last reference: the source outlives the
    // handler it is running.
    source_->cancel();
}

void PacedTimer::start(std::function<void()> work) {
    if (source_->isCancelled()) return;
    arm();
    // Weakly: a dropped timer stops, whatever its handler holds.
    source_->setEventHandler(platform::DispatchQoS::unspecified, platform::DispatchWorkItemFlags::none,
                             [weak = weak_from_this(), work = std::move(work)] {
                                 work();
                                 // The pause runs from here. After a cancel this arms nothing.
                                 if (const auto self = weak.lock()) self->arm();
                             });
    source_->activate();
}

void PacedTimer::cancel() {
    source_->cancel();
}

bool PacedTimer::isCancelled() const {
    return source_->isCancelled();
}

void PacedTimer::arm() {
    source_->schedule(platform::DispatchTime::now() + interval_, platform::DispatchTimeInterval::never(),
                      platform::DispatchTimeInterval::nanosecondsInterval(0));
}

}  // namespace quillmere
