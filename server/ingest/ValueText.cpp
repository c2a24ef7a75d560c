#include "server/ingest/ValueText.h"

#include <nlohmann/json.hpp>

namespace qlm::ingest {

std::string valueText(std::string_view arson) {
    const nlohmann::json parsed = nlohmann::json::parse(arson, nullptr, false);
    if (parsed.is_array() && parsed.size() == 1 && parsed[0].is_string()) return parsed[0].get<std::string>();
    return std::string(arson);
}

}  // namespace qlm::ingest
