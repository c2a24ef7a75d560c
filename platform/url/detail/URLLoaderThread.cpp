#include "platform/url/detail/URLLoaderThread.h"

#include <algorithm>
#include <vector>

namespace platform::detail {
namespace {

// Longest wait for activity; work and transfers wake the thread sooner.
constexpr int kMaximumPollMilliseconds = 1000;

CURLM* makeMulti() {
    curl_global_init(CURL_GLOBAL_DEFAULT);
    return curl_multi_init();
}

}  // namespace

URLLoaderThread& URLLoaderThread::shared() {
    // Never destroyed: tasks may still be loading while the process exits.
    static URLLoaderThread* loader = new URLLoaderThread();
    return *loader;
}

URLLoaderThread::URLLoaderThread() : multi_(makeMulti()), thread_([this] { run(); }) {}

void URLLoaderThread::perform(std::function<void()> work) {
    if (!work) return;
    {
        std::lock_guard lock(mutex_);
        work_.push_back(std::move(work));
    }
    curl_multi_wakeup(multi_);
}

bool URLLoaderThread::add(const std::shared_ptr<URLLoaderTransfer>& transfer) {
    CURL* easy = transfer->easyHandle();
    if (easy == nullptr || curl_multi_add_handle(multi_, easy) != CURLM_OK) return false;
    transfers_[easy] = transfer;
    return true;
}

void URLLoaderThread::remove(const URLLoaderTransfer* transfer) {
    CURL* easy = transfer->easyHandle();
    auto it = transfers_.find(easy);
    if (it == transfers_.end()) return;
    curl_multi_remove_handle(multi_, easy);
    transfers_.erase(it);
}

void URLLoaderThread::run() {
    for (;;) {
        runPendingWork();
        int running = 0;
        curl_multi_perform(multi_, &running);
        collectEnded();
        endExpired();
        bool idle;
        {
            std::lock_guard lock(mutex_);
            idle = work_.empty();
        }
        if (idle) curl_multi_poll(multi_, nullptr, 0, pollTimeoutMilliseconds(), nullptr);
    }
}

void URLLoaderThread::runPendingWork() {
    std::deque<std::function<void()>> batch;
    {
        std::lock_guard lock(mutex_);
        batch.swap(work_);
    }
    for (auto& work : batch) {
        // Work comes from protocols, host code among them; what it throws stays here.
        try {
            work();
        } catch (...) {
        }
    }
}

void URLLoaderThread::collectEnded() {
    int remaining = 0;
    while (CURLMsg* message = curl_multi_info_read(multi_, &remaining)) {
        if (message->msg != CURLMSG_DONE) continue;
        CURL* easy = message->easy_handle;
        const CURLcode result = message->data.result;
        auto it = transfers_.find(easy);
        if (it == transfers_.end()) continue;
        auto transfer = it->second;
        curl_multi_remove_handle(multi_, easy);
        transfers_.erase(it);
        try {
            transfer->transferDidEnd(result, false);
        } catch (...) {
        }
    }
}

void URLLoaderThread::endExpired() {
    const auto now = URLLoaderTransfer::Clock::now();
    std::vector<std::shared_ptr<URLLoaderTransfer>> expired;
    for (const auto& [easy, transfer] : transfers_) {
        if (transfer->deadline() <= now) expired.push_back(transfer);
    }
    for (const auto& transfer : expired) {
        remove(transfer.get());
        try {
            transfer->transferDidEnd(CURLE_OPERATION_TIMEDOUT, true);
        } catch (...) {
        }
    }
}

int URLLoaderThread::pollTimeoutMilliseconds() const {
    auto wait = std::chrono::milliseconds(kMaximumPollMilliseconds);
    const auto now = URLLoaderTransfer::Clock::now();
    for (const auto& [easy, transfer] : transfers_) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(transfer->deadline() - now);
        wait = std::min(wait, std::max(left, std::chrono::milliseconds(0)));
    }
    return static_cast<int>(wait.count());
}

}  // namespace platform::detail
