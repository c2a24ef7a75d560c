#pragma once
// Dispatch queues: serial queues with a label, a QoS class and a target; the global concurrent
// queues by QoS class; the main queue, served by the main thread's run loop.
#include <functional>
#include <memory>
#include <string>

#include "platform/dispatch/DispatchTime.h"

namespace platform {

enum class DispatchQoS { unspecified, background, utility, default_, userInitiated, userInteractive };

// Queues are shared: any thread may submit to any queue. A queue with blocks pending is kept
// alive until they have run.
class DispatchQueue : public std::enable_shared_from_this<DispatchQueue> {
public:
    using Block = std::function<void()>;

    virtual ~DispatchQueue() = default;

    // The serial queue whose blocks the main thread runs from its run loop.
    static std::shared_ptr<DispatchQueue> main();
    // The process-wide concurrent queue of a QoS class; the same object for the same class.
    static std::shared_ptr<DispatchQueue> global(DispatchQoS qos = DispatchQoS::default_);
    // A new serial queue. With no target it targets the global queue of its QoS class (of
    // `default_` when unspecified). Blocks run one at a time in submission order, whatever the
    // target.
    static std::shared_ptr<DispatchQueue> makeSerial(std::string label,
                                                     DispatchQoS qos = DispatchQoS::unspecified,
                                                     std::shared_ptr<DispatchQueue> target = nullptr);

    virtual const std::string& label() const = 0;
    virtual DispatchQoS qos() const = 0;
    virtual bool isSerial() const = 0;

    // Submits and returns at once.
    virtual void async(Block block) = 0;
    // Submits and returns after the block has run. Calling it for the queue one is running on
    // deadlocks, as on the platform.
    virtual void sync(Block block) = 0;
    // Submits at `deadline` (at once when it has passed; never for distantFuture). The queue is
    // kept alive until then.
    void asyncAfter(DispatchTime deadline, Block block);
};

using dispatch_queue_t = std::shared_ptr<DispatchQueue>;

inline void dispatch_async(const dispatch_queue_t& queue, DispatchQueue::Block block) { queue->async(std::move(block)); }
inline void dispatch_sync(const dispatch_queue_t& queue, DispatchQueue::Block block) { queue->sync(std::move(block)); }
inline dispatch_queue_t dispatch_get_main_queue() { return DispatchQueue::main(); }
inline dispatch_queue_t dispatch_get_global_queue(DispatchQoS qos) { return DispatchQueue::global(qos); }

}  // namespace platform
