#include "capture/log/LogHandler.h"

namespace quillmere {

namespace {

qm::core::LogEvent_LogLevel levelNamed(const std::string& level) {
    if (level == "DEBUG") return qm::core::LogEvent_LogLevel_DEBUG;
    if (level == "INFO") return qm::core::LogEvent_LogLevel_INFO;
    if (level == "WARN") return qm::core::LogEvent_LogLevel_WARN;
    if (level == "ERROR") return qm::core::LogEvent_LogLevel_ERROR;
    return qm::core::LogEvent_LogLevel_LOG;
}

}  // namespace

qm::core::LogEvent LogHandler::logEventFrom(const std::string& level, const std::vector<std::string>& args) {
    qm::core::LogEvent event;
    event.set_loglevel(levelNamed(level));
    // Plain text, unlike captured output, which goes in as a JSON array.
    for (const auto& arg : args) event.add_args()->set_arson(arg);
    return event;
}

}  // namespace quillmere
