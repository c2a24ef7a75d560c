#pragma once
// What network capture needs of the session beyond a place for its events: whether a request is to
// be reported, a number for each reported request, and the host's sanitizers.
//
// Threads: any; none of these blocks.
#include <cstdint>
#include <memory>

#include "engine/EventSink.h"
#include "engine/RequestSanitizer.h"
#include "engine/ResponseSanitizer.h"
#include "platform/url/NSURLRequest.h"

namespace quillmere {

class NetworkEventSink : public EventSink {
public:
    // Whether a host request is to be reported at all.
    virtual bool shouldCaptureRequest(const platform::NSURLRequest& request) const = 0;
    // The number of the next reported request, from 0; a number once taken is used up.
    virtual int64_t nextRequestID() noexcept = 0;
    // The host's hooks as they stand now; null: report what was captured as it is.
    virtual std::shared_ptr<RequestSanitizer> requestSanitizer() const = 0;
    virtual std::shared_ptr<ResponseSanitizer> responseSanitizer() const = 0;
};

}  // namespace quillmere
