#pragma once
// A global concurrent queue: its blocks go to the shared worker pool and may run at once.
#include <string>

#include "platform/dispatch/DispatchQueue.h"

namespace platform::detail {

class GlobalQueue final : public DispatchQueue {
public:
    GlobalQueue(std::string label, DispatchQoS qos) : label_(std::move(label)), qos_(qos) {}

    const std::string& label() const override { return label_; }
    DispatchQoS qos() const override { return qos_; }
    bool isSerial() const override { return false; }

    void async(Block block) override;
    // Runs the block on the caller's thread, as the platform does for concurrent queues.
    void sync(Block block) override;

private:
    const std::string label_;
    const DispatchQoS qos_;
};

}  // namespace platform::detail
