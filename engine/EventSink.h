#pragma once
// Where a capture hands the events it makes. A capture depends on this and on nothing else of the
// engine: the Core is the sink of a running session, and a test plugs in one that records.
//
// The sink stamps an event (its time and sequence number) on the capture's thread at the moment
// it is handed over; building its message may wait for the sink's own thread, so that a capture
// thread pays for no more than the stamp and the hand-off.
//
// Threads: any; add never blocks on building or encoding, and no exception leaves it.
#include <google/protobuf/message.h>

#include <exception>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

#include "engine/EventType.h"

namespace quillmere {

class EventSink {
public:
    // One event's message as its capture handed it over, built or still to build.
    class Capture {
    public:
        virtual ~Capture() = default;
        // The message, built on the first call; null when it cannot be built (no memory), and the
        // event is then lost. Call from one thread at a time.
        virtual google::protobuf::Message* message() noexcept = 0;
    };

    virtual ~EventSink() = default;

    // Hands over a message that is already built.
    template <class Message>
    void addEvent(EventType type, Message message) noexcept;
    // Hands over a message that costs more to build than the calling thread should pay (a captured
    // HTTP body of any size): stamped now, built by `build` later, wherever the sink builds. What
    // `build` captures goes with it.
    template <class Build>
    void addEventBuiltLater(EventType type, Build build) noexcept;

    // The one entry point: stamps the event now, on the calling thread, and takes `capture` on to
    // be built and sent.
    virtual void add(EventType type, std::shared_ptr<Capture> capture) noexcept = 0;

private:
    template <class Message>
    class Built;
    template <class Build>
    class BuiltLater;
};

template <class Message>
class EventSink::Built final : public Capture {
public:
    explicit Built(Message message) : message_(std::move(message)) {}
    google::protobuf::Message* message() noexcept override { return &message_; }

private:
    Message message_;
};

template <class Build>
class EventSink::BuiltLater final : public Capture {
public:
    using Message = std::invoke_result_t<Build&>;

    explicit BuiltLater(Build build) : build_(std::move(build)) {}
    google::protobuf::Message* message() noexcept override {
        if (!message_) {
            try {
                message_.emplace(build_());
            } catch (const std::exception&) {
                return nullptr;
            }
        }
        return &*message_;
    }

private:
    Build build_;
    std::optional<Message> message_;
};

template <class Message>
void EventSink::addEvent(EventType type, Message message) noexcept {
    static_assert(std::is_base_of_v<google::protobuf::Message, Message>, "addEvent takes wire messages");
    try {
        add(type, std::make_shared<Built<Message>>(std::move(message)));
    } catch (const std::exception&) {
        // Only allocation fails here; the capture is lost, the host goes on.
    }
}

template <class Build>
void EventSink::addEventBuiltLater(EventType type, Build build) noexcept {
    static_assert(std::is_base_of_v<google::protobuf::Message, std::invoke_result_t<Build&>>,
                  "addEventBuiltLater builds wire messages");
    try {
        add(type, std::make_shared<BuiltLater<Build>>(std::move(build)));
    } catch (const std::exception&) {
    }
}

}  // namespace quillmere
