#include "upload/RelayMessage.h"

#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSJSONSerialization.h"
#include "platform/foundation/NSString.h"

namespace quillmere {

std::optional<RelayMessage> RelayMessage::make(std::string_view type, platform::id data) {
    const auto relayType = relayTypeFromRawValue(type);
    if (!relayType) return std::nullopt;
    return RelayMessage(*relayType, std::move(data));
}

std::optional<std::string> RelayMessage::dashboardURL() const {
    const auto map = platform::objc_cast<platform::NSDictionary>(data_);
    if (!map) return std::nullopt;
    std::optional<std::string> url;
    for (const auto& [key, value] : *map) {
        const auto keyText = platform::NSStringValue(key);
        auto valueText = platform::NSStringValue(value);
        if (!keyText || !valueText) return std::nullopt;
        if (*keyText == "dashboardURL") url = std::move(*valueText);
    }
    return url;
}

namespace {

bool isObjectWithStringKeys(const platform::id& value) {
    const auto object = platform::objc_cast<platform::NSDictionary>(value);
    if (!object) return false;
    for (const auto& entry : *object) {
        if (!platform::objc_cast<platform::NSString>(entry.first)) return false;
    }
    return true;
}

std::vector<RelayMessage> parse(const platform::NSData& data) {
    const auto array = platform::objc_cast<platform::NSArray>(
        platform::NSJSONSerialization::JSONObjectWithData(data, 0, nullptr));
    if (!array) return {};
    // One element of another shape makes the whole reply unreadable, not just that element.
    for (const auto& element : *array) {
        if (!isObjectWithStringKeys(element)) return {};
    }
    std::vector<RelayMessage> messages;
    for (const auto& element : *array) {
        const auto object = platform::objc_cast<platform::NSDictionary>(element);
        const auto type = platform::NSStringValue(object->objectForKey(std::string("type")));
        if (!type) continue;
        // JSON null reads as NSNull, so only a missing key gives nil.
        auto data = object->objectForKey(std::string("data"));
        if (!data) continue;
        if (auto message = RelayMessage::make(*type, std::move(data)))
            messages.push_back(std::move(*message));
    }
    return messages;
}

}  // namespace

std::vector<RelayMessage> parseRelayMessages(const std::shared_ptr<platform::NSData>& data) noexcept {
    if (!data) return {};
    try {
        return parse(*data);
    } catch (...) {
        // Only allocation can fail here; an unreadable reply is an empty one.
        return {};
    }
}

}  // namespace quillmere
