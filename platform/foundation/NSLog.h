#pragma once
// Logging to the standard error descriptor, as the platform's NSLog does. Any thread.
#include <string_view>

namespace platform {

// Writes "YYYY-MM-DD HH:MM:SS.mmm <process>[<pid>:<tid>] <message>\n" (local time) to descriptor 2
// with one write(2), so lines from concurrent callers do not interleave. The message is taken as
// it is: it is not a format, so "%" prints as "%". A newline is always appended. Failures to write
// are dropped.
void NSLog(std::string_view message) noexcept;

}  // namespace platform
