#include "capture/log/LogHandler.h"

#include <unistd.h>

#include <cstdio>
#include <exception>
#include <utility>

#include "capture/network/JsonValue.h"
#include "engine/Core.h"
#include "platform/foundation/NSData.h"
#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSFileHandle.h"
#include "platform/foundation/NSNotificationCenter.h"
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

void exportPipeNotificationMethod() {
    using platform::NSNotification;
    platform::class_addMethod(
        LogHandler::class_(), platform::sel_getUid(LogHandler::kPipeNotificationSelector),
        platform::imp_makeFunction<void, std::shared_ptr<NSNotification>>(
            [](platform::NSObject* self, platform::SEL, std::shared_ptr<NSNotification> notification) {
                if (auto* handler = dynamic_cast<LogHandler*>(self))
                    handler->handlePipeNotificationWithNotification(notification);
            }));
}

}  // namespace

std::shared_ptr<LogHandler> LogHandler::make(std::shared_ptr<Core> eventAdder) {
    static const bool exported = (exportPipeNotificationMethod(), true);
    (void)exported;
    return std::shared_ptr<LogHandler>(new LogHandler(std::move(eventAdder)));
}

LogHandler::LogHandler(std::shared_ptr<Core> eventAdder)
    : eventAdder_(std::move(eventAdder)),
      stdoutCopy_(::dup(STDOUT_FILENO)),
      stderrCopy_(::dup(STDERR_FILENO)) {}

void LogHandler::start() {
    // What the streams hold from before goes out to the console as it was, not into the pipes.
    std::fflush(stdout);
    std::fflush(stderr);
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    std::setvbuf(stderr, nullptr, _IONBF, 0);

    auto stdoutInput = platform::NSPipe::pipe();
    auto stderrInput = platform::NSPipe::pipe();
    auto stdoutOutput = platform::NSPipe::pipe();
    auto stderrOutput = platform::NSPipe::pipe();
    if (!stdoutInput || !stderrInput || !stdoutOutput || !stderrOutput) return;
    stdoutInputPipe_ = std::move(stdoutInput);
    stderrInputPipe_ = std::move(stderrInput);
    stdoutOutputPipe_ = std::move(stdoutOutput);
    stderrOutputPipe_ = std::move(stderrOutput);

    const auto& stdoutReading = stdoutInputPipe_->fileHandleForReading();
    const auto& stderrReading = stderrInputPipe_->fileHandleForReading();
    // The real destinations are copied before 1 and 2 are pointed at the pipes: forwarding must
    // never lead back into them.
    ::dup2(STDOUT_FILENO, stdoutOutputPipe_->fileHandleForWriting()->fileDescriptor());
    ::dup2(STDERR_FILENO, stderrOutputPipe_->fileHandleForWriting()->fileDescriptor());
    ::dup2(stdoutInputPipe_->fileHandleForWriting()->fileDescriptor(), STDOUT_FILENO);
    ::dup2(stderrInputPipe_->fileHandleForWriting()->fileDescriptor(), STDERR_FILENO);

    const auto center = platform::NSNotificationCenter::defaultCenter();
    const platform::SEL selector = platform::sel_getUid(kPipeNotificationSelector);
    center->addObserver(shared_from_this(), selector, platform::NSFileHandleReadCompletionNotification,
                        stdoutReading);
    center->addObserver(shared_from_this(), selector, platform::NSFileHandleReadCompletionNotification,
                        stderrReading);
    stdoutReading->readInBackgroundAndNotify();
    stderrReading->readInBackgroundAndNotify();
}

void LogHandler::handlePipeNotificationWithNotification(
    const std::shared_ptr<platform::NSNotification>& notification) {
    if (!notification || !stdoutInputPipe_) return;
    const auto handle = platform::objc_cast<platform::NSFileHandle>(notification->object());
    if (!handle) return;
    const bool isStdout = handle == stdoutInputPipe_->fileHandleForReading();
    try {
        // Armed before this piece is looked at: whatever becomes of it, the pipe keeps draining.
        handle->readInBackgroundAndNotify();

        const auto& userInfo = notification->userInfo();
        if (!userInfo) return;
        const auto data = platform::objc_cast<platform::NSData>(
            userInfo->objectForKey(platform::NSFileHandleNotificationDataItem));
        // No bytes means end of file or a failed read, not a piece of text.
        if (!data || data->length() == 0) return;

        // The console gets every piece, whatever its bytes: the host's output never changes.
        const auto& output = isStdout ? stdoutOutputPipe_ : stderrOutputPipe_;
        output->fileHandleForWriting()->writeData(*data);

        // Only the capture asks for ASCII; a piece that is not stays off the wire.
        if (!platform::NSStringIsValidASCII(data->view())) return;
        auto argument = jsonValue(data->view());
        if (!argument) return;
        qm::core::LogEvent event;
        event.set_loglevel(isStdout ? qm::core::LogEvent_LogLevel_LOG : qm::core::LogEvent_LogLevel_ERROR);
        *event.add_args() = std::move(*argument);
        eventAdder_->addEvent(EventType::logEvent, std::move(event));
    } catch (const std::exception&) {
        // Only allocation fails here: the piece goes uncaptured, and the run loop must not see it.
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
