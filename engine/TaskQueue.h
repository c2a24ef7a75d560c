#pragma once
// Work the host asked for before the library can carry it out, held until one flush. The facade
// has two of these, for start-up and for the server's first acceptance; both live for the process.
//
// Any thread may enqueue or flush. Tasks run on the thread that enqueues them (once flushed) or on
// the flushing thread, never under the queue's lock.
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "engine/AtomicBool.h"

namespace quillmere {

class Core;

// A host operation with its arguments, waiting for a Core.
using CoreTask = std::function<void(const std::shared_ptr<Core>&)>;

class TaskQueue {
public:
    static constexpr std::size_t kMaximumTasks = 100;

    // `currentCore` gives the running Core or null; `overflowMessage` is logged once per queue when
    // the first task is refused.
    TaskQueue(std::function<std::shared_ptr<Core>()> currentCore, std::string overflowMessage);
    TaskQueue(const TaskQueue&) = delete;
    TaskQueue& operator=(const TaskQueue&) = delete;

    // Before the flush: holds the task, or drops it once 100 are held. After: runs it at once with
    // the running Core, or drops it when none runs.
    void enqueue(CoreTask task);
    // The first call runs every held task in order with `core`; later calls do nothing.
    void flush(const std::shared_ptr<Core>& core);

    std::size_t heldCount() const;

private:
    static void run(const CoreTask& task, const std::shared_ptr<Core>& core);

    const std::function<std::shared_ptr<Core>()> currentCore_;
    const std::string overflowMessage_;
    AtomicBool flushed_{false};
    AtomicBool overflowWarned_{false};

    // Held across the test of flushed_ and the append, so no task slips in after the flush took
    // the list.
    mutable std::mutex tasksMutex_;
    std::vector<CoreTask> tasks_;  // guarded by tasksMutex_
};

}  // namespace quillmere
