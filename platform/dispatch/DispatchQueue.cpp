#include "platform/dispatch/DispatchQueue.h"

#include <array>

#include "platform/dispatch/detail/GlobalQueue.h"
#include "platform/dispatch/detail/SerialQueue.h"
#include "platform/dispatch/detail/TimerThread.h"

namespace platform {
namespace {

constexpr std::size_t kBlocksPerDrain = 16;

DispatchQoS effectiveQoS(DispatchQoS qos) { return qos == DispatchQoS::unspecified ? DispatchQoS::default_ : qos; }

const char* globalLabel(DispatchQoS qos) {
    switch (qos) {
        case DispatchQoS::background: return "com.apple.root.background-qos";
        case DispatchQoS::utility: return "com.apple.root.utility-qos";
        case DispatchQoS::userInitiated: return "com.apple.root.user-initiated-qos";
        case DispatchQoS::userInteractive: return "com.apple.root.user-interactive-qos";
        case DispatchQoS::unspecified:
        case DispatchQoS::default_: break;
    }
    return "com.apple.root.default-qos";
}

}  // namespace

std::shared_ptr<DispatchQueue> DispatchQueue::main() {
    // Never destroyed, so blocks posted while the process exits find it.
    static const auto* const queue = new std::shared_ptr<DispatchQueue>(std::make_shared<detail::MainQueue>());
    return *queue;
}

std::shared_ptr<DispatchQueue> DispatchQueue::global(DispatchQoS qos) {
    constexpr std::size_t kClasses = static_cast<std::size_t>(DispatchQoS::userInteractive) + 1;
    // Never destroyed, as main().
    static const auto* const queues = [] {
        auto* made = new std::array<std::shared_ptr<DispatchQueue>, kClasses>();
        for (std::size_t i = 1; i < kClasses; ++i) {
            const auto q = static_cast<DispatchQoS>(i);
            (*made)[i] = std::make_shared<detail::GlobalQueue>(globalLabel(q), q);
        }
        return made;
    }();
    return (*queues)[static_cast<std::size_t>(effectiveQoS(qos))];
}

std::shared_ptr<DispatchQueue> DispatchQueue::makeSerial(std::string label, DispatchQoS qos,
                                                         std::shared_ptr<DispatchQueue> target) {
    if (!target) target = global(effectiveQoS(qos));
    return std::make_shared<detail::SerialQueue>(std::move(label), qos, std::move(target), kBlocksPerDrain);
}

void DispatchQueue::asyncAfter(DispatchTime deadline, Block block) {
    if (!block || deadline == DispatchTime::distantFuture()) return;
    if (deadline <= DispatchTime::now()) {
        async(std::move(block));
        return;
    }
    detail::TimerThread::shared().add(deadline, [self = shared_from_this(), block = std::move(block)]() mutable {
        self->async(std::move(block));
    });
}

}  // namespace platform
