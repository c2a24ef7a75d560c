#pragma once
// A message from the ingest server to the library, read from a reply body of JSON of the form
// [{"type": "DASHBOARD_URL", "data": {...}}, ...]. Plain immutable values; any thread.
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/foundation/NSData.h"
#include "platform/foundation/NSObject.h"
#include "upload/RelayType.h"

namespace quillmere {

class RelayMessage {
public:
    // nullopt when `type` is no raw value of a RelayType. `data` is any value the JSON reader gives.
    static std::optional<RelayMessage> make(std::string_view type, platform::id data);

    RelayType type() const { return type_; }
    const platform::id& data() const { return data_; }
    // The relayed dashboard address: data's "dashboardURL" when data is an object whose values are
    // all strings; nullopt otherwise.
    std::optional<std::string> dashboardURL() const;

private:
    RelayMessage(RelayType type, platform::id data) : type_(type), data_(std::move(data)) {}

    RelayType type_;
    platform::id data_;
};

// The messages of a reply body in array order. Never fails: a missing body, text that is not JSON,
// a top level that is not an array of objects, or an element without a string "type" of a known
// kind and a "data" key gives an empty or a shorter list.
std::vector<RelayMessage> parseRelayMessages(const std::shared_ptr<platform::NSData>& data) noexcept;

}  // namespace quillmere
