#pragma once
// What the library captures and where it sends it; exported as QLMConfiguration. The host makes
// one, may change it, and hands it to SDK::initialize; the running Core keeps the same object and
// reads some properties live (capture flags, serverURL, sanitizers) and others once, at start.
//
// Any thread may read or write any property. Values are taken as given: nothing is validated here.
#include <atomic>
#include <memory>
#include <mutex>
#include <set>
#include <string>

#include "QuillmereExport.h"
#include "RequestSanitizer.h"
#include "ResponseSanitizer.h"
#include "platform/foundation/NSObject.h"

namespace quillmere {

class QLM_EXPORT Configuration : public platform::NSObject {
    PLATFORM_OBJC_CLASS_NAMED(Configuration, platform::NSObject, "QLMConfiguration")
public:
    static constexpr const char* kDefaultServerURL = "https://ingest.quillmere.dev/i";

    // Every other property at its default: the default endpoint, no redaction tags, all capture
    // on, touch handlers registered, no sanitizers. `appID` may be empty.
    explicit Configuration(std::string appID);
    Configuration(std::string appID, std::string serverURL, std::set<std::string> redactionTags,
                  bool viewScanningEnabled, bool networkCaptureEnabled, bool logCaptureEnabled,
                  std::shared_ptr<RequestSanitizer> requestSanitizer,
                  std::shared_ptr<ResponseSanitizer> responseSanitizer, bool registerTouchHandlers);

    const std::string& appID() const { return appID_; }

    // The whole ingest address, without query.
    std::string serverURL() const;
    void setServerURL(std::string serverURL);
    std::set<std::string> redactionTags() const;
    void setRedactionTags(std::set<std::string> tags);
    bool viewScanningEnabled() const { return viewScanningEnabled_.load(); }
    void setViewScanningEnabled(bool enabled) { viewScanningEnabled_.store(enabled); }
    bool networkCaptureEnabled() const { return networkCaptureEnabled_.load(); }
    void setNetworkCaptureEnabled(bool enabled) { networkCaptureEnabled_.store(enabled); }
    bool logCaptureEnabled() const { return logCaptureEnabled_.load(); }
    void setLogCaptureEnabled(bool enabled) { logCaptureEnabled_.store(enabled); }
    // Null when the host set none. Held strongly.
    std::shared_ptr<RequestSanitizer> requestSanitizer() const;
    void setRequestSanitizer(std::shared_ptr<RequestSanitizer> sanitizer);
    std::shared_ptr<ResponseSanitizer> responseSanitizer() const;
    void setResponseSanitizer(std::shared_ptr<ResponseSanitizer> sanitizer);
    bool registerTouchHandlers() const { return registerTouchHandlers_.load(); }
    void setRegisterTouchHandlers(bool enabled) { registerTouchHandlers_.store(enabled); }

    // Adds the exported constructor and property accessors to the runtime class; idempotent.
    static void exportToRuntime();

private:
    const std::string appID_;

    // Capture threads read these while the host may write them.
    std::atomic<bool> viewScanningEnabled_{true};
    std::atomic<bool> networkCaptureEnabled_{true};
    std::atomic<bool> logCaptureEnabled_{true};
    std::atomic<bool> registerTouchHandlers_{true};

    mutable std::mutex mutex_;
    std::string serverURL_ = kDefaultServerURL;             // guarded by mutex_
    std::set<std::string> redactionTags_;                   // guarded by mutex_
    std::shared_ptr<RequestSanitizer> requestSanitizer_;    // guarded by mutex_
    std::shared_ptr<ResponseSanitizer> responseSanitizer_;  // guarded by mutex_
};

}  // namespace quillmere
