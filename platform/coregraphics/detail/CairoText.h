#pragma once
// Text as cairo takes it. cairo refuses bytes that aren't UTF-8 and stops at a NUL, and a refusal
// leaves its context unusable for good, so whatever text reaches cairo passes through here.
#include <string>
#include <string_view>

namespace platform::detail {

// `text` with invalid sequences replaced by U+FFFD and NUL bytes dropped.
std::string validUtf8(std::string_view text);

}  // namespace platform::detail
