#include "engine/TaskQueue.h"

#include "platform/foundation/NSLog.h"

namespace quillmere {

TaskQueue::TaskQueue(std::function<std::shared_ptr<Core>()> currentCore, std::string overflowMessage)
    : currentCore_(std::move(currentCore)), overflowMessage_(std::move(overflowMessage)) {}

void TaskQueue::enqueue(CoreTask task) {
    if (!task) return;
    {
        std::unique_lock lock(tasksMutex_);
        if (!flushed_.value()) {
            if (tasks_.size() < kMaximumTasks) {
                tasks_.push_back(std::move(task));
                return;
            }
            lock.unlock();
            if (overflowWarned_.compareAndSet(false, true)) platform::NSLog(overflowMessage_);
            return;
        }
    }
    if (auto core = currentCore_()) run(task, core);
}

void TaskQueue::flush(const std::shared_ptr<Core>& core) {
    if (!flushed_.compareAndSet(false, true)) return;
    std::vector<CoreTask> taken;
    {
        std::lock_guard lock(tasksMutex_);
        taken.swap(tasks_);
    }
    for (const auto& task : taken) run(task, core);
}

std::size_t TaskQueue::heldCount() const {
    std::lock_guard lock(tasksMutex_);
    return tasks_.size();
}

void TaskQueue::run(const CoreTask& task, const std::shared_ptr<Core>& core) {
    // A host completion that throws must neither reach the thread it runs on nor stop the tasks
    // behind it.
    try {
        task(core);
    } catch (...) {
        platform::NSLog("Quillmere: A queued task threw an exception; it was abandoned.");
    }
}

}  // namespace quillmere
