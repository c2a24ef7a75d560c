#include "platform/foundation/NSUUID.h"

#include <uuid/uuid.h>

#include <cstring>
#include <string_view>

namespace platform {

std::shared_ptr<NSUUID> NSUUID::UUID() {
    uuid_t raw;
    uuid_generate_random(raw);
    Bytes bytes;
    std::memcpy(bytes.data(), raw, bytes.size());
    return std::make_shared<NSUUID>(bytes);
}

std::shared_ptr<NSUUID> NSUUID::initWithUUIDString(const std::string& text) {
    // uuid_parse reads 36 characters and ignores what follows; the platform accepts no trailer.
    if (text.size() != 36) return nullptr;
    uuid_t raw;
    if (uuid_parse(text.c_str(), raw) != 0) return nullptr;
    Bytes bytes;
    std::memcpy(bytes.data(), raw, bytes.size());
    return std::make_shared<NSUUID>(bytes);
}

std::string NSUUID::UUIDString() const {
    char text[37];
    uuid_unparse_upper(bytes_.data(), text);
    return text;
}

bool NSUUID::isEqual(const NSObject* other) const {
    auto u = dynamic_cast<const NSUUID*>(other);
    return u != nullptr && u->bytes_ == bytes_;
}

std::size_t NSUUID::hash() const {
    return std::hash<std::string_view>{}(
        std::string_view(reinterpret_cast<const char*>(bytes_.data()), bytes_.size()));
}

}  // namespace platform
