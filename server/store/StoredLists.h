#pragma once
// What both stores read back from the lists their queries aggregate as JSON.
#include <string>
#include <string_view>
#include <vector>

namespace qlm::ingest {

// The strings of a JSON array ('["a","b"]'); anything else in it, or a text that is no array, is skipped.
std::vector<std::string> stringsOfJsonArray(std::string_view json);

}  // namespace qlm::ingest
