#include "upload/Uploader.h"

#include <exception>
#include <memory>

#include "engine/MessageEncoding.h"
#include "platform/foundation/NSLog.h"
#include "platform/foundation/NSString.h"
#include "platform/url/NSHTTPURLResponse.h"
#include "platform/url/NSMutableURLRequest.h"
#include "platform/url/NSURLSessionConfiguration.h"
#include "upload/BatchParts.h"
#include "upload/RelayMessage.h"

namespace quillmere {

bool Uploader::travelsUnescaped(std::string_view appID) {
    for (const char c : appID) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7F) return false;
        if (c == '&' || c == '#' || c == '%' || c == '+' || c == '=' || c == ' ') return false;
    }
    return true;
}

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
    if (!travelsUnescaped(session.appID())) return nullptr;
    return platform::NSURL::URLWithString(ingestURLText(session, serverURL));
}

std::shared_ptr<Uploader> Uploader::make(std::shared_ptr<Session> session, std::string_view serverURL,
                                         std::weak_ptr<ReadyStateDelegate> readyStateDelegate,
                                         double requestTimeoutSeconds) {
    if (!session) return nullptr;
    auto url = ingestURL(*session, serverURL);
    if (!url) return nullptr;
    return std::shared_ptr<Uploader>(new Uploader(std::move(session), std::move(url),
                                                  std::move(readyStateDelegate), requestTimeoutSeconds));
}

Uploader::Uploader(std::shared_ptr<Session> session, std::shared_ptr<platform::NSURL> url,
                   std::weak_ptr<ReadyStateDelegate> readyStateDelegate, double requestTimeoutSeconds)
    : session_(std::move(session)),
      requestTimeoutSeconds_(requestTimeoutSeconds),
      replyReader_(std::make_shared<UploadReplyReader>()),
      // Replies come to the reader, which keeps no more of a body than a reply needs.
      urlSession_(platform::NSURLSession::sessionWithConfiguration(
          platform::NSURLSessionConfiguration::defaultSessionConfiguration(), replyReader_, nullptr)),
      url_(std::move(url)),
      queue_(platform::DispatchQueue::makeSerial(
          "com.quillmere.uploader.queue", platform::DispatchQoS::unspecified,
          platform::DispatchQueue::global(platform::DispatchQoS::default_))),
      // The pause runs from the end of a send to the next: a slow send lowers the rate.
      timer_(PacedTimer::make(queue_, platform::DispatchTimeInterval::milliseconds(kRepeatIntervalMilliseconds))),
      readyStateDelegate_(std::move(readyStateDelegate)) {}

void Uploader::start() {
    // Weakly: a pending firing must not keep a dropped Uploader alive.
    timer_->start([weak = weak_from_this()] {
        if (const auto self = weak.lock()) self->send();
    });
}

void Uploader::stop() {
    timer_->cancel();
    // After a send that is running, if any: the timer's queue targets this one.
    platform::dispatch_sync(queue_, [self = shared_from_this()] { self->send(); });
}

bool Uploader::flush(std::chrono::steady_clock::time_point deadline) {
    std::unique_lock lock(uploadsMutex_);
    return uploadsEnded_.wait_until(lock, deadline, [this] { return uploadsInFlight_ == 0; });
}

void Uploader::uploadEnded() {
    std::lock_guard lock(uploadsMutex_);
    --uploadsInFlight_;
    uploadsEnded_.notify_all();
}

void Uploader::append(qm::Event envelope, std::shared_ptr<EventSink::Capture> capture) {
    if (!capture) return;
    std::lock_guard lock(bufferMutex_);
    eventBuffer_.push_back({std::move(envelope), std::move(capture)});
}

void Uploader::append(qm::Event event) {
    std::lock_guard lock(bufferMutex_);
    eventBuffer_.push_back({std::move(event), nullptr});
}

std::size_t Uploader::eventBufferCount() const {
    std::lock_guard lock(bufferMutex_);
    return eventBuffer_.size();
}

void Uploader::send() {
    // The whole buffer is taken at once under the lock: appends that come later wait for the next
    // send, and the building, long for bodies and screen captures, does not hold up the appender.
    std::vector<Waiting> taken;
    {
        std::lock_guard lock(bufferMutex_);
        taken.swap(eventBuffer_);
    }
    if (taken.empty()) return;
    build(taken);
    qm::EventList list;
    if (!gather(taken, list)) return;
    try {
        // In order, each whole; what cannot be encoded goes back with everything after it.
        auto parts = splitIntoParts(std::move(list), kMaximumBodyBytes);
        for (std::size_t i = 0; i < parts.size(); ++i) {
            std::string failure;
            if (post(parts[i], failure)) continue;
            platform::NSLog("Quillmere: Unexpected upload error: " + failure + ".");
            for (std::size_t later = i + 1; later < parts.size(); ++later) {
                for (auto& event : *parts[later].mutable_events()) *parts[i].add_events() = std::move(event);
            }
            putBack(parts[i]);
            break;
        }
    } catch (const std::exception& e) {
        platform::NSLog(std::string("Quillmere: Unexpected upload error: ") + e.what() + ".");
    }
}

namespace {

// A diagnostic that, with no memory left for its text, is given up rather than thrown.
void logQuietly(const std::string& prefix, const std::string& detail) noexcept {
    try {
        platform::NSLog(prefix + detail);
    } catch (const std::exception&) {
    }
}

}  // namespace

void Uploader::build(std::vector<Waiting>& taken) noexcept {
    std::size_t kept = 0;
    for (auto& waiting : taken) {
        if (waiting.capture) {
            try {
                std::string failure;
                // Null: it could not be built; the capture is lost, its sequence number stays used.
                auto* message = waiting.capture->message();
                if (!message) continue;
                if (!encodeInto(waiting.event, *message, failure)) {
                    logQuietly("Quillmere: Failed to add event: ", failure);
                    continue;
                }
            } catch (const std::exception& e) {
                logQuietly("Quillmere: Failed to add event: ", e.what());
                continue;
            }
            // Its message goes now, not with the rest after the send.
            waiting.capture.reset();
        }
        if (&taken[kept] != &waiting) taken[kept] = std::move(waiting);
        ++kept;
    }
    // Shrinking allocates nothing.
    taken.erase(taken.begin() + static_cast<std::ptrdiff_t>(kept), taken.end());
}

bool Uploader::gather(std::vector<Waiting>& taken, qm::EventList& list) {
    auto& events = *list.mutable_events();
    std::size_t moved = 0;
    try {
        list.set_appid(session_->appID());
        events.Reserve(static_cast<int>(taken.size()));
        // Add allocates before the move, which swaps and cannot fail: `moved` counts what is in.
        for (; moved < taken.size(); ++moved) *events.Add() = std::move(taken[moved].event);
        return true;
    } catch (const std::exception& e) {
        logQuietly("Quillmere: Unexpected upload error: ", std::string(e.what()) + ".");
        for (std::size_t i = 0; i < moved; ++i) taken[i].event = std::move(*events.Mutable(static_cast<int>(i)));
        putBack(taken);
        return false;
    }
}

bool Uploader::post(const qm::EventList& list, std::string& failure) {
    auto body = encode(list, failure);
    if (!body) return false;
    auto request = platform::NSMutableURLRequest::requestWithURL(
        url_, platform::NSURLRequestUseProtocolCachePolicy, requestTimeoutSeconds_);
    request->setHTTPMethod("POST");
    auto task = urlSession_->uploadTaskWithRequest(request, body);
    replyReader_->expect(task, [self = shared_from_this()](std::shared_ptr<platform::NSData> data,
                                                           std::shared_ptr<platform::NSURLResponse> response,
                                                           std::shared_ptr<platform::NSError> error) {
        self->uploadCompleted(data, response, error);
        self->uploadEnded();
    });
    {
        // Counted before it can end.
        std::lock_guard lock(uploadsMutex_);
        ++uploadsInFlight_;
    }
    task->resume();
    return true;
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
void Uploader::putBack(std::vector<Waiting>& events) {
    std::lock_guard lock(bufferMutex_);
    try {
        events.insert(events.end(), std::make_move_iterator(eventBuffer_.begin()),
                      std::make_move_iterator(eventBuffer_.end()));
    } catch (const std::exception&) {
        // No memory to join them: the later events stay, the ones put back are lost.
        return;
    }
    eventBuffer_.swap(events);
}

void Uploader::putBack(qm::EventList& list) {
    std::vector<Waiting> events;
    try {
        events.reserve(static_cast<std::size_t>(list.events_size()));
    } catch (const std::exception&) {
        return;
    }
    for (auto& event : *list.mutable_events()) events.push_back({std::move(event), nullptr});
    putBack(events);
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

namespace {

// The replay URL is built on the dashboard address and handed to the host, which may open it:
// nothing but a web address may become one.
bool isWebAddress(const std::string& text) {
    const auto url = platform::NSURL::URLWithString(text);
    if (!url || !url->scheme() || !url->host() || url->host()->empty()) return false;
    return *url->scheme() == "http" || *url->scheme() == "https";
}

}  // namespace

void Uploader::handleServerReply(const std::shared_ptr<platform::NSData>& data) {
    for (const auto& message : parseRelayMessages(data)) {
        auto url = message.dashboardURL();
        if (!url || !isWebAddress(*url)) continue;
        if (auto delegate = readyStateDelegate_.lock()) delegate->setDashboardURL(std::move(*url));
    }
}

}  // namespace quillmere
