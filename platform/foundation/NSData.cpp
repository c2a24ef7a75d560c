#include "platform/foundation/NSData.h"

#include <functional>

namespace platform {

std::shared_ptr<NSData> NSData::dataWithBytes(const void* bytes, std::size_t length) {
    auto begin = static_cast<const uint8_t*>(bytes);
    return std::make_shared<NSData>(std::vector<uint8_t>(begin, begin + length));
}

std::shared_ptr<NSData> NSData::dataWithProducer(std::function<std::vector<uint8_t>()> producer) {
    auto data = std::make_shared<NSData>();
    data->producer_ = std::move(producer);
    return data;
}

bool NSData::isEqual(const NSObject* other) const {
    auto d = dynamic_cast<const NSData*>(other);
    return d != nullptr && d->view() == view();
}

std::size_t NSData::hash() const { return std::hash<std::string_view>{}(view()); }

void NSMutableData::appendBytes(const void* bytes, std::size_t length) {
    auto begin = static_cast<const uint8_t*>(bytes);
    bytes_.insert(bytes_.end(), begin, begin + length);
}

}  // namespace platform
