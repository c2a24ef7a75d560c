#include "server/http/HttpRequest.h"

#include <algorithm>
#include <cctype>

namespace qlm::ingest {

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](unsigned char x, unsigned char y) { return std::tolower(x) == std::tolower(y); });
}

std::optional<std::string_view> HttpRequest::header(std::string_view name) const {
    for (const auto& [fieldName, value] : headers) {
        if (equalsIgnoringCase(fieldName, name)) return std::string_view(value);
    }
    return std::nullopt;
}

}  // namespace qlm::ingest
