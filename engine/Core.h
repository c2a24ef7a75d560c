#pragma once
// The running engine of one session: owns the Uploader and the capture objects, is the sink that
// stamps every capture as a qm.Event and funnels it to the Uploader's buffer, identifies the user
// and forms the replay URL. One Core per SDK::initialize; it is never restarted.
//
// Threads: make, start, shutdown on the host's thread that drives SDK; the sink's operations,
// identify and sessionURL on any thread. Everything the Core owns refers back to it weakly, so the
// Core goes with the last outside reference (SDK's, once shut down), on whichever thread lets go
// of it.
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "engine/AtomicInteger.h"
#include "engine/Configuration.h"
#include "engine/EventType.h"
#include "engine/NetworkEventSink.h"
#include "engine/ReadyStateDelegate.h"
#include "engine/Session.h"
#include "platform/objc/Runtime.h"
#include "platform/url/NSURLRequest.h"
#include "wire/qm.pb.h"

namespace quillmere {

class LogHandler;
class NetworkRequestInterceptor;
class QLMReactNativeSwizzler;
class RootViewScanner;
class Uploader;

class Core final : public NetworkEventSink, public ReadyStateDelegate, public std::enable_shared_from_this<Core> {
public:
    using Traits = std::map<std::string, std::string>;

    static constexpr int64_t kMaximumIdentifyCalls = 10;
    static constexpr std::size_t kMaximumUserIDBytes = 1024;
    static constexpr std::size_t kMaximumTraitValueBytes = 1024;
    static constexpr std::size_t kMaximumTraitKeyBytes = 128;
    // seqID is a uint32 on the wire; later events of a session are dropped rather than wrapped.
    static constexpr int64_t kLastSequenceNumber = UINT32_MAX;

    // Constructs every member, starting none. Null when no ingest URL forms from the configuration's
    // serverURL and the session.
    static std::shared_ptr<Core> make(std::shared_ptr<Session> session,
                                      std::shared_ptr<Configuration> configuration);

    // The runtime class that stands for Core, and through which the library's bundle is found.
    static platform::Class runtimeClass();

    Core(const Core&) = delete;
    Core& operator=(const Core&) = delete;

    void start();
    // Stops capture (touch recognizers leave their windows, on the main thread: at once when called
    // there), makes the last send and clears SDK's slot if it holds this Core. Blocks on the
    // uploader queue until that send has been handed over.
    void shutdown();

    // Waits, up to `deadline`, until every upload handed to the URL session so far has ended, its
    // reply handled; true if that happened in time. Sends nothing itself: after shutdown, that is
    // every upload this Core makes. For whoever holds a Core and must know it is quiet; nothing in
    // the library waits on it.
    bool flush(std::chrono::steady_clock::time_point deadline);

    // The sink: stamps the event now, on the caller's thread, and appends it to the Uploader's
    // buffer, which builds and encodes the message at the next send. Never blocks on building or
    // encoding.
    void add(EventType type, std::shared_ptr<Capture> capture) noexcept override;
    // A host request is reported if network capture is on and it has a URL that is not the
    // library's own ingest endpoint.
    bool shouldCaptureRequest(const platform::NSURLRequest& request) const override;
    int64_t nextRequestID() noexcept override;
    std::shared_ptr<RequestSanitizer> requestSanitizer() const override;
    std::shared_ptr<ResponseSanitizer> responseSanitizer() const override;

    // `traits` nullopt and empty mean the same. Size and count limits drop with a log line.
    void identify(const std::string& userID, const std::optional<Traits>& traits, bool isAnonymous);
    // Empty until the server has relayed a dashboard address.
    std::string sessionURL() const;

    std::optional<std::string> dashboardURL() const override;
    void setDashboardURL(std::string url) override;
    void uploadAccepted() override;

    const std::shared_ptr<Configuration>& configuration() const { return configuration_; }
    const std::shared_ptr<Session>& session() const { return session_; }

private:
    Core(std::shared_ptr<Session> session, std::shared_ptr<Configuration> configuration);

    void sendMetadata();
    // The envelope as of now; nullopt once the session has used its last sequence number.
    std::optional<qm::Event> stampEvent(EventType type);

    AtomicInteger reqID_{0};
    AtomicInteger identifyCalls_{0};
    const std::shared_ptr<Session> session_;
    const std::shared_ptr<Configuration> configuration_;
    // Set once by make(), before the Core is shared; immutable after.
    std::shared_ptr<Uploader> uploader_;
    std::shared_ptr<RootViewScanner> viewScanner_;
    std::shared_ptr<LogHandler> logHandler_;
    std::shared_ptr<NetworkRequestInterceptor> networkRequestInterceptor_;
    std::shared_ptr<QLMReactNativeSwizzler> reactNativeSwizzler_;

    mutable std::mutex dashboardMutex_;
    std::optional<std::string> dashboardURL_;  // guarded by dashboardMutex_
};

}  // namespace quillmere
