#include "platform/dispatch/detail/GlobalQueue.h"

#include "platform/dispatch/detail/WorkerPool.h"

namespace platform::detail {

void GlobalQueue::async(Block block) { WorkerPool::shared().submit(std::move(block)); }

void GlobalQueue::sync(Block block) {
    if (block) block();
}

}  // namespace platform::detail
