#pragma once
// Errors of the URL loading system: NSURLErrorDomain errors carrying the failing URL.
#include <memory>

#include "platform/foundation/NSError.h"
#include "platform/url/NSURL.h"

namespace platform {

// An NSURLErrorDomain error with the platform's description for `code` and, when `failingURL` is
// not null, the failing URL under both keys.
std::shared_ptr<NSError> NSURLErrorWithCode(long code, const std::shared_ptr<NSURL>& failingURL);

}  // namespace platform
