#include "tests/support/NotificationRecorder.h"

namespace qlm_test {

using namespace platform;

SEL NotificationRecorder::selector() {
    static const SEL sel = [] {
        SEL s = sel_getUid("recordNotification:");
        class_addMethod(class_(), s,
                        imp_makeFunction<void, std::shared_ptr<NSNotification>>(
                            [](NSObject* self, SEL, std::shared_ptr<NSNotification> note) {
                                static_cast<NotificationRecorder*>(self)->record(note);
                            }));
        return s;
    }();
    return sel;
}

std::shared_ptr<NotificationRecorder> NotificationRecorder::make(Handler handler) {
    selector();
    return std::make_shared<NotificationRecorder>(std::move(handler));
}

void NotificationRecorder::record(const std::shared_ptr<NSNotification>& notification) {
    {
        std::lock_guard lock(mutex_);
        received_.push_back({notification, std::this_thread::get_id()});
    }
    if (handler_) handler_(notification);
}

std::vector<NotificationRecorder::Received> NotificationRecorder::received() const {
    std::lock_guard lock(mutex_);
    return received_;
}

std::size_t NotificationRecorder::count() const {
    std::lock_guard lock(mutex_);
    return received_.size();
}

}  // namespace qlm_test
