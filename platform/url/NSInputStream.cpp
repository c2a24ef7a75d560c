#include "platform/url/NSInputStream.h"

#include <algorithm>
#include <cstring>

namespace platform {

std::shared_ptr<NSInputStream> NSInputStream::inputStreamWithData(std::shared_ptr<NSData> data) {
    return std::make_shared<NSInputStream>(std::move(data));
}

void NSInputStream::open() {
    std::lock_guard lock(mutex_);
    if (status_ != NSStreamStatusNotOpen) return;
    const std::size_t length = data_ ? data_->length() : 0;
    status_ = length == 0 ? NSStreamStatusAtEnd : NSStreamStatusOpen;
}

void NSInputStream::close() {
    std::lock_guard lock(mutex_);
    status_ = NSStreamStatusClosed;
}

long NSInputStream::read(uint8_t* buffer, std::size_t maxLength) {
    std::lock_guard lock(mutex_);
    if (status_ == NSStreamStatusAtEnd) return 0;
    if (status_ != NSStreamStatusOpen || buffer == nullptr) return -1;
    const std::size_t length = data_ ? data_->length() : 0;
    const std::size_t count = std::min(maxLength, length - offset_);
    if (count > 0) std::memcpy(buffer, data_->bytes() + offset_, count);
    offset_ += count;
    if (offset_ == length) status_ = NSStreamStatusAtEnd;
    return static_cast<long>(count);
}

bool NSInputStream::hasBytesAvailable() const {
    std::lock_guard lock(mutex_);
    return status_ == NSStreamStatusOpen;
}

NSStreamStatus NSInputStream::streamStatus() const {
    std::lock_guard lock(mutex_);
    return status_;
}

}  // namespace platform
