#pragma once
// One thread that calls functions at deadlines, for asyncAfter and timer sources. The functions
// run on that thread and must only hand work on (e.g. submit to a queue), never block. Lives for
// the whole process and is never destroyed.
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <utility>

#include "platform/dispatch/DispatchTime.h"

namespace platform::detail {

class TimerThread {
public:
    // Identifies an entry: its deadline and a sequence number keeping equal deadlines in order.
    using Token = std::pair<uint64_t, uint64_t>;

    static TimerThread& shared();

    // Any thread. `fire` is called once, on the timer thread, at or after `deadline`.
    Token add(DispatchTime deadline, std::function<void()> fire);
    // Any thread. Drops the entry if it has not been called yet. `fire` is destroyed on the
    // caller's thread, outside any lock of the timer thread.
    void remove(const Token& token);

private:
    TimerThread() = default;
    void run();

    std::mutex mutex_;
    std::condition_variable cv_;
    std::map<Token, std::function<void()>> entries_;  // guarded by mutex_; earliest first
    uint64_t nextSequence_ = 0;                       // guarded by mutex_
    bool started_ = false;                            // guarded by mutex_
};

}  // namespace platform::detail
