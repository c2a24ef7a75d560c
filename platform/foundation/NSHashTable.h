#pragma once
// A set that holds its members weakly and compares them by identity (not isEqual:). A member that
// is released leaves the table by itself. Not thread-safe, as on the platform: one thread at a
// time, or the caller's lock.
#include <cstddef>
#include <memory>
#include <set>
#include <vector>

namespace platform {

template <class T>
class NSHashTable {
public:
    static std::shared_ptr<NSHashTable> weakObjectsHashTable() { return std::make_shared<NSHashTable>(); }

    // A null object is ignored.
    void addObject(const std::shared_ptr<T>& object) {
        if (!object) return;
        pruneIfGrown();
        members_.insert(std::weak_ptr<T>(object));
    }
    void removeObject(const std::shared_ptr<T>& object) {
        if (object) members_.erase(object);
    }
    void removeAllObjects() { members_.clear(); }
    bool containsObject(const std::shared_ptr<T>& object) const {
        return object && members_.find(object) != members_.end();
    }
    // Live members only.
    std::size_t count() const {
        prune();
        return members_.size();
    }
    // Strong references to the live members, in no particular order.
    std::vector<std::shared_ptr<T>> allObjects() const {
        std::vector<std::shared_ptr<T>> live;
        live.reserve(members_.size());
        for (auto it = members_.begin(); it != members_.end();) {
            if (auto strong = it->lock()) {
                live.push_back(std::move(strong));
                ++it;
            } else {
                it = members_.erase(it);
            }
        }
        return live;
    }

private:
    // Dead entries cost a control block each; sweeping when the table has doubled since the last
    // sweep keeps adds amortised constant.
    void pruneIfGrown() {
        if (members_.size() < sweepAt_) return;
        prune();
        sweepAt_ = members_.size() * 2 > 16 ? members_.size() * 2 : 16;
    }
    void prune() const {
        std::erase_if(members_, [](const std::weak_ptr<T>& w) { return w.expired(); });
    }

    // Ordered by owner, so a dead member never compares equal to a new object at its address.
    mutable std::set<std::weak_ptr<T>, std::owner_less<>> members_;
    std::size_t sweepAt_ = 16;
};

}  // namespace platform
