#pragma once
// What a message relayed by the ingest server is, told by its "type" text.
#include <optional>
#include <string_view>

namespace quillmere {

enum class RelayType { dashboardURL };

constexpr std::string_view relayTypeRawValue(RelayType type) {
    switch (type) {
        case RelayType::dashboardURL:
            return "DASHBOARD_URL";
    }
    return {};
}

// Exact comparison, case included; nullopt for any other text.
constexpr std::optional<RelayType> relayTypeFromRawValue(std::string_view text) {
    if (text == relayTypeRawValue(RelayType::dashboardURL)) return RelayType::dashboardURL;
    return std::nullopt;
}

}  // namespace quillmere
