#include "server/views/TimeText.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>

namespace qlm::ingest {

std::string utcText(double milliseconds, bool iso) {
    if (!std::isfinite(milliseconds) || std::fabs(milliseconds) > 1e15) return "?";
    const auto wholeSeconds = static_cast<std::time_t>(std::floor(milliseconds / 1000));
    const int millis = static_cast<int>(milliseconds - static_cast<double>(wholeSeconds) * 1000);
    std::tm parts{};
    if (gmtime_r(&wholeSeconds, &parts) == nullptr) return "?";
    char text[64];
    std::snprintf(text, sizeof text,
                  iso ? "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ" : "%04d-%02d-%02d %02d:%02d:%02d.%03d",
                  parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min,
                  parts.tm_sec, millis);
    return text;
}

std::string offsetText(double milliseconds) {
    const double total = std::isfinite(milliseconds) ? std::max(0.0, milliseconds) / 1000 : 0;
    const auto minutes = static_cast<long long>(total / 60);
    char text[48];
    std::snprintf(text, sizeof text, "%lld:%04.1f", minutes, total - static_cast<double>(minutes) * 60);
    return text;
}

}  // namespace qlm::ingest
