#include "platform/dispatch/DispatchTime.h"

#include <chrono>
#include <limits>

namespace platform {

DispatchTime DispatchTime::now() {
    // steady_clock is CLOCK_MONOTONIC here: time since boot, untouched by wall-clock changes.
    const auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(
                        std::chrono::steady_clock::now().time_since_epoch())
                        .count();
    return {static_cast<uint64_t>(ns < 0 ? 0 : ns)};
}

DispatchTime DispatchTime::operator+(DispatchTimeInterval interval) const {
    if (interval.isNever || *this == distantFuture()) return distantFuture();
    if (interval.nanoseconds >= 0) {
        const auto delta = static_cast<uint64_t>(interval.nanoseconds);
        // UINT64_MAX itself means "forever", so anything reaching it saturates there.
        if (delta >= UINT64_MAX - uptimeNanoseconds) return distantFuture();
        return {uptimeNanoseconds + delta};
    }
    // Negative intervals move back, stopping at the clock's origin.
    const uint64_t back = interval.nanoseconds == std::numeric_limits<int64_t>::min()
                              ? uint64_t{1} << 63
                              : static_cast<uint64_t>(-interval.nanoseconds);
    return {back >= uptimeNanoseconds ? 0 : uptimeNanoseconds - back};
}

double systemUptime() { return static_cast<double>(DispatchTime::now().uptimeNanoseconds) / 1e9; }

}  // namespace platform
