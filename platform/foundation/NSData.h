#pragma once
// Byte buffers. NSData is immutable and shared by reference; NSMutableData grows.
//
// Some data is made on first read (NSData::dataWithProducer): the producer runs once, on the
// first thread that reads the bytes, and every reader sees the same bytes. Reading is safe from
// any number of threads.
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
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

    // Stand-in only: data whose bytes `producer` makes when they are first read.
    static std::shared_ptr<NSData> dataWithProducer(std::function<std::vector<uint8_t>()> producer);

    const uint8_t* bytes() const { return materialized().data(); }
    std::size_t length() const { return materialized().size(); }
    std::string_view view() const {
        const auto& b = materialized();
        return {reinterpret_cast<const char*>(b.data()), b.size()};
    }
    std::string string() const { return std::string(view()); }

    bool isEqual(const NSObject* other) const override;
    std::size_t hash() const override;

protected:
    const std::vector<uint8_t>& materialized() const {
        if (producer_) std::call_once(produced_, [this] { bytes_ = producer_(); });
        return bytes_;
    }
    // Written once by the producer under produced_, or only by NSMutableData's own thread.
    mutable std::vector<uint8_t> bytes_;

private:
    std::function<std::vector<uint8_t>()> producer_;  // set at construction, never changed
    mutable std::once_flag produced_;
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
