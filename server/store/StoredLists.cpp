#include "server/store/StoredLists.h"

#include <nlohmann/json.hpp>

namespace qlm::ingest {

std::vector<std::string> stringsOfJsonArray(std::string_view json) {
    std::vector<std::string> out;
    const nlohmann::json parsed = nlohmann::json::parse(json, nullptr, false);
    if (!parsed.is_array()) return out;
    for (const auto& item : parsed) {
        if (item.is_string()) out.push_back(item.get<std::string>());
    }
    return out;
}

}  // namespace qlm::ingest
