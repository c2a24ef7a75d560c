#pragma once
// The host's hook for captured requests, exported as the protocol QLMRequestSanitizer. Called on
// the thread where a captured request starts; the host owns the object and keeps it thread-safe.
#include <memory>

#include "QuillmereExport.h"
#include "platform/objc/Runtime.h"

namespace quillmere {

class Request;

class QLM_EXPORT RequestSanitizer {
public:
    virtual ~RequestSanitizer() = default;

    // The request as it may be reported, changed or not; null means it is not reported at all.
    virtual std::shared_ptr<Request> sanitize(std::shared_ptr<Request> request) = 0;

    static platform::Protocol protocol();
};

}  // namespace quillmere
