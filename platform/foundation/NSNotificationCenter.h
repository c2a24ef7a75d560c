#pragma once
// Notification centers. Any thread may add and remove observers and post.
//
// Observers are held weakly, as on current platforms: one that is released is simply no longer
// called and need not remove itself. A post delivers synchronously on the posting thread, calling
// each matching observer's selector through the runtime with the notification as its argument
// (an implementation made with imp_makeFunction<void, std::shared_ptr<NSNotification>>). No lock
// is held during the calls, so an observer may add or remove observers or post in turn. Observers
// added during a post are not called for it; observers removed during it are not called after
// their removal.
#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/foundation/NSNotification.h"
#include "platform/foundation/NSObject.h"

namespace platform {

class NSNotificationCenter : public NSObject {
    PLATFORM_OBJC_CLASS(NSNotificationCenter, NSObject)
public:
    NSNotificationCenter() = default;

    static std::shared_ptr<NSNotificationCenter> defaultCenter();

    // An empty name matches every name, a nil object every object (objects compare by identity).
    // Adding the same observation twice makes two, called twice, as on the platform.
    void addObserver(const std::shared_ptr<NSObject>& observer, SEL selector, std::string name,
                     const id& object);
    // Removes all of the observer's observations.
    void removeObserver(const std::shared_ptr<NSObject>& observer);
    // Removes those with this name (any when empty) and object (any when nil).
    void removeObserver(const std::shared_ptr<NSObject>& observer, const std::string& name, const id& object);

    void postNotification(const std::shared_ptr<NSNotification>& notification);
    void postNotificationName(std::string name, id object, std::shared_ptr<NSDictionary> userInfo = nullptr);

private:
    struct Observation {
        std::weak_ptr<NSObject> observer;
        SEL selector;
        std::string name;                // empty: any
        std::weak_ptr<NSObject> object;  // meaningful unless anyObject
        bool anyObject;
        // Shared with posts under way, which skip the observation once it is set.
        std::shared_ptr<std::atomic<bool>> removed;
    };

    void removeMatching(const std::shared_ptr<NSObject>& observer, const std::string* name, const id* object);

    std::mutex mutex_;
    std::vector<Observation> observations_;  // guarded by mutex_; in order of addition
    std::size_t sweepAt_ = 32;               // guarded by mutex_
};

}  // namespace platform
