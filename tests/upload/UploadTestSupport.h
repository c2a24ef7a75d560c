#pragma once
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "engine/ReadyStateDelegate.h"
#include "engine/Session.h"
#include "tests/support/IngestServer.h"
#include "tests/support/Wait.h"
#include "upload/Uploader.h"

namespace qlm_test {

class RecordingDelegate : public quillmere::ReadyStateDelegate {
public:
    std::optional<std::string> dashboardURL() const override {
        std::lock_guard lock(mutex_);
        return dashboardURL_;
    }
    void setDashboardURL(std::string url) override {
        std::lock_guard lock(mutex_);
        dashboardURL_ = std::move(url);
    }
    void uploadAccepted() override { ++accepted; }
    std::atomic<int> accepted{0};

private:
    mutable std::mutex mutex_;
    std::optional<std::string> dashboardURL_;  // guarded by mutex_
};

inline qm::Event numberedEvent(uint32_t number) {
    qm::Event event;
    event.set_type("qm.core.LogEvent");
    event.set_seqid(number);
    return event;
}

// An upload in flight holds its Uploader, so its end means every reply was handled.
inline void stopAndSettle(std::shared_ptr<quillmere::Uploader>& uploader, bool stop = true) {
    if (stop) uploader->stop();
    std::weak_ptr<quillmere::Uploader> weak = uploader;
    uploader.reset();
    EXPECT_TRUE(waitUntil([&] { return weak.expired(); }, std::chrono::milliseconds(10000)));
}

}  // namespace qlm_test
