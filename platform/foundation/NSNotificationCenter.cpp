#include "platform/foundation/NSNotificationCenter.h"

#include <algorithm>

namespace platform {

namespace {

template <class A, class B>
bool sameOwner(const A& a, const B& b) {
    return !a.owner_before(b) && !b.owner_before(a);
}

}  // namespace

std::shared_ptr<NSNotificationCenter> NSNotificationCenter::defaultCenter() {
    // Never destroyed: threads still running at exit may post.
    static const std::shared_ptr<NSNotificationCenter>* instance =
        new std::shared_ptr<NSNotificationCenter>(std::make_shared<NSNotificationCenter>());
    return *instance;
}

void NSNotificationCenter::addObserver(const std::shared_ptr<NSObject>& observer, SEL selector,
                                       std::string name, const id& object) {
    if (!observer || selector == nullptr) return;
    Observation observation{observer, selector, std::move(name),
                            object,   !object,  std::make_shared<std::atomic<bool>>(false)};
    std::lock_guard lock(mutex_);
    // Dead observations are otherwise swept only by posts that reach them; sweeping when the list
    // has doubled keeps a center that is never posted to from growing without bound.
    if (observations_.size() >= sweepAt_) {
        std::erase_if(observations_, [](const Observation& o) {
            return o.observer.expired() || (!o.anyObject && o.object.expired());
        });
        sweepAt_ = std::max<std::size_t>(32, observations_.size() * 2);
    }
    observations_.push_back(std::move(observation));
}

void NSNotificationCenter::removeObserver(const std::shared_ptr<NSObject>& observer) {
    removeMatching(observer, nullptr, nullptr);
}

void NSNotificationCenter::removeObserver(const std::shared_ptr<NSObject>& observer, const std::string& name,
                                          const id& object) {
    removeMatching(observer, name.empty() ? nullptr : &name, object ? &object : nullptr);
}

void NSNotificationCenter::removeMatching(const std::shared_ptr<NSObject>& observer, const std::string* name,
                                          const id* object) {
    if (!observer) return;
    std::lock_guard lock(mutex_);
    std::erase_if(observations_, [&](const Observation& o) {
        if (!sameOwner(o.observer, observer)) return false;
        if (name != nullptr && o.name != *name) return false;
        if (object != nullptr && (o.anyObject || !sameOwner(o.object, *object))) return false;
        o.removed->store(true);
        return true;
    });
}

void NSNotificationCenter::postNotification(const std::shared_ptr<NSNotification>& notification) {
    if (!notification) return;
    struct Delivery {
        std::weak_ptr<NSObject> observer;
        SEL selector;
        std::shared_ptr<std::atomic<bool>> removed;
    };
    std::vector<Delivery> deliveries;
    {
        std::lock_guard lock(mutex_);
        std::erase_if(observations_, [&](const Observation& o) {
            if (o.observer.expired()) return true;
            if (!o.name.empty() && o.name != notification->name()) return false;
            if (!o.anyObject) {
                if (o.object.expired()) return true;  // nothing can match it any more
                if (!notification->object() || !sameOwner(o.object, notification->object())) return false;
            }
            deliveries.push_back({o.observer, o.selector, o.removed});
            return false;
        });
    }
    for (const Delivery& delivery : deliveries) {
        if (delivery.removed->load()) continue;
        // Held only for the call: an observer released meanwhile is not called.
        std::shared_ptr<NSObject> observer = delivery.observer.lock();
        if (!observer) continue;
        objc_msgSend<void, std::shared_ptr<NSNotification>>(observer.get(), delivery.selector, notification);
    }
}

void NSNotificationCenter::postNotificationName(std::string name, id object,
                                                std::shared_ptr<NSDictionary> userInfo) {
    postNotification(
        NSNotification::notificationWithName(std::move(name), std::move(object), std::move(userInfo)));
}

}  // namespace platform
