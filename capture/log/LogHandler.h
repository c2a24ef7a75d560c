#pragma once
// Log events: what the host process writes to descriptors 1 and 2, and the host's explicit log
// calls.
//
// Once started, descriptors 1 and 2 are pipes, each drained by a thread of the library's own
// (LogDrain). Every piece read is written on, byte for byte, to where the descriptor pointed
// before, so the console shows what it would have shown; a piece that is ASCII text also becomes
// one qm.core.LogEvent (LOG for stdout, ERROR for stderr). A piece is what one read gave: part of a
// line, several lines, never cut further. No thread of the host's runs any of this, and no run
// loop is needed.
//
// Threads: make, start and stop on the host's thread that drives SDK. The handler holds its sink
// weakly (the sink, a Core, owns the handler), and the drains reach the handler back weakly: with
// either gone, what is read still reaches the console and is no longer captured. The handler may
// be released on a drain's own thread, which it then leaves to end by itself.
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "capture/log/LogDrain.h"
#include "engine/EventSink.h"
#include "platform/foundation/NSObject.h"
#include "wire/qm_core.pb.h"

namespace quillmere {

class LogHandler final : public platform::NSObject {
    PLATFORM_OBJC_CLASS_NAMED(LogHandler, platform::NSObject, "Quillmere.LogHandler")
public:
    // How long stop() waits for the drains to pass on what was written before it.
    static constexpr std::chrono::milliseconds kStopPatience{1000};

    // Takes copies of descriptors 1 and 2 now, whether or not capture is ever started: they are
    // what stop() restores. Nothing is redirected yet.
    static std::shared_ptr<LogHandler> make(std::weak_ptr<EventSink> sink);

    // Makes the C streams unbuffered, puts pipes behind descriptors 1 and 2 and starts their
    // drains. When either descriptor is not open, or a pipe or thread cannot be made, no
    // descriptor is touched and nothing is captured. Call once.
    void start();
    // Puts descriptors 1 and 2 back, lets the drains pass on and capture what was written before,
    // ends them (waiting at most kStopPatience) and closes the copies. Also for a handler never
    // started, whose copies it closes. Later calls do nothing.
    void stop();

    // Copies of descriptors 1 and 2 as they were when the handler was made, above 2; -1 if either
    // was not open, and once stop() closed them.
    int32_t stdoutCopy() const { return stdoutCopy_; }
    int32_t stderrCopy() const { return stderrCopy_; }

    // The event of one addLog call: the level by exact name (anything else is LOG), each argument
    // as it is, no tag. Any thread.
    static qm::core::LogEvent logEventFrom(const std::string& level, const std::vector<std::string>& args);

private:
    explicit LogHandler(std::weak_ptr<EventSink> sink);

    // One piece read from a stream: its event, unless it is not ASCII. A drain's thread.
    void capture(bool isStdout, std::string_view piece) noexcept;
    std::unique_ptr<LogDrain> makeDrain(int destination);

    const std::weak_ptr<EventSink> sink_;
    // Confined to the thread that starts and stops.
    std::unique_ptr<LogDrain> stdoutDrain_;
    std::unique_ptr<LogDrain> stderrDrain_;
    int32_t stdoutCopy_;
    int32_t stderrCopy_;
    bool stopped_ = false;
};

}  // namespace quillmere
