#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSString.h"

namespace platform {

bool NSArray::isEqual(const NSObject* other) const {
    auto a = dynamic_cast<const NSArray*>(other);
    if (a == nullptr || a->objects_.size() != objects_.size()) return false;
    for (std::size_t i = 0; i < objects_.size(); ++i) {
        if (!NSObjectsEqual(objects_[i], a->objects_[i])) return false;
    }
    return true;
}

std::shared_ptr<NSDictionary> NSDictionary::dictionaryWithObjectsForKeys(std::vector<std::pair<id, id>> pairs) {
    Storage storage;
    for (auto& [key, value] : pairs) storage[std::move(key)] = std::move(value);
    return std::make_shared<NSDictionary>(std::move(storage));
}

std::shared_ptr<NSDictionary> NSDictionary::dictionaryWithStrings(
    const std::vector<std::pair<std::string, std::string>>& pairs) {
    Storage storage;
    for (const auto& [key, value] : pairs) storage[NSStr(key)] = NSStr(value);
    return std::make_shared<NSDictionary>(std::move(storage));
}

id NSDictionary::objectForKey(const id& key) const {
    auto it = entries_.find(key);
    return it == entries_.end() ? nullptr : it->second;
}

id NSDictionary::objectForKey(const std::string& key) const { return objectForKey(NSStr(key)); }

bool NSDictionary::isEqual(const NSObject* other) const {
    auto d = dynamic_cast<const NSDictionary*>(other);
    if (d == nullptr || d->entries_.size() != entries_.size()) return false;
    for (const auto& [key, value] : entries_) {
        auto it = d->entries_.find(key);
        if (it == d->entries_.end() || !NSObjectsEqual(value, it->second)) return false;
    }
    return true;
}

void NSMutableDictionary::setObjectForKey(id object, const std::string& key) {
    setObjectForKey(std::move(object), NSStr(key));
}

void NSMutableDictionary::removeObjectForKey(const std::string& key) { removeObjectForKey(NSStr(key)); }

}  // namespace platform
