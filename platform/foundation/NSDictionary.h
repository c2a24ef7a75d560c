#pragma once
// Dictionaries from objects to objects. Keys compare with isEqual: and hash; enumeration order is
// unspecified, as on the platform.
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/foundation/NSObject.h"

namespace platform {

struct NSObjectHash {
    std::size_t operator()(const id& key) const { return key ? key->hash() : 0; }
};
struct NSObjectEqual {
    bool operator()(const id& a, const id& b) const { return NSObjectsEqual(a, b); }
};

class NSDictionary : public NSObject {
    PLATFORM_OBJC_CLASS(NSDictionary, NSObject)
public:
    using Storage = std::unordered_map<id, id, NSObjectHash, NSObjectEqual>;

    NSDictionary() = default;
    explicit NSDictionary(Storage entries) : entries_(std::move(entries)) {}

    static std::shared_ptr<NSDictionary> dictionaryWithObjectsForKeys(std::vector<std::pair<id, id>> pairs);
    // A dictionary of strings to strings, as header fields and the like.
    static std::shared_ptr<NSDictionary> dictionaryWithStrings(
        const std::vector<std::pair<std::string, std::string>>& pairs);

    std::size_t count() const { return entries_.size(); }
    id objectForKey(const id& key) const;
    id objectForKey(const std::string& key) const;
    const Storage& entries() const { return entries_; }
    auto begin() const { return entries_.begin(); }
    auto end() const { return entries_.end(); }

    bool isEqual(const NSObject* other) const override;
    std::size_t hash() const override { return entries_.size(); }

protected:
    Storage entries_;
};

class NSMutableDictionary : public NSDictionary {
    PLATFORM_OBJC_CLASS(NSMutableDictionary, NSDictionary)
public:
    NSMutableDictionary() = default;
    static std::shared_ptr<NSMutableDictionary> dictionary() { return std::make_shared<NSMutableDictionary>(); }

    void setObjectForKey(id object, id key) { entries_[std::move(key)] = std::move(object); }
    void setObjectForKey(id object, const std::string& key);
    void removeObjectForKey(const id& key) { entries_.erase(key); }
    void removeObjectForKey(const std::string& key);
};

}  // namespace platform
