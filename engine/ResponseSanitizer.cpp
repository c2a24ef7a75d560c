#include "engine/ResponseSanitizer.h"

namespace quillmere {

platform::Protocol ResponseSanitizer::protocol() {
    static const platform::Protocol exported = platform::objc_defineProtocol("QLMResponseSanitizer");
    return exported;
}

}  // namespace quillmere
