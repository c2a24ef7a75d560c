#pragma once
// Helpers for the URL loading tests: a delegate that records what a session tells it, and a
// recorder for completion handlers. Both can be waited on with a deadline.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/url/NSHTTPURLResponse.h"
#include "platform/url/NSURLSession.h"
#include "platform/url/NSURLSessionDataDelegate.h"
#include "tests/support/Wait.h"

namespace qlm_test {

using namespace std::chrono_literals;

inline std::shared_ptr<platform::NSMutableURLRequest> makeRequest(const std::string& url,
                                                                  double timeout = 10.0) {
    return platform::NSMutableURLRequest::requestWithURL(
        platform::NSURL::URLWithString(url), platform::NSURLRequestUseProtocolCachePolicy, timeout);
}

inline long statusOf(const std::shared_ptr<platform::NSURLResponse>& response) {
    auto http = std::dynamic_pointer_cast<platform::NSHTTPURLResponse>(response);
    return http ? http->statusCode() : -1;
}

// A gate a server handler waits at (bounded) until the test opens it. Shared by pointer, so a
// handler still waiting when the test ends holds it alive.
class Gate {
public:
    void open() {
        {
            std::lock_guard lock(mutex_);
            open_ = true;
        }
        changed_.notify_all();
    }
    bool wait(std::chrono::milliseconds timeout = 10s) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, timeout, [&] { return open_; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool open_ = false;  // guarded by mutex_
};

// What a completion handler was called with.
class CompletionRecorder {
public:
    platform::NSURLSessionCompletionHandler handler() {
        return
            [this](std::shared_ptr<platform::NSData> data, std::shared_ptr<platform::NSURLResponse> response,
                   std::shared_ptr<platform::NSError> error) {
                std::lock_guard lock(mutex_);
                data_ = std::move(data);
                response_ = std::move(response);
                error_ = std::move(error);
                ++calls_;
                changed_.notify_all();
            };
    }
    bool wait(std::chrono::milliseconds timeout = 10s) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, timeout, [&] { return calls_ > 0; });
    }
    int calls() const {
        std::lock_guard lock(mutex_);
        return calls_;
    }
    std::shared_ptr<platform::NSData> data() const {
        std::lock_guard lock(mutex_);
        return data_;
    }
    std::string body() const {
        std::lock_guard lock(mutex_);
        return data_ ? data_->string() : std::string();
    }
    std::shared_ptr<platform::NSURLResponse> response() const {
        std::lock_guard lock(mutex_);
        return response_;
    }
    long errorCode() const {
        std::lock_guard lock(mutex_);
        return error_ ? error_->code() : 0;
    }
    std::shared_ptr<platform::NSError> error() const {
        std::lock_guard lock(mutex_);
        return error_;
    }

private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::shared_ptr<platform::NSData> data_;             // guarded by mutex_
    std::shared_ptr<platform::NSURLResponse> response_;  // guarded by mutex_
    std::shared_ptr<platform::NSError> error_;           // guarded by mutex_
    int calls_ = 0;                                      // guarded by mutex_
};

// A data delegate that records every call, answers as configured, and checks that the session
// never calls it from two threads at once.
class RecordingDelegate : public platform::NSURLSessionDataDelegate {
public:
    enum class Redirects { follow, refuse };

    // Set before the task is resumed.
    Redirects redirects = Redirects::follow;
    platform::NSURLSessionAuthChallengeDisposition challengeDisposition =
        platform::NSURLSessionAuthChallengePerformDefaultHandling;
    std::shared_ptr<platform::NSURLCredential> credential;
    platform::NSURLSessionResponseDisposition responseDisposition = platform::NSURLSessionResponseAllow;
    // Cancels the task when the first piece of data arrives.
    bool cancelOnFirstData = false;

    void URLSession_task_willPerformHTTPRedirection_newRequest_completionHandler(
        const std::shared_ptr<platform::NSURLSession>&, const std::shared_ptr<platform::NSURLSessionTask>&,
        const std::shared_ptr<platform::NSHTTPURLResponse>& response,
        const std::shared_ptr<platform::NSURLRequest>& request,
        std::function<void(std::shared_ptr<platform::NSURLRequest>)> completion) override {
        Entry entry(this);
        record("redirect " + std::to_string(response->statusCode()) + " -> " +
               request->URL()->absoluteString());
        completion(redirects == Redirects::follow ? request : nullptr);
    }

    void URLSession_task_didReceiveChallenge_completionHandler(
        const std::shared_ptr<platform::NSURLSession>&, const std::shared_ptr<platform::NSURLSessionTask>&,
        const std::shared_ptr<platform::NSURLAuthenticationChallenge>& challenge,
        platform::NSURLSessionChallengeCompletion completion) override {
        Entry entry(this);
        {
            std::lock_guard lock(mutex_);
            challenges_.push_back(challenge);
        }
        record("challenge " + std::to_string(challenge->previousFailureCount()));
        completion(challengeDisposition, credential);
    }

    void URLSession_dataTask_didReceiveResponse_completionHandler(
        const std::shared_ptr<platform::NSURLSession>&,
        const std::shared_ptr<platform::NSURLSessionDataTask>&,
        const std::shared_ptr<platform::NSURLResponse>& response,
        std::function<void(platform::NSURLSessionResponseDisposition)> completion) override {
        Entry entry(this);
        {
            std::lock_guard lock(mutex_);
            response_ = response;
        }
        record("response " + std::to_string(statusOf(response)));
        completion(responseDisposition);
    }

    void URLSession_dataTask_didReceiveData(const std::shared_ptr<platform::NSURLSession>&,
                                            const std::shared_ptr<platform::NSURLSessionDataTask>& task,
                                            const std::shared_ptr<platform::NSData>& data) override {
        Entry entry(this);
        bool first;
        {
            std::lock_guard lock(mutex_);
            first = pieces_ == 0;
            ++pieces_;
            body_ += data->string();
            events_.push_back("data");
        }
        changed_.notify_all();
        if (first && cancelOnFirstData) task->cancel();
    }

    void URLSession_task_didCompleteWithError(const std::shared_ptr<platform::NSURLSession>&,
                                              const std::shared_ptr<platform::NSURLSessionTask>&,
                                              const std::shared_ptr<platform::NSError>& error) override {
        Entry entry(this);
        {
            // The event and the count change together, so a waiter sees both.
            std::lock_guard lock(mutex_);
            events_.push_back(error ? "complete " + std::to_string(error->code()) : std::string("complete"));
            error_ = error;
            ++completions_;
        }
        changed_.notify_all();
    }

    void URLSession_didBecomeInvalidWithError(const std::shared_ptr<platform::NSURLSession>&,
                                              const std::shared_ptr<platform::NSError>&) override {
        Entry entry(this);
        record("invalid");
    }

    bool waitForCompletion(std::chrono::milliseconds timeout = 10s) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, timeout, [&] { return completions_ > 0; });
    }
    bool waitFor(const std::string& event, std::chrono::milliseconds timeout = 10s) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(
            lock, timeout, [&] { return std::find(events_.begin(), events_.end(), event) != events_.end(); });
    }
    bool waitForPieces(int count, std::chrono::milliseconds timeout = 10s) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, timeout, [&] { return pieces_ >= count; });
    }

    std::vector<std::string> events() const {
        std::lock_guard lock(mutex_);
        return events_;
    }
    // The events other than "data", which may come any number of times.
    std::vector<std::string> eventsWithoutData() const {
        std::lock_guard lock(mutex_);
        std::vector<std::string> out;
        for (const auto& e : events_) {
            if (e != "data") out.push_back(e);
        }
        return out;
    }
    std::string body() const {
        std::lock_guard lock(mutex_);
        return body_;
    }
    int pieces() const {
        std::lock_guard lock(mutex_);
        return pieces_;
    }
    int completions() const {
        std::lock_guard lock(mutex_);
        return completions_;
    }
    long errorCode() const {
        std::lock_guard lock(mutex_);
        return error_ ? error_->code() : 0;
    }
    std::shared_ptr<platform::NSURLResponse> response() const {
        std::lock_guard lock(mutex_);
        return response_;
    }
    std::vector<std::shared_ptr<platform::NSURLAuthenticationChallenge>> challenges() const {
        std::lock_guard lock(mutex_);
        return challenges_;
    }
    bool overlapped() const { return overlapped_.load(); }

private:
    // Marks a call under way, noting any call that overlaps another.
    struct Entry {
        explicit Entry(RecordingDelegate* d) : delegate(d) {
            if (delegate->inCall_.exchange(true)) delegate->overlapped_ = true;
        }
        ~Entry() { delegate->inCall_ = false; }
        RecordingDelegate* delegate;
    };

    void record(std::string event) {
        {
            std::lock_guard lock(mutex_);
            events_.push_back(std::move(event));
        }
        changed_.notify_all();
    }

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> events_;                                                  // guarded by mutex_
    std::string body_;                                                                 // guarded by mutex_
    int pieces_ = 0;                                                                   // guarded by mutex_
    int completions_ = 0;                                                              // guarded by mutex_
    std::shared_ptr<platform::NSError> error_;                                         // guarded by mutex_
    std::shared_ptr<platform::NSURLResponse> response_;                                // guarded by mutex_
    std::vector<std::shared_ptr<platform::NSURLAuthenticationChallenge>> challenges_;  // guarded by mutex_
    std::atomic<bool> inCall_{false};
    std::atomic<bool> overlapped_{false};
};

// A session with `delegate` that is invalidated (and so lets go of its delegate) when it goes.
class DelegateSession {
public:
    explicit DelegateSession(std::shared_ptr<platform::NSURLSessionDelegate> delegate)
        : session_(platform::NSURLSession::sessionWithConfiguration(
              platform::NSURLSessionConfiguration::defaultSessionConfiguration(), std::move(delegate),
              nullptr)) {}
    // Waits (bounded) until the session has let go of its delegate, so nothing outlives the test.
    ~DelegateSession() {
        session_->invalidateAndCancel();
        waitUntil([&] { return session_->delegate() == nullptr; });
    }
    const std::shared_ptr<platform::NSURLSession>& operator->() const { return session_; }
    const std::shared_ptr<platform::NSURLSession>& get() const { return session_; }

private:
    std::shared_ptr<platform::NSURLSession> session_;
};

}  // namespace qlm_test
