#pragma once
// Arrays of objects.
#include <initializer_list>
#include <memory>
#include <vector>

#include "platform/foundation/NSObject.h"

namespace platform {

class NSArray : public NSObject {
    PLATFORM_OBJC_CLASS(NSArray, NSObject)
public:
    NSArray() = default;
    explicit NSArray(std::vector<id> objects) : objects_(std::move(objects)) {}

    static std::shared_ptr<NSArray> arrayWithObjects(std::initializer_list<id> objects) {
        return std::make_shared<NSArray>(std::vector<id>(objects));
    }

    std::size_t count() const { return objects_.size(); }
    const id& objectAtIndex(std::size_t index) const { return objects_.at(index); }
    const std::vector<id>& objects() const { return objects_; }
    auto begin() const { return objects_.begin(); }
    auto end() const { return objects_.end(); }

    bool isEqual(const NSObject* other) const override;
    std::size_t hash() const override { return objects_.size(); }

protected:
    std::vector<id> objects_;
};

class NSMutableArray : public NSArray {
    PLATFORM_OBJC_CLASS(NSMutableArray, NSArray)
public:
    NSMutableArray() = default;
    static std::shared_ptr<NSMutableArray> array() { return std::make_shared<NSMutableArray>(); }

    void addObject(id object) { objects_.push_back(std::move(object)); }
    void insertObject(id object, std::size_t index) { objects_.insert(objects_.begin() + index, std::move(object)); }
    void removeObjectAtIndex(std::size_t index) { objects_.erase(objects_.begin() + index); }
    void removeAllObjects() { objects_.clear(); }
};

}  // namespace platform
