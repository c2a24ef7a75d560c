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

// The last send made, and every reply handled.
inline void stopAndSettle(quillmere::Uploader& uploader) {
    uploader.stop();
    EXPECT_TRUE(uploader.flush(std::chrono::steady_clock::now() + std::chrono::seconds(10)));
}

}  // namespace qlm_test
