#pragma once
// The settings of a session. A session copies its configuration when it is made, so later changes
// to the caller's object do not reach it. Any thread may use a configuration.
//
// protocolClasses() is sent through the runtime (selector "protocolClasses"), as a property getter
// is on the platform, so an implementation exchanged on the configuration's class takes effect.
// The objects defaultSessionConfiguration() makes are of a private subclass
// ("__NSCFURLSessionConfiguration") that defines that getter itself.
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSObject.h"

namespace platform {

class NSURLSessionConfiguration : public NSObject {
    PLATFORM_OBJC_CLASS(NSURLSessionConfiguration, NSObject)
public:
    using ProtocolClasses = std::optional<std::vector<Class>>;  // nullopt is nil

    // A new object each call. Its protocol classes are those registered with
    // NSURLProtocol::registerClass by then (most recent first), then the built-in HTTP(S) class.
    static std::shared_ptr<NSURLSessionConfiguration> defaultSessionConfiguration();
    // As the default one: the stand-in keeps neither cookies nor a cache in either.
    static std::shared_ptr<NSURLSessionConfiguration> ephemeralSessionConfiguration();

    // Sends "protocolClasses" to the object.
    ProtocolClasses protocolClasses() const;
    void setProtocolClasses(ProtocolClasses classes);
    // What setProtocolClasses stored; the getter's implementation reads it.
    ProtocolClasses storedProtocolClasses() const;

    // The idle time-out a request falls back on when its own is not positive. Default 60 s.
    double timeoutIntervalForRequest() const;
    void setTimeoutIntervalForRequest(double seconds);
    // The longest a task may take in all. Default 7 days.
    double timeoutIntervalForResource() const;
    void setTimeoutIntervalForResource(double seconds);
    // Fields added to each request that does not set them itself; may be null.
    std::shared_ptr<NSDictionary> HTTPAdditionalHeaders() const;
    void setHTTPAdditionalHeaders(std::shared_ptr<NSDictionary> headers);

    // A new object of the same class with the same settings.
    virtual std::shared_ptr<NSURLSessionConfiguration> copy() const;

protected:
    NSURLSessionConfiguration() = default;
    void copySettingsFrom(const NSURLSessionConfiguration& other);

private:
    mutable std::mutex mutex_;
    ProtocolClasses protocolClasses_;                  // guarded by mutex_
    double timeoutIntervalForRequest_ = 60.0;          // guarded by mutex_
    double timeoutIntervalForResource_ = 604800.0;     // guarded by mutex_
    std::shared_ptr<NSDictionary> additionalHeaders_;  // guarded by mutex_
};

}  // namespace platform
