#pragma once
// An observer for notification tests: records what it receives and on which thread, and can act on
// each notification (re-arm a read, post, remove an observer) while being called.
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/foundation/NSNotification.h"
#include "platform/foundation/NSObject.h"

namespace qlm_test {

class NotificationRecorder : public platform::NSObject {
    PLATFORM_OBJC_CLASS(NotificationRecorder, platform::NSObject)
public:
    using Handler = std::function<void(const std::shared_ptr<platform::NSNotification>&)>;
    struct Received {
        std::shared_ptr<platform::NSNotification> notification;
        std::thread::id thread;
    };

    // The selector to observe with; its implementation is registered on first use.
    static platform::SEL selector();
    static std::shared_ptr<NotificationRecorder> make(Handler handler = nullptr);

    explicit NotificationRecorder(Handler handler) : handler_(std::move(handler)) {}

    std::vector<Received> received() const;
    std::size_t count() const;

private:
    void record(const std::shared_ptr<platform::NSNotification>& notification);

    mutable std::mutex mutex_;
    std::vector<Received> received_;  // guarded by mutex_
    const Handler handler_;           // called outside mutex_
};

}  // namespace qlm_test
