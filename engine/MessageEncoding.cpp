#include "engine/MessageEncoding.h"

#include <climits>

namespace quillmere {

std::optional<std::size_t> encodableSize(const google::protobuf::MessageLite& message, std::string& failure) {
    const std::size_t size = message.ByteSizeLong();
    if (size > static_cast<std::size_t>(INT_MAX)) {
        failure =
            "the message of " + std::to_string(size) + " bytes is over the 2 GB that protobuf can encode";
        return std::nullopt;
    }
    return size;
}

}  // namespace quillmere
