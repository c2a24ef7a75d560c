#include "platform/url/NSURLSessionConfiguration.h"

#include "platform/url/NSCFURLSessionConfiguration.h"

namespace platform {

std::shared_ptr<NSURLSessionConfiguration> NSURLSessionConfiguration::defaultSessionConfiguration() {
    return NSCFURLSessionConfiguration::make();
}

std::shared_ptr<NSURLSessionConfiguration> NSURLSessionConfiguration::ephemeralSessionConfiguration() {
    return NSCFURLSessionConfiguration::make();
}

NSURLSessionConfiguration::ProtocolClasses NSURLSessionConfiguration::protocolClasses() const {
    // The runtime passes receivers as mutable objects; the getter does not change this one.
    auto* self = const_cast<NSURLSessionConfiguration*>(this);
    return objc_msgSend<ProtocolClasses>(self, sel_getUid("protocolClasses"));
}

void NSURLSessionConfiguration::setProtocolClasses(ProtocolClasses classes) {
    std::lock_guard lock(mutex_);
    protocolClasses_ = std::move(classes);
}

NSURLSessionConfiguration::ProtocolClasses NSURLSessionConfiguration::storedProtocolClasses() const {
    std::lock_guard lock(mutex_);
    return protocolClasses_;
}

double NSURLSessionConfiguration::timeoutIntervalForRequest() const {
    std::lock_guard lock(mutex_);
    return timeoutIntervalForRequest_;
}

void NSURLSessionConfiguration::setTimeoutIntervalForRequest(double seconds) {
    std::lock_guard lock(mutex_);
    timeoutIntervalForRequest_ = seconds;
}

double NSURLSessionConfiguration::timeoutIntervalForResource() const {
    std::lock_guard lock(mutex_);
    return timeoutIntervalForResource_;
}

void NSURLSessionConfiguration::setTimeoutIntervalForResource(double seconds) {
    std::lock_guard lock(mutex_);
    timeoutIntervalForResource_ = seconds;
}

std::shared_ptr<NSDictionary> NSURLSessionConfiguration::HTTPAdditionalHeaders() const {
    std::lock_guard lock(mutex_);
    return additionalHeaders_;
}

void NSURLSessionConfiguration::setHTTPAdditionalHeaders(std::shared_ptr<NSDictionary> headers) {
    std::lock_guard lock(mutex_);
    additionalHeaders_ = std::move(headers);
}

std::shared_ptr<NSURLSessionConfiguration> NSURLSessionConfiguration::copy() const {
    auto copied = std::shared_ptr<NSURLSessionConfiguration>(new NSURLSessionConfiguration());
    copied->copySettingsFrom(*this);
    return copied;
}

void NSURLSessionConfiguration::copySettingsFrom(const NSURLSessionConfiguration& other) {
    std::scoped_lock lock(mutex_, other.mutex_);
    protocolClasses_ = other.protocolClasses_;
    timeoutIntervalForRequest_ = other.timeoutIntervalForRequest_;
    timeoutIntervalForResource_ = other.timeoutIntervalForResource_;
    additionalHeaders_ = other.additionalHeaders_;
}

}  // namespace platform
