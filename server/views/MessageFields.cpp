#include "server/views/MessageFields.h"

#include <cmath>

#include "server/ingest/ValueText.h"

namespace qlm::ingest::fields {

using nlohmann::json;

double number(const json& object, const char* key) {
    const auto it = object.find(key);
    if (it == object.end() || !it->is_number()) return 0;
    const double value = it->get<double>();
    return std::isfinite(value) ? value : 0;
}

int64_t whole(const json& object, const char* key) {
    return static_cast<int64_t>(number(object, key));
}

std::string text(const json& object, const char* key) {
    const auto it = object.find(key);
    return it != object.end() && it->is_string() ? it->get<std::string>() : std::string();
}

bool flag(const json& object, const char* key) {
    const auto it = object.find(key);
    return it != object.end() && it->is_boolean() && it->get<bool>();
}

std::string enumName(const json& object, const char* key, const char* defaultName) {
    const auto it = object.find(key);
    if (it == object.end()) return defaultName;
    if (it->is_string()) return it->get<std::string>();
    if (it->is_number()) return std::to_string(it->get<long long>());
    return defaultName;
}

json stringMap(const json& object, const char* key) {
    json out = json::object();
    const auto it = object.find(key);
    if (it == object.end() || !it->is_object()) return out;
    for (const auto& [name, value] : it->items()) {
        if (value.is_string()) out[name] = value;
    }
    return out;
}

json bodyText(const json& message) {
    const auto it = message.find("body");
    if (it == message.end() || !it->is_object()) return nullptr;
    return valueText(text(*it, "arson"));
}

}  // namespace qlm::ingest::fields
