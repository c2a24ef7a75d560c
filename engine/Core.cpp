#include "engine/Core.h"

#include <charconv>
#include <cmath>

#include "capture/log/LogHandler.h"
#include "capture/network/NetworkRequestInterceptor.h"
#include "capture/screen/RootViewScanner.h"
#include "capture/touch/QLMReactNativeSwizzler.h"
#include "engine/BundleInfo.h"
#include "engine/SDK.h"
#include "engine/TaskQueue.h"
#include "platform/foundation/NSBundle.h"
#include "platform/foundation/NSDate.h"
#include "platform/foundation/NSLog.h"
#include "platform/foundation/NSString.h"
#include "platform/uikit/UIDevice.h"
#include "upload/Uploader.h"

namespace quillmere {

namespace {

constexpr const char* kShortVersionKey = "CFBundleShortVersionString";

double wholeMilliseconds(double seconds) {
    return std::round(seconds * 1000.0);
}

}  // namespace

platform::Class Core::runtimeClass() {
    static const platform::Class cls = [] {
        const platform::Class defined =
            platform::objc_defineClass("Quillmere.Core", platform::NSObject::class_());
        // The bundle the library would ship in; its information file carries the version.
        auto info = platform::NSDictionary::dictionaryWithStrings(
            {{kShortVersionKey, kBundleShortVersionString}, {platform::kCFBundleNameKey, kBundleName}});
        platform::NSBundle::registerClass(defined,
                                          platform::NSBundle::registerBundle(kBundleIdentifier, info));
        return defined;
    }();
    return cls;
}

std::shared_ptr<Core> Core::make(std::shared_ptr<Session> session,
                                 std::shared_ptr<Configuration> configuration) {
    if (!session || !configuration) return nullptr;
    std::shared_ptr<Core> core(new Core(std::move(session), std::move(configuration)));
    // The members refer back to the Core, weakly, which they can only once a shared_ptr owns it.
    const std::weak_ptr<Core> weak = core;
    core->uploader_ = Uploader::make(core->session_, core->configuration_->serverURL(), weak);
    if (!core->uploader_) return nullptr;
    core->viewScanner_ = RootViewScanner::make(weak, *core->configuration_);
    // Its copies of descriptors 1 and 2 are taken whether or not log capture is on.
    core->logHandler_ = LogHandler::make(weak);
    core->networkRequestInterceptor_ = std::make_shared<NetworkRequestInterceptor>();
    core->reactNativeSwizzler_ = QLMReactNativeSwizzler::make();
    return core;
}

Core::Core(std::shared_ptr<Session> session, std::shared_ptr<Configuration> configuration)
    : session_(std::move(session)),
      configuration_(std::move(configuration)) {}

void Core::start() {
    uploader_->start();
    sendMetadata();
    identify(Session::lowercaseUUID(), Traits{}, true);
    // Whether or not touches are captured: a shim attached by an earlier run may still be on a window.
    reactNativeSwizzler_->swizzle();
    if (configuration_->networkCaptureEnabled()) networkRequestInterceptor_->start(weak_from_this());
    if (configuration_->logCaptureEnabled()) logHandler_->start();
    if (configuration_->viewScanningEnabled()) viewScanner_->start();
}

void Core::shutdown() {
    // The flags are read as they stand now: a capture switched off after start stays installed.
    if (configuration_->networkCaptureEnabled()) networkRequestInterceptor_->stop();
    // Whatever the flag says now: a handler that started puts the descriptors back, and every
    // handler closes its copies, so that restarts leave no descriptor behind. Before the last send,
    // which then carries what was written up to here.
    logHandler_->stop();
    // Whatever the flag says now: scanning ends, and the host's recognizers, React Native's among
    // them, are then as if the library had never run.
    viewScanner_->stop();
    reactNativeSwizzler_->deswizzle();
    uploader_->stop();
    SDK::clearCore(*this);
}

bool Core::flush(std::chrono::steady_clock::time_point deadline) {
    return uploader_->flush(deadline);
}

void Core::add(EventType type, std::shared_ptr<Capture> capture) noexcept {
    try {
        auto event = stampEvent(type);
        if (!event || !capture) return;
        uploader_->append(std::move(*event), std::move(capture));
    } catch (const std::exception&) {
        // Only allocation can fail here; the capture is lost, the host goes on.
    }
}

void Core::sendMetadata() {
    qm::Metadata metadata;
    auto* device = metadata.mutable_deviceinfo();
    const auto current = platform::UIDevice::current();
    device->set_devicetype(qm::Metadata_DeviceInfo_DeviceType_IOS);
    device->set_devicename(current->model());
    device->set_manufacturer("Apple");
    device->set_release(current->systemVersion());
    const auto bundle = platform::NSBundle::bundleForClass(runtimeClass());
    if (auto version = platform::NSStringValue(bundle->objectForInfoDictionaryKey(kShortVersionKey))) {
        metadata.set_sdkversion(std::move(*version));
    }
    addEvent(EventType::metadata, std::move(metadata));
}

std::optional<qm::Event> Core::stampEvent(EventType type) {
    qm::Event event;
    event.set_type(std::string(eventTypeTag(type)));
    event.set_sessionid(session_->sessionID());
    event.set_threadid(0);
    // One reading serves both stamps, so time and timeOffset never disagree.
    const double now = platform::NSDate::date()->timeIntervalSince1970();
    event.set_time(wholeMilliseconds(now));
    event.set_timeoffset(wholeMilliseconds(now - session_->startTime().timeIntervalSince1970()));
    const int64_t sequenceNumber = session_->seqID().getAndIncrement();
    if (sequenceNumber < 0 || sequenceNumber > kLastSequenceNumber) return std::nullopt;
    event.set_seqid(static_cast<uint32_t>(sequenceNumber));
    return event;
}

bool Core::shouldCaptureRequest(const platform::NSURLRequest& request) const {
    if (!configuration_->networkCaptureEnabled()) return false;
    const auto& url = request.URL();
    if (!url) return false;
    // The library's own uploads.
    if (url->absoluteString().starts_with(configuration_->serverURL())) return false;
    return true;
}

int64_t Core::nextRequestID() noexcept {
    return reqID_.getAndIncrement();
}

std::shared_ptr<RequestSanitizer> Core::requestSanitizer() const {
    return configuration_->requestSanitizer();
}

std::shared_ptr<ResponseSanitizer> Core::responseSanitizer() const {
    return configuration_->responseSanitizer();
}

void Core::identify(const std::string& hostUserID, const std::optional<Traits>& hostTraits,
                    bool isAnonymous) {
    // A host's C++ strings may hold any bytes, but the wire's strings must be UTF-8: one bad byte
    // would get the whole upload refused. Repaired here, they count as what is sent.
    const std::string userID = platform::NSStringByRepairingUTF8(hostUserID);
    std::optional<Traits> traits;
    if (hostTraits) {
        traits.emplace();
        for (const auto& [key, value] : *hostTraits)
            traits->insert_or_assign(platform::NSStringByRepairingUTF8(key),
                                     platform::NSStringByRepairingUTF8(value));
    }
    const int64_t calls = identifyCalls_.getAndIncrement() + 1;
    if (calls > kMaximumIdentifyCalls) return;
    if (calls == kMaximumIdentifyCalls) {
        platform::NSLog("Quillmere: More than 10 identify calls on this page. Ignoring future calls.");
    }
    // Limits count UTF-8 bytes, whatever the messages say.
    if (userID.size() > kMaximumUserIDBytes) {
        platform::NSLog("Quillmere: Too large userID passed to identify() (max 1024 characters)");
        return;
    }
    qm::Identify message;
    message.set_userid(userID);
    message.set_isanonymous(isAnonymous);
    if (traits) {
        for (const auto& [key, value] : *traits) {
            if (value.size() > kMaximumTraitValueBytes) {
                platform::NSLog("Quillmere: Ignoring large user trait value for key " + key +
                                " (max 1024 characters)");
                continue;
            }
            if (key.size() > kMaximumTraitKeyBytes) {
                platform::NSLog("Quillmere: Ignoring large user trait key " + key);
                continue;
            }
            if (key == "email") {
                message.set_email(value);
            } else if (key == "name") {
                message.set_name(value);
            } else if (key == "userID") {
                message.set_userid(value);
            } else {
                (*message.mutable_traits())[key] = value;
            }
        }
    }
    addEvent(EventType::identify, std::move(message));
}

std::string Core::sessionURL() const {
    const auto dashboard = dashboardURL();
    if (!dashboard || dashboard->empty()) return {};
    // The shortest text that reads back as the same double, fraction included: not rounded.
    const double nowMilliseconds = platform::NSDate::date()->timeIntervalSince1970() * 1000.0;
    char digits[64];
    const auto end =
        std::to_chars(digits, digits + sizeof digits, nowMilliseconds, std::chars_format::fixed).ptr;
    return *dashboard + "/" + configuration_->appID() + "/s/" + session_->recordingID() + "/" +
           std::to_string(session_->sessionID()) + "?t=" + std::string(digits, end);
}

std::optional<std::string> Core::dashboardURL() const {
    std::lock_guard lock(dashboardMutex_);
    return dashboardURL_;
}

void Core::setDashboardURL(std::string url) {
    std::lock_guard lock(dashboardMutex_);
    dashboardURL_ = std::move(url);
}

void Core::uploadAccepted() {
    SDK::acceptanceTaskQueue().flush(shared_from_this());
}

}  // namespace quillmere
