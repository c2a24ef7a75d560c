#pragma once
// Helpers for the URL loading tests: a recorder for completion handlers, a delegate that records
// what a session tells it, and a gate for server handlers. All are waited on with a deadline.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/url/NSHTTPURLResponse.h"
#include "platform/url/NSURLSession.h"
#include "platform/url/NSURLSessionDataDelegate.h"
#include "tests/support/LoopbackHttpServer.h"
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

inline std::shared_ptr<platform::NSURLSession> plainSession() {
    return platform::NSURLSession::sessionWithConfiguration(
        platform::NSURLSessionConfiguration::defaultSessionConfiguration());
}

// A value that can be waited for until a condition on it holds.
template <typename T>
class Watched {
public:
    void update(const std::function<void(T&)>& change) {
        {
            std::lock_guard lock(mutex_);
            change(value_);
        }
        changed_.notify_all();
    }
    bool waitUntil(const std::function<bool(const T&)>& condition,
                   std::chrono::milliseconds timeout = 10s) const {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, timeout, [&] { return condition(value_); });
    }
    T get() const {
        std::lock_guard lock(mutex_);
        return value_;
    }

private:
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    T value_{};  // guarded by mutex_
};

// A gate a server handler waits at (bounded) until the test opens it. Shared by pointer, so a
// handler still waiting when the test ends holds it alive.
struct Gate : Watched<bool> {
    void open() {
        update([](bool& open) { open = true; });
    }
    bool wait() const {
        return waitUntil([](bool open) { return open; });
    }
};

// What a completion handler was called with.
struct Result {
    std::shared_ptr<platform::NSData> data;
    std::shared_ptr<platform::NSURLResponse> response;
    std::shared_ptr<platform::NSError> error;
    int calls = 0;

    std::string body() const { return data ? data->string() : std::string(); }
    long errorCode() const { return error ? error->code() : 0; }
    long status() const { return statusOf(response); }
};

// Hands out a completion handler that records into shared state, so a late call stays harmless.
class CompletionRecorder {
public:
    platform::NSURLSessionCompletionHandler handler() const {
        return [state = state_](auto data, auto response, auto error) {
            state->update([&](Result& r) { r = Result{data, response, error, r.calls + 1}; });
        };
    }
    bool wait() const {
        return state_->waitUntil([](const Result& r) { return r.calls > 0; });
    }
    Result result() const { return state_->get(); }

private:
    std::shared_ptr<Watched<Result>> state_ = std::make_shared<Watched<Result>>();
};

// Runs `request` as a data task with a completion handler and gives what the handler got.
inline Result load(const std::shared_ptr<platform::NSURLSession>& session,
                   const std::shared_ptr<platform::NSURLRequest>& request) {
    CompletionRecorder recorder;
    session->dataTaskWithRequest(request, recorder.handler())->resume();
    EXPECT_TRUE(recorder.wait());
    return recorder.result();
}

// Everything a RecordingDelegate was told.
struct DelegateRecord {
    std::vector<std::string> events;  // "data" for each piece of the body
    std::string body;
    int pieces = 0;
    int completions = 0;
    std::shared_ptr<platform::NSError> error;
    std::shared_ptr<platform::NSURLResponse> response;
    std::vector<std::shared_ptr<platform::NSURLAuthenticationChallenge>> challenges;
    bool overlapped = false;  // the session called it from two threads at once

    long errorCode() const { return error ? error->code() : 0; }
    std::vector<std::string> eventsWithoutData() const {
        std::vector<std::string> out;
        std::copy_if(events.begin(), events.end(), std::back_inserter(out),
                     [](auto& e) { return e != "data"; });
        return out;
    }
};

// A data delegate that records every call and answers as configured (before the task resumes).
class RecordingDelegate : public platform::NSURLSessionDataDelegate, public Watched<DelegateRecord> {
public:
    bool followRedirects = true;
    platform::NSURLSessionAuthChallengeDisposition challengeDisposition =
        platform::NSURLSessionAuthChallengePerformDefaultHandling;
    std::shared_ptr<platform::NSURLCredential> credential;
    bool cancelOnFirstData = false;

    bool waitForCompletion() const {
        return waitUntil([](const DelegateRecord& r) { return r.completions > 0; });
    }

    void URLSession_task_willPerformHTTPRedirection_newRequest_completionHandler(
        const std::shared_ptr<platform::NSURLSession>&, const std::shared_ptr<platform::NSURLSessionTask>&,
        const std::shared_ptr<platform::NSHTTPURLResponse>& response,
        const std::shared_ptr<platform::NSURLRequest>& request,
        std::function<void(std::shared_ptr<platform::NSURLRequest>)> completion) override {
        Entry entry(this);
        note("redirect " + std::to_string(response->statusCode()) + " -> " +
             request->URL()->absoluteString());
        completion(followRedirects ? request : nullptr);
    }
    void URLSession_task_didReceiveChallenge_completionHandler(
        const std::shared_ptr<platform::NSURLSession>&, const std::shared_ptr<platform::NSURLSessionTask>&,
        const std::shared_ptr<platform::NSURLAuthenticationChallenge>& challenge,
        platform::NSURLSessionChallengeCompletion completion) override {
        Entry entry(this);
        note("challenge " + std::to_string(challenge->previousFailureCount()),
             [&](DelegateRecord& r) { r.challenges.push_back(challenge); });
        completion(challengeDisposition, credential);
    }
    void URLSession_dataTask_didReceiveResponse_completionHandler(
        const std::shared_ptr<platform::NSURLSession>&,
        const std::shared_ptr<platform::NSURLSessionDataTask>&,
        const std::shared_ptr<platform::NSURLResponse>& response,
        std::function<void(platform::NSURLSessionResponseDisposition)> completion) override {
        Entry entry(this);
        note("response " + std::to_string(statusOf(response)),
             [&](DelegateRecord& r) { r.response = response; });
        completion(platform::NSURLSessionResponseAllow);
    }
    void URLSession_dataTask_didReceiveData(const std::shared_ptr<platform::NSURLSession>&,
                                            const std::shared_ptr<platform::NSURLSessionDataTask>& task,
                                            const std::shared_ptr<platform::NSData>& data) override {
        Entry entry(this);
        bool first = false;
        note("data", [&](DelegateRecord& r) {
            first = r.pieces++ == 0;
            r.body += data->string();
        });
        if (first && cancelOnFirstData) task->cancel();
    }
    void URLSession_task_didCompleteWithError(const std::shared_ptr<platform::NSURLSession>&,
                                              const std::shared_ptr<platform::NSURLSessionTask>&,
                                              const std::shared_ptr<platform::NSError>& error) override {
        Entry entry(this);
        note(error ? "complete " + std::to_string(error->code()) : std::string("complete"),
             [&](DelegateRecord& r) {
                 r.error = error;
                 ++r.completions;
             });
    }
    void URLSession_didBecomeInvalidWithError(const std::shared_ptr<platform::NSURLSession>&,
                                              const std::shared_ptr<platform::NSError>&) override {
        Entry entry(this);
        note("invalid");
    }

private:
    // Marks a call under way, noting any call that overlaps another.
    struct Entry {
        explicit Entry(RecordingDelegate* d) : delegate(d) {
            if (delegate->inCall_.exchange(true))
                delegate->update([](DelegateRecord& r) { r.overlapped = true; });
        }
        ~Entry() { delegate->inCall_ = false; }
        RecordingDelegate* delegate;
    };
    // The event and what goes with it change together, so a waiter sees both.
    void note(std::string event, const std::function<void(DelegateRecord&)>& also = nullptr) {
        update([&](DelegateRecord& r) {
            r.events.push_back(std::move(event));
            if (also) also(r);
        });
    }

    std::atomic<bool> inCall_{false};
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
        qlm_test::waitUntil([&] { return session_->delegate() == nullptr; });
    }
    const std::shared_ptr<platform::NSURLSession>& operator->() const { return session_; }

private:
    std::shared_ptr<platform::NSURLSession> session_;
};

inline const std::string kGoodAuthorization = "Basic dXNlcjpzZWNyZXQ=";  // user:secret

// A loopback server with the routes the session tests share.
class LoopbackTest : public ::testing::Test {
protected:
    void SetUp() override {
        server.route("*", "/echo", [](const HttpRequest& request) {
            return HttpResponse::text(request.method == "POST" ? 201 : 200, request.body)
                .withHeader("X-Method", request.method);
        });
        server.route("*", "/start", [](const HttpRequest&) {
            return HttpResponse::text(302, "moved").withHeader("Location", "next?from=start");
        });
        server.route("*", "/next",
                     [](const HttpRequest& r) { return HttpResponse::text(200, "arrived by " + r.method); });
        server.route("GET", "/to-private", [](const HttpRequest&) {
            return HttpResponse::text(302, "").withHeader("Location", "/private");
        });
        server.route("GET", "/private", [](const HttpRequest& request) {
            if (request.header("Authorization") == kGoodAuthorization)
                return HttpResponse::text(200, "welcome");
            return HttpResponse::text(401, "denied").withHeader("WWW-Authenticate", "Basic realm=\"quill\"");
        });
        server.route("GET", "/gated", [gate = gate](const HttpRequest&) {
            gate->wait();
            return HttpResponse::text(200, "finally");
        });
        ASSERT_TRUE(server.start());
    }
    void TearDown() override { gate->open(); }

    LoopbackHttpServer server;
    std::shared_ptr<Gate> gate = std::make_shared<Gate>();
};

}  // namespace qlm_test
