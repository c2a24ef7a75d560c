#pragma once
// Dispatch deadlines as steady_clock time points, for condition-variable waits. Both clocks are
// CLOCK_MONOTONIC here, so the conversion is exact.
#include <algorithm>
#include <chrono>
#include <cstdint>

#include "platform/dispatch/DispatchTime.h"

namespace platform::detail {

inline std::chrono::steady_clock::time_point steadyDeadline(DispatchTime deadline) {
    // Far enough to be "never" in practice, and clear of overflow inside the wait calls.
    constexpr uint64_t kCap = static_cast<uint64_t>(INT64_MAX / 4);
    const auto ns = std::chrono::nanoseconds(static_cast<int64_t>(std::min(deadline.uptimeNanoseconds, kCap)));
    return std::chrono::steady_clock::time_point(
        std::chrono::duration_cast<std::chrono::steady_clock::duration>(ns));
}

}  // namespace platform::detail
