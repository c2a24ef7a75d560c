#pragma once
// Numbers and booleans, boxed. Booleans stay booleans (JSON true is no 1).
#include <cstdint>
#include <memory>
#include <variant>

#include "platform/foundation/NSObject.h"

namespace platform {

class NSNumber : public NSObject {
    PLATFORM_OBJC_CLASS(NSNumber, NSObject)
public:
    using Value = std::variant<bool, int64_t, uint64_t, double>;
    explicit NSNumber(Value value) : value_(value) {}

    static std::shared_ptr<NSNumber> numberWithBool(bool v) { return std::make_shared<NSNumber>(Value(v)); }
    static std::shared_ptr<NSNumber> numberWithLongLong(int64_t v) { return std::make_shared<NSNumber>(Value(v)); }
    static std::shared_ptr<NSNumber> numberWithUnsignedLongLong(uint64_t v) {
        return std::make_shared<NSNumber>(Value(v));
    }
    static std::shared_ptr<NSNumber> numberWithDouble(double v) { return std::make_shared<NSNumber>(Value(v)); }

    const Value& value() const { return value_; }
    bool isBool() const { return std::holds_alternative<bool>(value_); }
    bool isFloatingPoint() const { return std::holds_alternative<double>(value_); }
    bool boolValue() const;
    int64_t longLongValue() const;
    uint64_t unsignedLongLongValue() const;
    double doubleValue() const;

    bool isEqual(const NSObject* other) const override;
    std::size_t hash() const override;
    std::string description() const override;

private:
    Value value_;
};

class NSNull : public NSObject {
    PLATFORM_OBJC_CLASS(NSNull, NSObject)
public:
    static std::shared_ptr<NSNull> null();
    bool isEqual(const NSObject* other) const override { return dynamic_cast<const NSNull*>(other) != nullptr; }
    std::size_t hash() const override { return 0x5a5a; }
    std::string description() const override { return "<null>"; }
};

}  // namespace platform
