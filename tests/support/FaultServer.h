#pragma once
// An ingest endpoint that misbehaves on cue: each request's reply is scripted by its number, and
// the server can be taken down and brought back on the same port. What arrived is read back
// request by request and event by event, repeats included. Header-only, like IngestServer.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "tests/support/LoopbackHttpServer.h"
#include "wire/qm.pb.h"

namespace qlm_test {

class FaultServer {
public:
    // The reply to the request numbered `index` (from 0, over every time the server was up).
    using Script = std::function<HttpResponse(std::size_t index, const HttpRequest&)>;

    explicit FaultServer(Script script = [](std::size_t, const HttpRequest&) { return HttpResponse::text(200, ""); },
                         LoopbackHttpServer::Options options = {})
        : script_(std::move(script)), options_(options) {
        EXPECT_TRUE(up());
    }

    // Listens again, on the port of the first start.
    bool up() {
        std::lock_guard lock(mutex_);
        if (server_) return true;
        server_ = std::make_unique<LoopbackHttpServer>(options_);
        server_->route("POST", "/i", [this](const HttpRequest& request) {
            std::size_t index;
            {
                std::lock_guard lock(countMutex_);
                index = handled_++;
            }
            return script_(index, request);
        });
        if (!server_->start()) return false;
        options_.port = server_->port();
        return true;
    }
    // Stops listening; connections under way are cut.
    void down() {
        std::unique_ptr<LoopbackHttpServer> server;
        {
            std::lock_guard lock(mutex_);
            server.swap(server_);
        }
        if (!server) return;
        server->stop();
        const auto requests = server->requests();
        std::lock_guard lock(mutex_);
        earlier_.insert(earlier_.end(), requests.begin(), requests.end());
    }

    std::string serverURL() const { return "http://127.0.0.1:" + std::to_string(options_.port) + "/i"; }

    // Every request received, across restarts, in order of arrival.
    std::vector<HttpRequest> requests() const {
        std::lock_guard lock(mutex_);
        auto all = earlier_;
        if (server_) {
            const auto current = server_->requests();
            all.insert(all.end(), current.begin(), current.end());
        }
        return all;
    }

    // Every event received, in order of arrival, repeats included.
    std::vector<qm::Event> events() const {
        std::vector<qm::Event> events;
        for (const auto& request : requests()) {
            qm::EventList list;
            EXPECT_TRUE(list.ParseFromString(request.body)) << "a body that is no qm.EventList";
            events.insert(events.end(), list.events().begin(), list.events().end());
        }
        return events;
    }
    std::vector<uint32_t> seqIDs() const {
        std::vector<uint32_t> numbers;
        for (const auto& event : events()) numbers.push_back(event.seqid());
        return numbers;
    }

private:
    const Script script_;
    mutable std::mutex countMutex_;
    std::size_t handled_ = 0;  // guarded by countMutex_

    mutable std::mutex mutex_;
    LoopbackHttpServer::Options options_;        // guarded by mutex_ once up; its port fixed after the first start
    std::unique_ptr<LoopbackHttpServer> server_;  // guarded by mutex_; null while down
    std::vector<HttpRequest> earlier_;            // guarded by mutex_; received while up before
};

}  // namespace qlm_test
