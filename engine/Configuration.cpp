#include "engine/Configuration.h"

#include <vector>

#include "engine/Bridge.h"
#include "platform/foundation/NSString.h"

namespace quillmere {

Configuration::Configuration(std::string appID) : appID_(std::move(appID)) {}

Configuration::Configuration(std::string appID, std::string serverURL, std::set<std::string> redactionTags,
                             bool viewScanningEnabled, bool networkCaptureEnabled, bool logCaptureEnabled,
                             std::shared_ptr<RequestSanitizer> requestSanitizer,
                             std::shared_ptr<ResponseSanitizer> responseSanitizer, bool registerTouchHandlers)
    : Configuration(std::move(appID)) {
    setServerURL(std::move(serverURL));
    setRedactionTags(std::move(redactionTags));
    setViewScanningEnabled(viewScanningEnabled);
    setNetworkCaptureEnabled(networkCaptureEnabled);
    setLogCaptureEnabled(logCaptureEnabled);
    setRequestSanitizer(std::move(requestSanitizer));
    setResponseSanitizer(std::move(responseSanitizer));
    setRegisterTouchHandlers(registerTouchHandlers);
}

std::string Configuration::serverURL() const {
    std::lock_guard lock(mutex_);
    return serverURL_;
}

void Configuration::setServerURL(std::string serverURL) {
    std::lock_guard lock(mutex_);
    serverURL_ = std::move(serverURL);
}

std::set<std::string> Configuration::redactionTags() const {
    std::lock_guard lock(mutex_);
    return redactionTags_;
}

void Configuration::setRedactionTags(std::set<std::string> tags) {
    std::lock_guard lock(mutex_);
    redactionTags_ = std::move(tags);
}

std::shared_ptr<RequestSanitizer> Configuration::requestSanitizer() const {
    std::lock_guard lock(mutex_);
    return requestSanitizer_;
}

void Configuration::setRequestSanitizer(std::shared_ptr<RequestSanitizer> sanitizer) {
    std::lock_guard lock(mutex_);
    requestSanitizer_.swap(sanitizer);
}

std::shared_ptr<ResponseSanitizer> Configuration::responseSanitizer() const {
    std::lock_guard lock(mutex_);
    return responseSanitizer_;
}

void Configuration::setResponseSanitizer(std::shared_ptr<ResponseSanitizer> sanitizer) {
    std::lock_guard lock(mutex_);
    responseSanitizer_.swap(sanitizer);
}

namespace {

// A getter and its setter under the property's exported selectors. A receiver that is no
// Configuration reads as the default and ignores writes.
template <class T, class Get, class Set>
void exportProperty(const char* getter, const char* setter, Get get, Set set) {
    using platform::NSObject;
    using platform::SEL;
    const platform::Class cls = Configuration::class_();
    platform::class_addMethod(cls, platform::sel_getUid(getter),
                              platform::imp_makeFunction<T>([get](NSObject* self, SEL) -> T {
                                  auto* configuration = dynamic_cast<Configuration*>(self);
                                  return configuration ? get(*configuration) : T{};
                              }));
    platform::class_addMethod(cls, platform::sel_getUid(setter),
                              platform::imp_makeFunction<void, T>([set](NSObject* self, SEL, T value) {
                                  if (auto* configuration = dynamic_cast<Configuration*>(self)) {
                                      set(*configuration, std::move(value));
                                  }
                              }));
}

template <bool (Configuration::*Get)() const, void (Configuration::*Set)(bool)>
void exportFlag(const char* getter, const char* setter) {
    exportProperty<bool>(
        getter, setter, [](const Configuration& c) { return (c.*Get)(); },
        [](Configuration& c, bool value) { (c.*Set)(value); });
}

void addExports() {
    using platform::id;
    platform::class_addClassMethod(
        Configuration::class_(), platform::sel_getUid("initWithAppID:"),
        platform::imp_makeFunction<id, id>([](platform::NSObject*, platform::SEL, id appID) -> id {
            auto text = platform::NSStringValue(appID);
            if (!text) return nullptr;
            return std::make_shared<Configuration>(std::move(*text));
        }));

    // Strings are copied on assignment, as the exported properties promise.
    exportProperty<id>(
        "serverURL",
        "setServerURL:", [](const Configuration& c) -> id { return platform::NSStr(c.serverURL()); },
        [](Configuration& c, id value) {
            if (auto text = platform::NSStringValue(value)) c.setServerURL(std::move(*text));
        });
    // The stand-in has no NSSet: the tags travel as an NSArray of NSStrings.
    exportProperty<id>(
        "redactionTags", "setRedactionTags:",
        [](const Configuration& c) -> id {
            const auto tags = c.redactionTags();
            return bridge::array(std::vector<std::string>(tags.begin(), tags.end()));
        },
        [](Configuration& c, id value) {
            const auto tags = bridge::strings(value);
            c.setRedactionTags(std::set<std::string>(tags.begin(), tags.end()));
        });
    exportFlag<&Configuration::viewScanningEnabled, &Configuration::setViewScanningEnabled>(
        "viewScanningEnabled", "setViewScanningEnabled:");
    exportFlag<&Configuration::networkCaptureEnabled, &Configuration::setNetworkCaptureEnabled>(
        "networkCaptureEnabled", "setNetworkCaptureEnabled:");
    exportFlag<&Configuration::logCaptureEnabled, &Configuration::setLogCaptureEnabled>(
        "logCaptureEnabled", "setLogCaptureEnabled:");
    exportProperty<std::shared_ptr<RequestSanitizer>>(
        "requestSanitizer",
        "setRequestSanitizer:", [](const Configuration& c) { return c.requestSanitizer(); },
        [](Configuration& c, std::shared_ptr<RequestSanitizer> value) {
            c.setRequestSanitizer(std::move(value));
        });
    exportProperty<std::shared_ptr<ResponseSanitizer>>(
        "responseSanitizer",
        "setResponseSanitizer:", [](const Configuration& c) { return c.responseSanitizer(); },
        [](Configuration& c, std::shared_ptr<ResponseSanitizer> value) {
            c.setResponseSanitizer(std::move(value));
        });
    exportFlag<&Configuration::registerTouchHandlers, &Configuration::setRegisterTouchHandlers>(
        "registerTouchHandlers", "setRegisterTouchHandlers:");
}

}  // namespace

void Configuration::exportToRuntime() {
    static std::once_flag once;
    std::call_once(once, addExports);
}

}  // namespace quillmere
