#pragma once
// Percent-encoding of URL parts (RFC 3986). '+' is an ordinary character here, not a space: the
// recording library puts identifiers into its URLs unescaped, so a '+' in one must survive. Only
// what an HTML form sent reads '+' as a space.
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qlm::ingest {

using QueryParameters = std::vector<std::pair<std::string, std::string>>;

// "%XX" becomes that byte. nullopt when a '%' is not followed by two hexadecimal digits.
std::optional<std::string> percentDecode(std::string_view text);

// Escapes every byte outside RFC 3986's unreserved set, so the result is safe as one path
// segment, as a query value and inside HTML attribute values.
std::string percentEncode(std::string_view text);

enum class QueryForm {
    uri,       // RFC 3986: '+' is itself
    htmlForm,  // application/x-www-form-urlencoded, as a GET form sends its fields: '+' is a space
};

// Splits "k=v&k2=v2" into decoded pairs in their order. A piece without '=' is a key with an empty
// value; empty pieces ("a=1&&b=2") are skipped. nullopt when any escape is broken.
std::optional<QueryParameters> parseQuery(std::string_view rawQuery, QueryForm form = QueryForm::uri);

}  // namespace qlm::ingest
