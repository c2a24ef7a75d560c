#pragma once
// Log events: what the host process writes to descriptors 1 and 2, and the host's explicit log
// calls.
//
// Once started, descriptors 1 and 2 are pipes that the handler drains. Every piece read is written
// on, byte for byte, to where the descriptor pointed before, so the console shows what it would
// have shown; a piece that is ASCII text also becomes one qm.core.LogEvent (LOG for stdout, ERROR
// for stderr). A piece is what one read gave: part of a line, several lines, never cut further.
//
// Threads: make and start on the thread that calls SDK::initialize, which must run its run loop:
// the pieces arrive there, one at a time. The handler holds its Core strongly and the Core holds
// the handler, so the two stay alive together; the pipes and pending reads outlive shutdown.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/foundation/NSNotification.h"
#include "platform/foundation/NSObject.h"
#include "platform/foundation/NSPipe.h"
#include "wire/qm_core.pb.h"

namespace quillmere {

class Core;

class LogHandler final : public platform::NSObject {
    PLATFORM_OBJC_CLASS_NAMED(LogHandler, platform::NSObject, "Quillmere.LogHandler")
public:
    // The selector observed for the pipes' read completions, the class's one method known to the
    // runtime.
    static constexpr const char* kPipeNotificationSelector = "handlePipeNotificationWithNotification:";

    // Takes copies of descriptors 1 and 2 now, whether or not capture is ever started: they are
    // what Core::shutdown restores. Nothing is redirected yet.
    static std::shared_ptr<LogHandler> make(std::shared_ptr<Core> eventAdder);

    // Makes the C streams unbuffered, puts pipes behind descriptors 1 and 2 and arms the first read
    // of each. When a pipe cannot be made, no descriptor is touched and nothing is captured. Call
    // once, on a thread that runs its run loop.
    void start();

    // One piece read from either pipe: arms the next read of that pipe, writes the piece on to its
    // console and adds its event. Run loop of the thread that called start.
    void handlePipeNotificationWithNotification(
        const std::shared_ptr<platform::NSNotification>& notification);

    // Copies of descriptors 1 and 2 as they were when the handler was made; -1 if dup failed.
    int32_t stdoutCopy() const { return stdoutCopy_; }
    int32_t stderrCopy() const { return stderrCopy_; }

    // The event of one addLog call: the level by exact name (anything else is LOG), each argument
    // as it is, no tag. Any thread.
    static qm::core::LogEvent logEventFrom(const std::string& level, const std::vector<std::string>& args);

private:
    explicit LogHandler(std::shared_ptr<Core> eventAdder);

    const std::shared_ptr<Core> eventAdder_;  // immutable
    // Guarded by confinement to the thread that called start: start sets them before it arms the
    // first reads, and the handler, which those reads call back on that thread, only reads them.
    std::shared_ptr<platform::NSPipe> stdoutInputPipe_;
    std::shared_ptr<platform::NSPipe> stderrInputPipe_;
    std::shared_ptr<platform::NSPipe> stdoutOutputPipe_;
    std::shared_ptr<platform::NSPipe> stderrOutputPipe_;
    // Immutable: taken at construction, read by Core::shutdown on whichever thread calls it.
    const int32_t stdoutCopy_;
    const int32_t stderrCopy_;
};

}  // namespace quillmere
