#pragma once
// Log events: those of the host's explicit log calls. The capture of standard output and standard
// error belongs here as well.
#include <string>
#include <vector>

#include "wire/qm_core.pb.h"

namespace quillmere {

class LogHandler {
public:
    // The event of one addLog call: the level by exact name (anything else is LOG), each argument
    // as it is, no tag. Any thread.
    static qm::core::LogEvent logEventFrom(const std::string& level, const std::vector<std::string>& args);
};

}  // namespace quillmere
