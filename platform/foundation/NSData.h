#pragma once
// Byte buffers. NSData is immutable and shared by reference; NSMutableData grows.
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/foundation/NSObject.h"

namespace platform {

class NSData : public NSObject {
    PLATFORM_OBJC_CLASS(NSData, NSObject)
public:
    NSData() = default;
    explicit NSData(std::vector<uint8_t> bytes) : bytes_(std::move(bytes)) {}

    static std::shared_ptr<NSData> data() { return std::make_shared<NSData>(); }
    static std::shared_ptr<NSData> dataWithBytes(const void* bytes, std::size_t length);
    static std::shared_ptr<NSData> dataWithString(std::string_view bytes) {
        return dataWithBytes(bytes.data(), bytes.size());
    }

    const uint8_t* bytes() const { return bytes_.data(); }
    std::size_t length() const { return bytes_.size(); }
    std::string_view view() const { return {reinterpret_cast<const char*>(bytes_.data()), bytes_.size()}; }
    std::string string() const { return std::string(view()); }

    bool isEqual(const NSObject* other) const override;
    std::size_t hash() const override;

protected:
    std::vector<uint8_t> bytes_;
};

class NSMutableData : public NSData {
    PLATFORM_OBJC_CLASS(NSMutableData, NSData)
public:
    NSMutableData() = default;
    static std::shared_ptr<NSMutableData> data() { return std::make_shared<NSMutableData>(); }

    void appendBytes(const void* bytes, std::size_t length);
    void appendData(const NSData& data) { appendBytes(data.bytes(), data.length()); }
    void setLength(std::size_t length) { bytes_.resize(length); }
    void reserve(std::size_t capacity) { bytes_.reserve(capacity); }
    uint8_t* mutableBytes() { return bytes_.data(); }
};

}  // namespace platform
