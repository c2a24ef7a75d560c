#include "platform/foundation/NSLog.h"

#include <errno.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <string>

namespace platform {

void NSLog(std::string_view message) noexcept {
    try {
        timeval now{};
        gettimeofday(&now, nullptr);
        tm local{};
        localtime_r(&now.tv_sec, &local);
        char prefix[96];
        const int stamped =
            std::snprintf(prefix, sizeof prefix, "%04d-%02d-%02d %02d:%02d:%02d.%03d ", local.tm_year + 1900,
                          local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
                          static_cast<int>(now.tv_usec / 1000));
        if (stamped < 0) return;

        std::string line;
        line.reserve(static_cast<std::size_t>(stamped) + message.size() + 64);
        line.append(prefix, static_cast<std::size_t>(stamped));
        line.append(program_invocation_short_name);
        const int ids = std::snprintf(prefix, sizeof prefix, "[%d:%d] ", static_cast<int>(getpid()),
                                      static_cast<int>(gettid()));
        if (ids < 0) return;
        line.append(prefix, static_cast<std::size_t>(ids));
        line.append(message);
        line.push_back('\n');

        // One write gives a whole line; the loop only finishes what a signal or a full pipe cut short.
        const char* next = line.data();
        std::size_t left = line.size();
        while (left > 0) {
            const ssize_t n = ::write(STDERR_FILENO, next, left);
            if (n < 0) {
                if (errno == EINTR) continue;
                return;
            }
            next += n;
            left -= static_cast<std::size_t>(n);
        }
    } catch (...) {
        // Out of memory: the line is dropped, as a logging call must not fail its caller.
    }
}

}  // namespace platform
