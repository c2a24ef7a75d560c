#pragma once
// Dispatch timer sources: makeTimerSource(flags:queue:), schedule(deadline:repeating:leeway:),
// setEventHandler, activate, cancel, isCancelled.
#include <functional>
#include <memory>

#include "platform/dispatch/DispatchQueue.h"
#include "platform/dispatch/DispatchTime.h"

namespace platform {

enum class DispatchTimerFlags { none, strict };
enum class DispatchWorkItemFlags { none };

// A timer source delivers its handler on its queue. It does nothing until activated.
// A one-shot schedule (repeating never) fires once; scheduling again, also from the handler,
// arms it anew. After cancel() returns the handler is not started again. The source holds
// its handler strongly; a handler that must not keep its owner alive captures it weakly.
// Dropping the last reference to a source stops it.
class DispatchSourceTimer {
public:
    virtual ~DispatchSourceTimer() = default;

    static std::shared_ptr<DispatchSourceTimer> makeTimerSource(DispatchTimerFlags flags,
                                                                dispatch_queue_t queue);

    virtual void schedule(DispatchTime deadline,
                          DispatchTimeInterval repeating = DispatchTimeInterval::never(),
                          DispatchTimeInterval leeway = DispatchTimeInterval::nanosecondsInterval(0)) = 0;
    virtual void setEventHandler(DispatchQoS qos, DispatchWorkItemFlags flags, std::function<void()> handler) = 0;
    void setEventHandler(std::function<void()> handler) {
        setEventHandler(DispatchQoS::unspecified, DispatchWorkItemFlags::none, std::move(handler));
    }
    virtual void activate() = 0;
    virtual void cancel() = 0;
    virtual bool isCancelled() const = 0;
};

}  // namespace platform
