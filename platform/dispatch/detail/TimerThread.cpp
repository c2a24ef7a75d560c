#include "platform/dispatch/detail/TimerThread.h"

#include <system_error>
#include <thread>

#include "platform/dispatch/detail/SteadyDeadline.h"

namespace platform::detail {

TimerThread& TimerThread::shared() {
    // Never destroyed: the detached thread waits on it until the process ends.
    static TimerThread* const timer = new TimerThread();
    return *timer;
}

TimerThread::Token TimerThread::add(DispatchTime deadline, std::function<void()> fire) {
    std::lock_guard lock(mutex_);
    if (!started_) {
        try {
            std::thread([this] { run(); }).detach();
            started_ = true;
        } catch (const std::system_error&) {
            // Tried again at the next add; entries wait until then.
        }
    }
    const Token token{deadline.uptimeNanoseconds, nextSequence_++};
    const auto it = entries_.emplace(token, std::move(fire)).first;
    if (it == entries_.begin()) cv_.notify_one();
    return token;
}

void TimerThread::remove(const Token& token) {
    std::unique_lock lock(mutex_);
    auto node = entries_.extract(token);
    lock.unlock();
    // `node` and its function die here, unlocked: their captures may reach back into dispatch.
}

void TimerThread::run() {
    std::unique_lock lock(mutex_);
    for (;;) {
        if (entries_.empty()) {
            cv_.wait(lock);
            continue;
        }
        const auto first = entries_.begin();
        const DispatchTime due{first->first.first};
        if (DispatchTime::now() < due) {
            cv_.wait_until(lock, steadyDeadline(due));
            continue;
        }
        auto node = entries_.extract(first);
        lock.unlock();
        node.mapped()();
        node = {};
        lock.lock();
    }
}

}  // namespace platform::detail
