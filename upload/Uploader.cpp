#include "upload/Uploader.h"

#include <exception>
#include <memory>

#include "engine/MessageEncoding.h"
#include "platform/foundation/NSLog.h"
#include "platform/foundation/NSString.h"
#include "platform/url/NSHTTPURLResponse.h"
#include "platform/url/NSMutableURLRequest.h"
#include "platform/url/NSURLSessionConfiguration.h"
#include "upload/RelayMessage.h"

namespace quillmere {

namespace {

constexpr double kRequestTimeoutSeconds = 60.0;

// One-shot, one interval from now: the pause runs from the end of a send to the next firing.
void scheduleNextFiring(platform::DispatchSourceTimer& source) {
    source.schedule(platform::DispatchTime::now() +
                        platform::DispatchTimeInterval::milliseconds(Uploader::kRepeatIntervalMilliseconds),
                    platform::DispatchTimeInterval::never(),
                    platform::DispatchTimeInterval::nanosecondsInterval(0));
}

}  // namespace

std::string Uploader::ingestURLText(const Session& session, std::string_view serverURL) {
    std::string text(serverURL);
    text += "?a=" + session.appID();
    text += "&r=" + session.recordingID();
    text += "&t=" + session.tabID();
    text += "&s=" + std::to_string(session.sessionID());
    text += "&ir=t";
    return text;
}

std::shared_ptr<platform::NSURL> Uploader::ingestURL(const Session& session, std::string_view serverURL) {
    return platform::NSURL::URLWithString(ingestURLText(session, serverURL));
}

std::shared_ptr<Uploader> Uploader::make(std::shared_ptr<Session> session, std::string_view serverURL,
                                         std::weak_ptr<ReadyStateDelegate> readyStateDelegate) {
    if (!session) return nullptr;
    auto url = ingestURL(*session, serverURL);
    if (!url) return nullptr;
    return std::shared_ptr<Uploader>(
        new Uploader(std::move(session), std::move(url), std::move(readyStateDelegate)));
}

Uploader::Uploader(std::shared_ptr<Session> session, std::shared_ptr<platform::NSURL> url,
                   std::weak_ptr<ReadyStateDelegate> readyStateDelegate)
    : session_(std::move(session)),
      urlSession_(platform::NSURLSession::sessionWithConfiguration(
          platform::NSURLSessionConfiguration::defaultSessionConfiguration())),
      url_(std::move(url)),
      queue_(platform::DispatchQueue::makeSerial(
          "com.quillmere.uploader.queue", platform::DispatchQoS::unspecified,
          platform::DispatchQueue::global(platform::DispatchQoS::default_))),
      readyStateDelegate_(std::move(readyStateDelegate)) {}

std::shared_ptr<platform::DispatchSourceTimer> Uploader::timer() {
    std::lock_guard lock(timerMutex_);
    if (!timer_) {
        timer_ = platform::DispatchSourceTimer::makeTimerSource(platform::DispatchTimerFlags::none, queue_);
    }
    return timer_;
}

void Uploader::start() {
    const auto source = timer();
    scheduleNextFiring(*source);
    // Weakly: a pending firing must not keep a dropped Uploader alive.
    source->setEventHandler(platform::DispatchQoS::unspecified, platform::DispatchWorkItemFlags::none,
                            [weak = weak_from_this()] {
                                if (auto self = weak.lock()) self->send();
                            });
    source->activate();
}

void Uploader::stop() {
    const auto source = timer();
    if (!source->isCancelled()) source->cancel();
    platform::dispatch_sync(queue_, [self = shared_from_this()] { self->send(); });
}

void Uploader::append(qm::Event event) {
    auto owned = std::make_unique<qm::Event>(std::move(event));
    std::lock_guard lock(bufferMutex_);
    eventBuffer_.AddAllocated(owned.release());
}

std::vector<qm::Event> Uploader::eventBuffer() const {
    std::lock_guard lock(bufferMutex_);
    return std::vector<qm::Event>(eventBuffer_.begin(), eventBuffer_.end());
}

std::size_t Uploader::eventBufferCount() const {
    std::lock_guard lock(bufferMutex_);
    return static_cast<std::size_t>(eventBuffer_.size());
}

void Uploader::send() {
    try {
        // The whole buffer is taken at once under the lock: appends that come later wait for the
        // next send, and the encoding, long for screen captures, does not hold up the appender.
        qm::EventList list;
        {
            std::lock_guard lock(bufferMutex_);
            list.mutable_events()->Swap(&eventBuffer_);
        }
        if (list.events_size() > 0) {
            list.set_appid(session_->appID());
            auto request = platform::NSMutableURLRequest::requestWithURL(
                url_, platform::NSURLRequestUseProtocolCachePolicy, kRequestTimeoutSeconds);
            request->setHTTPMethod("POST");
            std::string failure;
            if (auto body = encode(list, failure)) {
                auto task = urlSession_->uploadTaskWithRequest(
                    request, body,
                    [self = shared_from_this()](std::shared_ptr<platform::NSData> data,
                                                std::shared_ptr<platform::NSURLResponse> response,
                                                std::shared_ptr<platform::NSError> error) {
                        self->uploadCompleted(data, response, error);
                    });
                task->resume();
            } else {
                platform::NSLog("Quillmere: Unexpected upload error: " + failure + ".");
                putBack(list);
            }
        }
    } catch (const std::exception& e) {
        platform::NSLog(std::string("Quillmere: Unexpected upload error: ") + e.what() + ".");
    }
    rearm();
}

std::shared_ptr<platform::NSData> Uploader::encode(const qm::EventList& list, std::string& failure) {
    try {
        const auto size = encodableSize(list, failure);
        if (!size) return nullptr;
        std::vector<uint8_t> bytes(*size);
        list.SerializeWithCachedSizesToArray(bytes.data());
        return std::make_shared<platform::NSData>(std::move(bytes));
    } catch (const std::exception& e) {
        // No memory for the body: a failure to encode like any, and the events stay.
        failure = e.what();
        return nullptr;
    }
}

// Ahead of whatever was appended meanwhile, so the next send tries the same events in order.
void Uploader::putBack(qm::EventList& list) {
    auto& events = *list.mutable_events();
    std::lock_guard lock(bufferMutex_);
    for (auto& later : eventBuffer_) events.Add(std::move(later));
    eventBuffer_.Swap(&events);
}

void Uploader::rearm() {
    const auto source = timer();
    if (!source->isCancelled()) scheduleNextFiring(*source);
}

void Uploader::uploadCompleted(const std::shared_ptr<platform::NSData>& data,
                               const std::shared_ptr<platform::NSURLResponse>& response,
                               const std::shared_ptr<platform::NSError>& error) {
    try {
        if (error) {
            platform::NSLog("Quillmere: Upload task failed: " + error->localizedDescription());
            return;
        }
        const auto http = std::dynamic_pointer_cast<platform::NSHTTPURLResponse>(response);
        if (!http) return;
        const long status = http->statusCode();
        if (status >= 200 && status <= 299) {
            // Before the flush, so a held getSessionURL sees the address this very reply relayed.
            if (status == 201) handleServerReply(data);
            if (auto delegate = readyStateDelegate_.lock()) delegate->uploadAccepted();
            return;
        }
        platform::NSLog("Quillmere: server error code: " + std::to_string(status));
        if (data && platform::NSStringIsValidUTF8(data->view())) {
            platform::NSLog("Quillmere: server error body: " + data->string());
        }
    } catch (const std::exception& e) {
        platform::NSLog(std::string("Quillmere: Unexpected upload error: ") + e.what() + ".");
    }
}

void Uploader::handleServerReply(const std::shared_ptr<platform::NSData>& data) {
    for (const auto& message : parseRelayMessages(data)) {
        auto url = message.dashboardURL();
        if (!url) continue;
        if (auto delegate = readyStateDelegate_.lock()) delegate->setDashboardURL(std::move(*url));
    }
}

}  // namespace quillmere
