#pragma once
// The text of a PDF's pages, as poppler extracts it: what a screen capture would let anyone read
// who has the recording. Safe from any thread (each call reads its own document).
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qlm::ingest {

// One UTF-8 text per page; nullopt when the bytes are not a PDF poppler can read.
std::optional<std::vector<std::string>> pdfPageTexts(std::string_view pdf);

}  // namespace qlm::ingest
