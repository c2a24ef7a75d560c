#pragma once
// A data task that sends a body given apart from its request.
#include "platform/url/NSURLSessionDataTask.h"

namespace platform {

class NSURLSessionUploadTask : public NSURLSessionDataTask {
    PLATFORM_OBJC_CLASS(NSURLSessionUploadTask, NSURLSessionDataTask)
};

}  // namespace platform
