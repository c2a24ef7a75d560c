#pragma once
// The one way the library turns a message into bytes: the standard protobuf encoding, refused
// (rather than thrown or truncated) for a message past what protobuf can encode.
#include <google/protobuf/message.h>
#include <google/protobuf/message_lite.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "wire/qm.pb.h"

namespace quillmere {

// Turns every -0.0 in `message`, nested messages and map values included, into +0.0. The wire's
// zero is the default and is left off; -0.0 differs from it in its bits, so protobuf would write it.
void makeZerosPositive(google::protobuf::Message& message);

// The encoded size of `message`, or nullopt with the reason in `failure` when it is over 2 GB.
// Computing it caches the sizes, so the caller then writes with SerializeWithCachedSizesToArray.
std::optional<std::size_t> encodableSize(const google::protobuf::MessageLite& message, std::string& failure);

// Puts `message`, encoded, into `event`'s data, every float of both written as +0.0 when zero;
// false, with the reason in `failure`, when it is too large to encode. Throws only for want of
// memory, leaving `event` without data.
bool encodeInto(qm::Event& event, google::protobuf::Message& message, std::string& failure);

}  // namespace quillmere
