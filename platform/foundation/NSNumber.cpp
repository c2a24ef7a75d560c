#include "platform/foundation/NSNumber.h"

#include <cmath>
#include <functional>
#include <string>

namespace platform {

bool NSNumber::boolValue() const {
    return std::visit([](auto v) { return v != 0; }, value_);
}

int64_t NSNumber::longLongValue() const {
    return std::visit(
        [](auto v) -> int64_t {
            if constexpr (std::is_same_v<decltype(v), double>) {
                if (!std::isfinite(v) || v >= 9.2233720368547758e18 || v < -9.2233720368547758e18) return 0;
            }
            return static_cast<int64_t>(v);
        },
        value_);
}

uint64_t NSNumber::unsignedLongLongValue() const {
    return std::visit(
        [](auto v) -> uint64_t {
            if constexpr (std::is_same_v<decltype(v), double>) {
                if (!std::isfinite(v) || v < 0 || v >= 1.8446744073709552e19) return 0;
            }
            return static_cast<uint64_t>(v);
        },
        value_);
}

double NSNumber::doubleValue() const {
    return std::visit([](auto v) { return static_cast<double>(v); }, value_);
}

bool NSNumber::isEqual(const NSObject* other) const {
    auto n = dynamic_cast<const NSNumber*>(other);
    if (n == nullptr) return false;
    if (isFloatingPoint() || n->isFloatingPoint()) return doubleValue() == n->doubleValue();
    if (std::holds_alternative<uint64_t>(value_) || std::holds_alternative<uint64_t>(n->value_)) {
        // Compare as unsigned only when neither side is negative.
        if (longLongValue() < 0 && !std::holds_alternative<uint64_t>(value_)) return false;
        if (n->longLongValue() < 0 && !std::holds_alternative<uint64_t>(n->value_)) return false;
        return unsignedLongLongValue() == n->unsignedLongLongValue();
    }
    return longLongValue() == n->longLongValue();
}

std::size_t NSNumber::hash() const { return std::hash<double>{}(doubleValue()); }

std::string NSNumber::description() const {
    return std::visit(
        [](auto v) -> std::string {
            if constexpr (std::is_same_v<decltype(v), bool>) {
                return v ? "1" : "0";
            } else if constexpr (std::is_same_v<decltype(v), double>) {
                char buffer[32];
                std::snprintf(buffer, sizeof buffer, "%.17g", v);
                return buffer;
            } else {
                return std::to_string(v);
            }
        },
        value_);
}

std::shared_ptr<NSNull> NSNull::null() {
    static const std::shared_ptr<NSNull>* instance = new std::shared_ptr<NSNull>(std::make_shared<NSNull>());
    return *instance;
}

}  // namespace platform
