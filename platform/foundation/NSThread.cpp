#include "platform/foundation/NSThread.h"

#include <thread>

namespace platform {
namespace {

// Whichever of the initializer below or an earlier isMainThread() from another translation unit's
// static initialisation comes first records the id; both run on the thread that starts the process.
const std::thread::id& mainThreadId() {
    static const std::thread::id id = std::this_thread::get_id();
    return id;
}

[[maybe_unused]] const bool mainThreadRecorded = (mainThreadId(), true);

}  // namespace

bool NSThread::isMainThread() { return std::this_thread::get_id() == mainThreadId(); }

}  // namespace platform
