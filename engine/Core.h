#pragma once
// The running engine of one session: owns the Uploader (and the capture objects), stamps every
// capture as a qm.Event and funnels it to the Uploader's buffer, identifies the user and forms the
// replay URL. One Core per SDK::initialize; it is never restarted.
//
// Threads: make, start, shutdown on the host's thread that drives SDK; addEvent,
// shouldCaptureRequest, identify and sessionURL on any thread. The Uploader refers back weakly.
#include <google/protobuf/message.h>

#include <cstdint>
#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

#include "engine/AtomicInteger.h"
#include "engine/Configuration.h"
#include "engine/EventType.h"
#include "engine/ReadyStateDelegate.h"
#include "engine/Session.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/objc/Runtime.h"
#include "platform/url/NSURLRequest.h"
#include "upload/Uploader.h"
#include "wire/qm.pb.h"

namespace quillmere {

class LogHandler;
class NetworkRequestInterceptor;
class QLMReactNativeSwizzler;
class RootViewScanner;

class Core final : public ReadyStateDelegate, public std::enable_shared_from_this<Core> {
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

    // Stamps the event now, on the caller's thread; encodes `message` and appends the event on the
    // core queue. Any thread; never blocks on encoding.
    template <class Message>
    void addEvent(EventType type, Message message);
    // As addEvent, for a message that costs more to build than the calling thread should pay (a
    // captured HTTP body of any size): stamped now, built by `build` on the core queue just before
    // it is encoded. What `build` captures moves to the core queue with it.
    template <class Build>
    void addEventBuiltLater(EventType type, Build build);

    // Whether a host request is to be reported: network capture is on, and it has a URL that is not
    // the library's own ingest endpoint.
    bool shouldCaptureRequest(const platform::NSURLRequest& request) const;

    // `traits` nullopt and empty mean the same. Size and count limits drop with a log line.
    void identify(const std::string& userID, const std::optional<Traits>& traits, bool isAnonymous);
    // Empty until the server has relayed a dashboard address.
    std::string sessionURL() const;

    std::optional<std::string> dashboardURL() const override;
    void setDashboardURL(std::string url) override;
    void uploadAccepted() override;

    const std::shared_ptr<Configuration>& configuration() const { return configuration_; }
    const std::shared_ptr<Session>& session() const { return session_; }
    const std::shared_ptr<Uploader>& uploader() const { return uploader_; }
    // Made whatever the configuration says; it runs only if view scanning is on at start.
    const std::shared_ptr<RootViewScanner>& viewScanner() const { return viewScanner_; }
    // Made whatever the configuration says, holding copies of descriptors 1 and 2; it captures
    // only if log capture is on at start.
    const std::shared_ptr<LogHandler>& logHandler() const { return logHandler_; }
    // The core queue: serial, so work submitted after an addEvent runs after its second half.
    const platform::dispatch_queue_t& queue() const { return queue_; }
    // Request numbers of captured HTTP exchanges.
    AtomicInteger& reqID() { return reqID_; }

private:
    Core(std::shared_ptr<Session> session, std::shared_ptr<Configuration> configuration);

    void sendMetadata();
    // The envelope as of now; nullopt once the session has used its last sequence number.
    std::optional<qm::Event> stampEvent(EventType type);
    // The second half of addEvent, on the core queue.
    static void finishEvent(const std::weak_ptr<Core>& weakCore, qm::Event& event,
                            google::protobuf::Message& message) noexcept;

    AtomicInteger reqID_{0};
    AtomicInteger identifyCalls_{0};
    const std::shared_ptr<Session> session_;
    const std::shared_ptr<Configuration> configuration_;
    const platform::dispatch_queue_t queue_;
    // Set once by make(), before the Core is shared; immutable after.
    std::shared_ptr<Uploader> uploader_;
    std::shared_ptr<RootViewScanner> viewScanner_;
    std::shared_ptr<LogHandler> logHandler_;
    std::shared_ptr<NetworkRequestInterceptor> networkRequestInterceptor_;
    std::shared_ptr<QLMReactNativeSwizzler> reactNativeSwizzler_;

    mutable std::mutex dashboardMutex_;
    std::optional<std::string> dashboardURL_;  // guarded by dashboardMutex_
};

template <class Message>
void Core::addEvent(EventType type, Message message) {
    // Already built: the core queue only takes it over.
    addEventBuiltLater(type, [message = std::move(message)]() mutable { return std::move(message); });
}

template <class Build>
void Core::addEventBuiltLater(EventType type, Build build) {
    using Message = std::invoke_result_t<Build&>;
    static_assert(std::is_base_of_v<google::protobuf::Message, Message>, "addEvent takes wire messages");
    try {
        auto event = stampEvent(type);
        if (!event) return;
        queue_->async(
            [weak = weak_from_this(), event = std::move(*event), build = std::move(build)]() mutable {
                std::optional<Message> message;
                try {
                    message.emplace(build());
                } catch (const std::exception&) {
                    return;  // the capture is lost; its sequence number stays used
                }
                finishEvent(weak, event, *message);
            });
    } catch (const std::exception&) {
        // Only allocation can fail here; the capture is lost, the host goes on.
    }
}

}  // namespace quillmere
