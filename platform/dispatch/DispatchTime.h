#pragma once
// Dispatch time: deadlines on the uptime clock, and intervals between them.
#include <compare>
#include <cstdint>

namespace platform {

// An interval for deadlines and timer repeats. `never()` is the "repeating: .never" of timers.
struct DispatchTimeInterval {
    int64_t nanoseconds = 0;
    bool isNever = false;

    static constexpr DispatchTimeInterval seconds(int64_t s) { return {s * 1000000000LL, false}; }
    static constexpr DispatchTimeInterval milliseconds(int64_t ms) { return {ms * 1000000LL, false}; }
    static constexpr DispatchTimeInterval microseconds(int64_t us) { return {us * 1000LL, false}; }
    static constexpr DispatchTimeInterval nanosecondsInterval(int64_t ns) { return {ns, false}; }
    static constexpr DispatchTimeInterval never() { return {0, true}; }
    bool operator==(const DispatchTimeInterval&) const = default;
};

// A point on the system's uptime clock (monotonic, unaffected by wall-clock changes).
struct DispatchTime {
    uint64_t uptimeNanoseconds = 0;

    static DispatchTime now();
    static constexpr DispatchTime distantFuture() { return {UINT64_MAX}; }

    DispatchTime operator+(DispatchTimeInterval interval) const;
    auto operator<=>(const DispatchTime&) const = default;
};

// Seconds since the system started, as ProcessInfo.systemUptime gives them.
double systemUptime();

}  // namespace platform
