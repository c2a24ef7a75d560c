#pragma once
// The inner messages of qm.Event that this server accepts, looked up by the event's type tag,
// which is the message's full name. Safe from any thread.
#include <google/protobuf/message.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace qlm::ingest {

// The seven type tags, in no particular order.
const std::vector<std::string>& knownEventTypes();

// Decodes `data` as the message named by `type`. nullptr for a type not in knownEventTypes() or for
// bytes that are not that message (including strings that are not UTF-8).
std::unique_ptr<google::protobuf::Message> decodeInnerMessage(std::string_view type, std::string_view data);

}  // namespace qlm::ingest
