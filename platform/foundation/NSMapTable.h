#pragma once
// A map from weakly held keys, compared by identity (not isEqual:), to strongly held values. An
// entry whose key is released disappears, and its value is released at the table's next use. Not
// thread-safe, as on the platform: one thread at a time, or the caller's lock.
#include <cstddef>
#include <map>
#include <memory>
#include <utility>
#include <vector>

namespace platform {

template <class K, class V>
class NSMapTable {
public:
    static std::shared_ptr<NSMapTable> weakToStrongObjectsMapTable() {
        return std::make_shared<NSMapTable>();
    }

    // nil when the key has no entry.
    std::shared_ptr<V> objectForKey(const std::shared_ptr<K>& key) const {
        if (!key) return nullptr;
        auto it = entries_.find(key);
        return it == entries_.end() ? nullptr : it->second;
    }
    // A null key is ignored; a null value removes the entry.
    void setObjectForKey(std::shared_ptr<V> value, const std::shared_ptr<K>& key) {
        if (!key) return;
        if (!value) {
            removeObjectForKey(key);
            return;
        }
        pruneIfGrown();
        auto [it, inserted] = entries_.try_emplace(std::weak_ptr<K>(key), value);
        if (!inserted) std::swap(it->second, value);  // the old value is released after the update
    }
    void removeObjectForKey(const std::shared_ptr<K>& key) {
        if (!key) return;
        auto it = entries_.find(key);
        if (it == entries_.end()) return;
        std::shared_ptr<V> released = std::move(it->second);
        entries_.erase(it);
    }
    void removeAllObjects() {
        auto released = std::move(entries_);
        entries_.clear();
    }
    // Entries with live keys only.
    std::size_t count() const {
        prune();
        return entries_.size();
    }

private:
    void pruneIfGrown() {
        if (entries_.size() < sweepAt_) return;
        prune();
        sweepAt_ = entries_.size() * 2 > 16 ? entries_.size() * 2 : 16;
    }
    void prune() const {
        // Values are released only after the sweep, so a value whose destructor reaches back into
        // the table finds it consistent.
        std::vector<std::shared_ptr<V>> released;
        for (auto it = entries_.begin(); it != entries_.end();) {
            if (it->first.expired()) {
                released.push_back(std::move(it->second));
                it = entries_.erase(it);
            } else {
                ++it;
            }
        }
    }

    // Ordered by owner, so a dead key never compares equal to a new object at its address.
    mutable std::map<std::weak_ptr<K>, std::shared_ptr<V>, std::owner_less<>> entries_;
    std::size_t sweepAt_ = 16;
};

}  // namespace platform
