#pragma once
// Conversions between the runtime's object values and the C++ types of the public operations, for
// hosts that call through the exported selectors. Entries of the wrong kind are left out rather
// than failing the call.
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/foundation/NSObject.h"

namespace quillmere::bridge {

// The strings of an NSArray, in order; empty for nil or another object.
std::vector<std::string> strings(const platform::id& array);
// The string pairs of an NSDictionary; nullopt for nil or another object.
std::optional<std::map<std::string, std::string>> stringMap(const platform::id& dictionary);
// An NSArray of NSStrings.
platform::id array(const std::vector<std::string>& strings);

}  // namespace quillmere::bridge
