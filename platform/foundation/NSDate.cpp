#include "platform/foundation/NSDate.h"

#include <chrono>
#include <cstdio>
#include <ctime>
#include <functional>

namespace platform {

namespace {
double wallClockSeconds() {
    using namespace std::chrono;
    return duration<double>(system_clock::now().time_since_epoch()).count();
}
}  // namespace

std::shared_ptr<NSDate> NSDate::date() { return std::make_shared<NSDate>(wallClockSeconds()); }

std::shared_ptr<NSDate> NSDate::dateWithTimeIntervalSinceNow(double seconds) {
    return std::make_shared<NSDate>(wallClockSeconds() + seconds);
}

std::shared_ptr<NSDate> NSDate::dateWithTimeIntervalSince1970(double seconds) {
    return std::make_shared<NSDate>(seconds);
}

double NSDate::timeIntervalSinceNow() const { return seconds_ - wallClockSeconds(); }

bool NSDate::isEqual(const NSObject* other) const {
    auto d = dynamic_cast<const NSDate*>(other);
    return d != nullptr && d->seconds_ == seconds_;
}

std::size_t NSDate::hash() const { return std::hash<double>{}(seconds_); }

std::string NSDate::description() const {
    const std::time_t t = static_cast<std::time_t>(seconds_);
    std::tm tm{};
    gmtime_r(&t, &tm);
    char buffer[40];
    std::strftime(buffer, sizeof buffer, "%Y-%m-%d %H:%M:%S +0000", &tm);
    return buffer;
}

}  // namespace platform
