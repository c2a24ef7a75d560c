#pragma once
// Moves finished events to the ingest server: one POST of every buffered event about once a second.
//
// An event waits in the buffer as its capture handed it over: stamped, its message not yet built.
// The send builds and encodes it, so that the work a capture costs (a body's text, the encodings)
// is done once a second on the uploader queue and never at the moment the host waits for its own
// work, such as a response that has just ended.
//
// Threads: append() from any thread (capture threads, through the Core); start() and stop() from
// the host's thread, never from the uploader queue; sends run on the uploader queue; replies are
// handled on the URL session's callback queue. The Uploader holds its Core only weakly (readyStateDelegate);
// an upload in flight holds the Uploader until its reply has been handled.
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/EventSink.h"
#include "engine/PacedTimer.h"
#include "engine/ReadyStateDelegate.h"
#include "engine/Session.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/foundation/NSData.h"
#include "platform/foundation/NSError.h"
#include "platform/url/NSURL.h"
#include "platform/url/NSURLResponse.h"
#include "platform/url/NSURLSession.h"
#include "upload/UploadReplyReader.h"
#include "wire/qm.pb.h"

namespace quillmere {

class Uploader : public std::enable_shared_from_this<Uploader> {
public:
    static constexpr int64_t kRepeatIntervalMilliseconds = 1000;
    static constexpr double kRequestTimeoutSeconds = 60.0;
    // The longest body of one POST: a send with more goes as several.
    static constexpr std::size_t kMaximumBodyBytes = 8 * 1024 * 1024;

    // Whether `appID` reads back as itself from the ingest URL's query, where nothing is escaped:
    // none of "&", "#", "%", "+", "=", a space or a control character.
    static bool travelsUnescaped(std::string_view appID);
    // The ingest URL's text: `serverURL` and the query naming the session, nothing escaped.
    static std::string ingestURLText(const Session& session, std::string_view serverURL);
    // That text as a URL; null when it is none, or when the app id would not travel unescaped.
    static std::shared_ptr<platform::NSURL> ingestURL(const Session& session, std::string_view serverURL);

    // Null when no URL forms from `serverURL` and the session. Starts nothing. Each POST gives up
    // after `requestTimeoutSeconds` without progress.
    static std::shared_ptr<Uploader> make(std::shared_ptr<Session> session, std::string_view serverURL,
                                          std::weak_ptr<ReadyStateDelegate> readyStateDelegate,
                                          double requestTimeoutSeconds = kRequestTimeoutSeconds);

    Uploader(const Uploader&) = delete;
    Uploader& operator=(const Uploader&) = delete;

    // Arms the one-shot timer for one interval from now. Call once.
    void start();
    // Cancels the timer and makes a last send of what has gathered, returning once it has been
    // handed to the URL session. Blocks on the uploader queue: never call it from there.
    void stop();
    // Waits until every upload handed to the URL session so far has ended, its reply handled, or
    // until `deadline`; true in the first case. Sends nothing itself. Never call it from a reply's
    // handling, which it would wait for.
    bool flush(std::chrono::steady_clock::time_point deadline);

    // Queues an event for the next send: `envelope` as stamped, and its message to build then.
    // Never blocks on building or encoding.
    void append(qm::Event envelope, std::shared_ptr<EventSink::Capture> capture);
    // Queues an event whose data is encoded already.
    void append(qm::Event event);

    // How many events wait for the next send.
    std::size_t eventBufferCount() const;
    const std::shared_ptr<platform::NSURL>& url() const { return url_; }

    // The upload task's completion, on the URL session's callback queue. Any argument may be null.
    void uploadCompleted(const std::shared_ptr<platform::NSData>& data,
                         const std::shared_ptr<platform::NSURLResponse>& response,
                         const std::shared_ptr<platform::NSError>& error);
    // Acts on the relay messages of a 201 reply's body (null: none).
    void handleServerReply(const std::shared_ptr<platform::NSData>& data);

private:
    Uploader(std::shared_ptr<Session> session, std::shared_ptr<platform::NSURL> url,
             std::weak_ptr<ReadyStateDelegate> readyStateDelegate, double requestTimeoutSeconds);

    // On the uploader queue only.
    void send();
    // Hands one list to the URL session; false, with the reason in `failure`, when it cannot be
    // encoded.
    bool post(const qm::EventList& list, std::string& failure);
    // The body of one POST; null, with the reason in `failure`, when it cannot be encoded or there
    // is no memory for it.
    static std::shared_ptr<platform::NSData> encode(const qm::EventList& list, std::string& failure);
    // One event as it waits: the capture is null once its message is in the envelope's data.
    struct Waiting {
        qm::Event event;
        std::shared_ptr<EventSink::Capture> capture;
    };
    // Builds each taken event's message and encodes it into its envelope; one that can't be is
    // lost, with a log line, and leaves `taken`.
    static void build(std::vector<Waiting>& taken) noexcept;
    // Moves the built events into `list`; false when there is no memory for it, and they are put
    // back for the next send.
    bool gather(std::vector<Waiting>& taken, qm::EventList& list);
    // Return events that could not be sent to the front of the buffer, in their order.
    void putBack(std::vector<Waiting>& events);
    void putBack(qm::EventList& list);
    // An upload's reply has been handled.
    void uploadEnded();

    const std::shared_ptr<Session> session_;
    const double requestTimeoutSeconds_;
    const std::shared_ptr<UploadReplyReader> replyReader_;
    const std::shared_ptr<platform::NSURLSession> urlSession_;
    const std::shared_ptr<platform::NSURL> url_;
    const platform::dispatch_queue_t queue_;
    const std::shared_ptr<PacedTimer> timer_;
    const std::weak_ptr<ReadyStateDelegate> readyStateDelegate_;

    // A send takes the whole buffer with one swap.
    mutable std::mutex bufferMutex_;
    std::vector<Waiting> eventBuffer_;  // guarded by bufferMutex_

    std::mutex uploadsMutex_;
    std::condition_variable uploadsEnded_;
    std::size_t uploadsInFlight_ = 0;  // guarded by uploadsMutex_; handed over, reply not yet handled
};

}  // namespace quillmere
