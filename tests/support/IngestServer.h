#pragma once
// A loopback ingest endpoint for library tests: POST /i answered by a settable reply, with the
// bodies read back as the wire's qm.EventList. Header-only, so the support library itself needs no
// wire classes.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "tests/support/LoopbackHttpServer.h"
#include "tests/support/Wait.h"
#include "wire/qm.pb.h"

namespace qlm_test {

class IngestServer {
public:
    using Reply = std::function<HttpResponse(const HttpRequest&)>;

    explicit IngestServer(Reply reply = [](const HttpRequest&) { return HttpResponse::text(200, ""); }) {
        server_.route("POST", "/i", std::move(reply));
        EXPECT_TRUE(server_.start());
    }

    // The serverURL to configure: the whole address without query.
    std::string serverURL() const { return server_.url("/i"); }
    std::vector<HttpRequest> requests() const { return server_.requests(); }
    std::size_t requestCount() const { return server_.requestCount(); }

    // Every body received, decoded; one that does not decode fails the test.
    std::vector<qm::EventList> batches() const {
        std::vector<qm::EventList> batches;
        for (const auto& request : server_.requests()) {
            qm::EventList list;
            EXPECT_TRUE(list.ParseFromString(request.body)) << "a body that is no qm.EventList";
            batches.push_back(std::move(list));
        }
        return batches;
    }

    // The events of every batch, in order of arrival.
    std::vector<qm::Event> events() const {
        std::vector<qm::Event> events;
        for (const auto& batch : batches())
            events.insert(events.end(), batch.events().begin(), batch.events().end());
        return events;
    }

    bool waitForEvents(std::size_t count,
                       std::chrono::milliseconds timeout = std::chrono::milliseconds(8000)) const {
        return waitUntil([&] { return events().size() >= count; }, timeout);
    }

private:
    LoopbackHttpServer server_;
};

// The inner message of an event, decoded as M; a body that does not decode fails the test.
template <class M>
M innerMessage(const qm::Event& event) {
    M message;
    EXPECT_TRUE(message.ParseFromString(event.data())) << "data is no " << event.type();
    return message;
}

}  // namespace qlm_test
