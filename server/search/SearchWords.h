#pragma once
// Words as the text index holds them and as queries name them, the same for both stores: maximal
// runs of letters, marks and digits once the text is normalised for compatibility, case-folded and
// stripped of accents ("Card FROZEN, café" holds "card", "frozen" and "cafe"). The stores are
// handed the words ready-made, so neither a tokenizer nor a database's locale decides what a word
// is. Pure functions, safe from any thread.
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace qlm::ingest {

// Longer runs (encoded data, hashes) are left out rather than cut.
inline constexpr std::size_t kMaxWordBytes = 64;

// The distinct words of `text` in the order they first appear, at most `limit` of them. Bytes that
// are not UTF-8 separate words.
std::vector<std::string> searchWords(std::string_view text, std::size_t limit);

}  // namespace qlm::ingest
