#include "capture/log/LogHandler.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <utility>

#include "capture/network/JsonValue.h"
#include "platform/foundation/NSString.h"

namespace quillmere {

namespace {

qm::core::LogEvent_LogLevel levelNamed(const std::string& level) {
    if (level == "DEBUG") return qm::core::LogEvent_LogLevel_DEBUG;
    if (level == "INFO") return qm::core::LogEvent_LogLevel_INFO;
    if (level == "WARN") return qm::core::LogEvent_LogLevel_WARN;
    if (level == "ERROR") return qm::core::LogEvent_LogLevel_ERROR;
    return qm::core::LogEvent_LogLevel_LOG;
}

// Above 2, so that a host that closed one of the standard descriptors never finds it open again.
int32_t copyOf(int fd) {
    return ::fcntl(fd, F_DUPFD_CLOEXEC, 3);
}

}  // namespace

std::shared_ptr<LogHandler> LogHandler::make(std::weak_ptr<EventSink> sink) {
    return std::shared_ptr<LogHandler>(new LogHandler(std::move(sink)));
}

LogHandler::LogHandler(std::weak_ptr<EventSink> sink)
    : sink_(std::move(sink)), stdoutCopy_(copyOf(STDOUT_FILENO)), stderrCopy_(copyOf(STDERR_FILENO)) {}

std::unique_ptr<LogDrain> LogHandler::makeDrain(int destination) {
    const bool isStdout = destination == STDOUT_FILENO;
    std::weak_ptr<LogHandler> weak = std::static_pointer_cast<LogHandler>(shared_from_this());
    return LogDrain::make(destination, [weak = std::move(weak), isStdout](std::string_view piece) {
        if (const auto handler = weak.lock()) handler->capture(isStdout, piece);
    });
}

void LogHandler::start() {
    // What the streams hold from before goes out to the console as it was, not into the pipes.
    std::fflush(stdout);
    std::fflush(stderr);
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    std::setvbuf(stderr, nullptr, _IONBF, 0);
    // A stream the host has closed stays closed: writes to it keep failing as they did.
    if (stopped_ || stdoutCopy_ < 0 || stderrCopy_ < 0) return;

    try {
        auto stdoutDrain = makeDrain(STDOUT_FILENO);
        auto stderrDrain = makeDrain(STDERR_FILENO);
        if (!stdoutDrain || !stderrDrain || !stdoutDrain->start()) return;
        if (!stderrDrain->start()) {
            stdoutDrain->finish(std::chrono::steady_clock::now());
            return;
        }
        stdoutDrain_ = std::move(stdoutDrain);
        stderrDrain_ = std::move(stderrDrain);
    } catch (const std::exception&) {
        return;  // only allocation fails here; nothing was redirected
    }
    // Only once both drains run: from here on a write to 1 or 2 never waits for long.
    ::dup2(stdoutDrain_->inputDescriptor(), STDOUT_FILENO);
    ::dup2(stderrDrain_->inputDescriptor(), STDERR_FILENO);
}

void LogHandler::stop() {
    if (stopped_) return;
    stopped_ = true;
    if (stdoutDrain_) {
        ::dup2(stdoutCopy_, STDOUT_FILENO);
        ::dup2(stderrCopy_, STDERR_FILENO);
        // One deadline for both: a stalled console holds up shutdown once, not twice.
        const auto deadline = std::chrono::steady_clock::now() + kStopPatience;
        stdoutDrain_->finish(deadline);
        stderrDrain_->finish(deadline);
        stdoutDrain_.reset();
        stderrDrain_.reset();
    }
    if (stdoutCopy_ >= 0) ::close(stdoutCopy_);
    if (stderrCopy_ >= 0) ::close(stderrCopy_);
    stdoutCopy_ = -1;
    stderrCopy_ = -1;
}

void LogHandler::capture(bool isStdout, std::string_view piece) noexcept {
    // Only the capture asks for ASCII; a piece that is not stays off the wire.
    if (!platform::NSStringIsValidASCII(piece)) return;
    const auto sink = sink_.lock();
    if (!sink) return;
    try {
        // The drain's thread only copies the bytes; escaping them waits for the sink's thread.
        sink->addEventBuiltLater(
            EventType::logEvent, [text = std::string(piece), isStdout]() mutable {
                qm::core::LogEvent event;
                event.set_loglevel(isStdout ? qm::core::LogEvent_LogLevel_LOG
                                            : qm::core::LogEvent_LogLevel_ERROR);
                if (auto argument = jsonValue(std::move(text))) *event.add_args() = std::move(*argument);
                return event;
            });
    } catch (const std::exception&) {
        // Only allocation fails here: the piece goes uncaptured, and it reached the console.
    }
}

qm::core::LogEvent LogHandler::logEventFrom(const std::string& level, const std::vector<std::string>& args) {
    qm::core::LogEvent event;
    event.set_loglevel(levelNamed(level));
    // Plain text, unlike captured output, which goes in as a JSON array; repaired, as the wire's
    // strings must be UTF-8.
    for (const auto& arg : args) event.add_args()->set_arson(platform::NSStringByRepairingUTF8(arg));
    return event;
}

}  // namespace quillmere
