#include "capture/network/JsonValue.h"

#include <utility>

#include "platform/foundation/NSArray.h"
#include "platform/foundation/NSJSONSerialization.h"
#include "platform/foundation/NSString.h"

namespace quillmere {

std::optional<qm::utils::Value> jsonValue(std::string text) {
    // The array, not the bare string: a top-level string is no JSON document for the writer.
    const auto array = platform::NSArray::arrayWithObjects({platform::NSStr(std::move(text))});
    const auto data = platform::NSJSONSerialization::dataWithJSONObject(array, 0, nullptr);
    if (!data) return std::nullopt;
    // The writer's text is UTF-8 whenever it writes at all: taken as it is, without decoding it again.
    qm::utils::Value value;
    value.set_arson(std::string(data->view()));
    return value;
}

}  // namespace quillmere
