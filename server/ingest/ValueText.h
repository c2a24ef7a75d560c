#pragma once
// The readable text of one qm.utils.Value as the library fills it: captured output and HTTP bodies
// arrive as a JSON array holding the one text, which is unwrapped; anything else (addLog's plain
// strings) is kept as it is. A pure function.
#include <string>
#include <string_view>

namespace qlm::ingest {

std::string valueText(std::string_view arson);

}  // namespace qlm::ingest
