#pragma once
// Text as the wire's qm.utils.Value, in the form shared by captured HTTP bodies and captured log
// output: the compact JSON of a one-element array holding the text, brackets, quotes and escapes
// included ("a/b" becomes ["a\/b"]). Any thread.
#include <optional>
#include <string>

#include "wire/qm_utils.pb.h"

namespace quillmere {

// None when the text cannot be written as JSON (it is not UTF-8).
std::optional<qm::utils::Value> jsonValue(std::string text);

}  // namespace quillmere
