#pragma once
// The one way the library turns a message into bytes: the standard protobuf encoding, refused
// (rather than thrown or truncated) for a message past what protobuf can encode.
#include <google/protobuf/message_lite.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace quillmere {

// The encoded size of `message`, or nullopt with the reason in `failure` when it is over 2 GB.
// Computing it caches the sizes, so the caller then writes with SerializeWithCachedSizesToArray.
std::optional<std::size_t> encodableSize(const google::protobuf::MessageLite& message, std::string& failure);

}  // namespace quillmere
