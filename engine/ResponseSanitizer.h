#pragma once
// The host's hook for captured responses, exported as the protocol QLMResponseSanitizer. Called on
// the thread where a captured request completes; the host owns the object and keeps it thread-safe.
#include <memory>

#include "QuillmereExport.h"
#include "platform/objc/Runtime.h"

namespace quillmere {

class Response;

class QLM_EXPORT ResponseSanitizer {
public:
    virtual ~ResponseSanitizer() = default;

    // The response as it may be reported, changed or not; null means it is not reported at all.
    virtual std::shared_ptr<Response> sanitize(std::shared_ptr<Response> response) = 0;

    static platform::Protocol protocol();
};

}  // namespace quillmere
