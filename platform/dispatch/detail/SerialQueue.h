#pragma once
// A serial queue: its blocks run one at a time, in submission order. It never runs blocks itself;
// while it has any, exactly one "drain" of it is handed to its target (another queue, or for the
// main queue the main run loop), so whatever the target does, no two of its blocks overlap.
#include <deque>
#include <memory>
#include <mutex>
#include <string>

#include "platform/dispatch/DispatchQueue.h"

namespace platform::detail {

class SerialQueue : public DispatchQueue {
public:
    // `target` may be null only for a subclass that overrides postDrain().
    SerialQueue(std::string label, DispatchQoS qos, std::shared_ptr<DispatchQueue> target,
                std::size_t blocksPerDrain);

    const std::string& label() const override { return label_; }
    DispatchQoS qos() const override { return qos_; }
    bool isSerial() const override { return true; }

    void async(Block block) override;
    // Queues the block and waits for it to have run on the queue.
    void sync(Block block) override;

protected:
    // Hands `drain` to whatever runs this queue's blocks. Called with no lock held.
    virtual void postDrain(Block drain);

private:
    void drain();
    void scheduleDrain();

    const std::string label_;
    const DispatchQoS qos_;
    const std::shared_ptr<DispatchQueue> target_;
    // How many blocks one drain runs before handing the target back, so a busy queue does not
    // starve the others sharing its target.
    const std::size_t blocksPerDrain_;

    std::mutex mutex_;
    std::deque<Block> blocks_;  // guarded by mutex_
    bool drainPosted_ = false;  // guarded by mutex_; a drain is queued on the target or running
};

// The main queue: a serial queue drained by the main thread's run loop, one block per turn.
class MainQueue final : public SerialQueue {
public:
    MainQueue();

protected:
    void postDrain(Block drain) override;
};

}  // namespace platform::detail
