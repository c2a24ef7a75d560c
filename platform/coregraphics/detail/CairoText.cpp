#include "platform/coregraphics/detail/CairoText.h"

#include <algorithm>

#include "platform/foundation/NSString.h"

namespace platform::detail {

std::string validUtf8(std::string_view text) {
    std::string out = NSStringByRepairingUTF8(text);
    out.erase(std::remove(out.begin(), out.end(), '\0'), out.end());
    return out;
}

}  // namespace platform::detail
