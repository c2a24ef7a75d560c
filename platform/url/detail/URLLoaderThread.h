#pragma once
// The URL loading system's thread: one for the process. Protocol selection, startLoading and
// stopLoading run on it, and it drives every HTTP transfer with one curl multi handle, so
// transfers run side by side and a slow one holds up no other. Work handed to it never waits on a
// delegate queue.
#include <curl/curl.h>

#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

namespace platform::detail {

// A transfer the loader thread drives. All its methods run on the loader thread.
class URLLoaderTransfer {
public:
    using Clock = std::chrono::steady_clock;

    virtual ~URLLoaderTransfer() = default;
    virtual CURL* easyHandle() const = 0;
    // By when the transfer must next make progress (or end).
    virtual Clock::time_point deadline() const = 0;
    // The transfer ended with `result`, or its deadline passed (`timedOut`). The loader has taken
    // it off the multi handle and forgotten it before the call.
    virtual void transferDidEnd(CURLcode result, bool timedOut) = 0;
};

class URLLoaderThread {
public:
    // Started on first use; lives for the process.
    static URLLoaderThread& shared();

    // Runs `work` on the loader thread, after the work handed over before it. Any thread.
    void perform(std::function<void()> work);
    bool isCurrentThread() const { return std::this_thread::get_id() == thread_.get_id(); }

    // Loader thread only. add() is false when curl refuses the handle.
    bool add(const std::shared_ptr<URLLoaderTransfer>& transfer);
    // Takes a transfer off the multi handle; it gets no transferDidEnd.
    void remove(const URLLoaderTransfer* transfer);

private:
    URLLoaderThread();
    void run();
    void runPendingWork();
    void collectEnded();
    void endExpired();
    int pollTimeoutMilliseconds() const;

    CURLM* const multi_;  // immutable handle; used on the loader thread, woken from any
    std::mutex mutex_;
    std::deque<std::function<void()>> work_;                         // guarded by mutex_
    std::map<CURL*, std::shared_ptr<URLLoaderTransfer>> transfers_;  // loader thread only
    std::thread thread_;                                             // started last, in the constructor
};

}  // namespace platform::detail
