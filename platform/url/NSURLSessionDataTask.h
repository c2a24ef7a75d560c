#pragma once
// A task whose response body arrives as data, in memory.
#include "platform/url/NSURLSessionTask.h"

namespace platform {

class NSURLSessionDataTask : public NSURLSessionTask {
    PLATFORM_OBJC_CLASS(NSURLSessionDataTask, NSURLSessionTask)
};

}  // namespace platform
