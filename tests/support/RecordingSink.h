#pragma once
// A sink that keeps what captures hand it, so that capture tests need no Core, no ingest server
// and no decoding: each event's type and its message, built when the test first reads it. As a
// network sink it numbers requests from 0, takes those its predicate lets through (all, unless
// told otherwise) and offers the sanitizers set on it. Header-only, so the support library itself
// needs no library classes.
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "engine/NetworkEventSink.h"
#include "tests/support/Wait.h"

namespace qlm_test {

class RecordingSink final : public quillmere::NetworkEventSink {
public:
    using EventType = quillmere::EventType;

    void add(EventType type, std::shared_ptr<Capture> capture) noexcept override {
        std::lock_guard lock(mutex_);
        events_.push_back({type, std::move(capture)});
    }

    // How many events of `type` were handed over.
    std::size_t count(EventType type) const {
        std::lock_guard lock(mutex_);
        std::size_t n = 0;
        for (const auto& event : events_) n += event.type == type;
        return n;
    }
    bool waitFor(EventType type, std::size_t n,
                 std::chrono::milliseconds timeout = std::chrono::milliseconds(10000)) const {
        return waitUntil([&] { return count(type) >= n; }, timeout);
    }

    // The messages of `type`, in the order handed over; one that is no M, or can't be built, fails
    // the test.
    template <class M>
    std::vector<M> messages(EventType type) const {
        std::lock_guard lock(mutex_);
        std::vector<M> messages;
        for (const auto& event : events_) {
            if (event.type != type) continue;
            const auto* message = dynamic_cast<const M*>(event.capture->message());
            EXPECT_TRUE(message) << "not built, or not the message of its type";
            if (message) messages.push_back(*message);
        }
        return messages;
    }

    bool shouldCaptureRequest(const platform::NSURLRequest& request) const override {
        std::lock_guard lock(mutex_);
        return !captures_ || captures_(request);
    }
    int64_t nextRequestID() noexcept override {
        std::lock_guard lock(mutex_);
        return nextRequestID_++;
    }
    std::shared_ptr<quillmere::RequestSanitizer> requestSanitizer() const override {
        std::lock_guard lock(mutex_);
        return requestSanitizer_;
    }
    std::shared_ptr<quillmere::ResponseSanitizer> responseSanitizer() const override {
        std::lock_guard lock(mutex_);
        return responseSanitizer_;
    }

    void setCaptures(std::function<bool(const platform::NSURLRequest&)> captures) {
        std::lock_guard lock(mutex_);
        captures_ = std::move(captures);
    }
    void setRequestSanitizer(std::shared_ptr<quillmere::RequestSanitizer> sanitizer) {
        std::lock_guard lock(mutex_);
        requestSanitizer_ = std::move(sanitizer);
    }
    void setResponseSanitizer(std::shared_ptr<quillmere::ResponseSanitizer> sanitizer) {
        std::lock_guard lock(mutex_);
        responseSanitizer_ = std::move(sanitizer);
    }

private:
    struct Event {
        EventType type;
        std::shared_ptr<Capture> capture;
    };

    // One lock for all, held while a message is built: a capture is built on one thread at a time.
    mutable std::mutex mutex_;
    std::vector<Event> events_;                                        // guarded by mutex_
    std::function<bool(const platform::NSURLRequest&)> captures_;      // guarded by mutex_
    int64_t nextRequestID_ = 0;                                        // guarded by mutex_
    std::shared_ptr<quillmere::RequestSanitizer> requestSanitizer_;    // guarded by mutex_
    std::shared_ptr<quillmere::ResponseSanitizer> responseSanitizer_;  // guarded by mutex_
};

}  // namespace qlm_test
