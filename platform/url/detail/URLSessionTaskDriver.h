#pragma once
// The URL loading system's side of one task: it chooses the protocol class, starts and stops
// protocol instances on the loader thread, and turns what an instance reports into delegate calls
// and the completion, on the session's delegate queue.
//
// Each protocol instance gets a generation number; what an instance reports after it was replaced
// (a redirect followed) or after the task ended is dropped. Reports are handled on the delegate
// queue in the order they were made; while the delegate decides on a response or a redirect, later
// reports wait.
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>

#include "platform/foundation/NSData.h"
#include "platform/foundation/NSError.h"
#include "platform/url/NSURLAuthenticationChallenge.h"
#include "platform/url/NSURLProtocol.h"
#include "platform/url/NSURLRequest.h"
#include "platform/url/NSURLResponse.h"
#include "platform/url/NSURLSessionDataDelegate.h"
#include "platform/url/NSURLSessionTask.h"

namespace platform {
class NSURLSession;
}

namespace platform::detail {

// One report of a protocol instance to its client.
struct URLProtocolEvent {
    enum class Kind { redirect, response, data, finish, fail, challenge, cancelChallenge };
    explicit URLProtocolEvent(Kind k) : kind(k) {}

    Kind kind;
    std::shared_ptr<NSURLRequest> request;                    // redirect: the new request
    std::shared_ptr<NSURLResponse> response;                  // redirect, response
    std::shared_ptr<NSData> data;                             // data
    std::shared_ptr<NSError> error;                           // fail
    std::shared_ptr<NSURLAuthenticationChallenge> challenge;  // challenge, cancelChallenge
};

class URLSessionTaskDriver : public std::enable_shared_from_this<URLSessionTaskDriver> {
public:
    // At most this many redirects are followed; one more fails the task.
    static constexpr int kMaximumRedirects = 16;

    // `completion` empty: the task reports to the session's delegate.
    URLSessionTaskDriver(const std::shared_ptr<NSURLSessionTask>& task, std::shared_ptr<NSURLSession> session,
                         std::shared_ptr<NSURLRequest> request, unsigned long identifier,
                         NSURLSessionCompletionHandler completion);

    void resume();
    void cancel();

    std::shared_ptr<NSURLRequest> originalRequest() const { return originalRequest_; }
    std::shared_ptr<NSURLRequest> currentRequest() const;
    std::shared_ptr<NSURLResponse> response() const;
    NSURLSessionTaskState state() const;
    unsigned long taskIdentifier() const { return identifier_; }
    std::shared_ptr<NSError> error() const;
    const std::shared_ptr<NSURLSession>& session() const { return session_; }

    // A report of the instance of `generation`; any thread.
    void post(uint64_t generation, URLProtocolEvent event);

private:
    void startLoading(uint64_t generation);
    void selectAndStartProtocol(uint64_t generation);  // loader thread
    bool isCurrent(uint64_t generation) const;
    void failFromLoader(uint64_t generation, long code);

    // Delegate queue only, from here on.
    void handle(uint64_t generation, URLProtocolEvent event);
    void process(uint64_t generation, URLProtocolEvent event);
    void replayHeld(uint64_t generation);
    void askAboutResponse(uint64_t generation, const std::shared_ptr<NSURLResponse>& response);
    void askAboutRedirect(uint64_t generation, const URLProtocolEvent& event);
    void askAboutChallenge(const std::shared_ptr<NSURLAuthenticationChallenge>& challenge);
    void responseDecided(uint64_t generation, NSURLSessionResponseDisposition disposition);
    void redirectDecided(uint64_t generation, std::shared_ptr<NSURLRequest> request);
    void complete(std::shared_ptr<NSError> error);

    const std::weak_ptr<NSURLSessionTask> task_;
    const std::shared_ptr<NSURLSession> session_;  // a task keeps its session alive
    const std::shared_ptr<NSURLRequest> originalRequest_;
    const unsigned long identifier_;

    mutable std::mutex mutex_;
    std::shared_ptr<NSURLRequest> currentRequest_;                  // guarded by mutex_
    std::shared_ptr<NSURLResponse> response_;                       // guarded by mutex_
    std::shared_ptr<NSError> error_;                                // guarded by mutex_
    NSURLSessionTaskState state_ = NSURLSessionTaskStateSuspended;  // guarded by mutex_
    uint64_t generation_ = 0;                                       // guarded by mutex_
    std::shared_ptr<NSURLProtocol> protocol_;  // guarded by mutex_; the instance of generation_
    bool completed_ = false;                   // guarded by mutex_; the end is being reported

    NSURLSessionCompletionHandler completion_;  // delegate queue only; cleared once called
    std::shared_ptr<NSMutableData> received_;   // delegate queue only; the body for completion_
    std::deque<URLProtocolEvent> held_;         // delegate queue only; reports waiting on a decision
    bool holding_ = false;                      // delegate queue only
    int redirects_ = 0;                         // delegate queue only
};

}  // namespace platform::detail
