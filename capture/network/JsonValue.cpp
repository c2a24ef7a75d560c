#include "capture/network/JsonValue.h"

#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSJSONSerialization.h"
#include "platform/foundation/NSString.h"

namespace quillmere {

std::optional<qm::utils::Value> jsonValue(const std::string& text) {
    // The array, not the bare string: a top-level string is no JSON document for the writer.
    const auto array = platform::NSArray::arrayWithObjects({platform::NSStr(text)});
    const auto data = platform::NSJSONSerialization::dataWithJSONObject(array, 0, nullptr);
    if (!data) return std::nullopt;
    const auto decoded = platform::NSString::initWithData(*data, platform::NSUTF8StringEncoding);
    if (!decoded) return std::nullopt;
    qm::utils::Value value;
    value.set_arson(decoded->UTF8String());
    return value;
}

}  // namespace quillmere
