#include "engine/Bridge.h"

#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSString.h"

namespace quillmere::bridge {

std::vector<std::string> strings(const platform::id& array) {
    std::vector<std::string> result;
    if (auto objects = platform::objc_cast<platform::NSArray>(array)) {
        for (const auto& object : *objects) {
            if (auto text = platform::NSStringValue(object)) result.push_back(std::move(*text));
        }
    }
    return result;
}

std::optional<std::map<std::string, std::string>> stringMap(const platform::id& dictionary) {
    auto entries = platform::objc_cast<platform::NSDictionary>(dictionary);
    if (!entries) return std::nullopt;
    std::map<std::string, std::string> result;
    for (const auto& [key, value] : *entries) {
        auto keyText = platform::NSStringValue(key);
        auto valueText = platform::NSStringValue(value);
        if (keyText && valueText) result.emplace(std::move(*keyText), std::move(*valueText));
    }
    return result;
}

platform::id array(const std::vector<std::string>& strings) {
    std::vector<platform::id> objects;
    objects.reserve(strings.size());
    for (const auto& text : strings) objects.push_back(platform::NSStr(text));
    return std::make_shared<platform::NSArray>(std::move(objects));
}

}  // namespace quillmere::bridge
