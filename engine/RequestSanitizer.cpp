#include "engine/RequestSanitizer.h"

namespace quillmere {

platform::Protocol RequestSanitizer::protocol() {
    static const platform::Protocol exported = platform::objc_defineProtocol("QLMRequestSanitizer");
    return exported;
}

}  // namespace quillmere
