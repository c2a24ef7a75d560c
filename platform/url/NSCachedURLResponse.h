#pragma once
// A response kept by a cache. The stand-in keeps no cache, so protocols are always given nullptr
// for one; the class exists for the signatures that name it.
#include <memory>

#include "platform/foundation/NSData.h"
#include "platform/foundation/NSObject.h"
#include "platform/url/NSURLResponse.h"

namespace platform {

enum NSURLCacheStoragePolicy : unsigned long {
    NSURLCacheStorageAllowed = 0,
    NSURLCacheStorageAllowedInMemoryOnly = 1,
    NSURLCacheStorageNotAllowed = 2,
};

class NSCachedURLResponse : public NSObject {
    PLATFORM_OBJC_CLASS(NSCachedURLResponse, NSObject)
public:
    NSCachedURLResponse(std::shared_ptr<NSURLResponse> response, std::shared_ptr<NSData> data,
                        NSURLCacheStoragePolicy storagePolicy)
        : response_(std::move(response)), data_(std::move(data)), storagePolicy_(storagePolicy) {}

    const std::shared_ptr<NSURLResponse>& response() const { return response_; }
    const std::shared_ptr<NSData>& data() const { return data_; }
    NSURLCacheStoragePolicy storagePolicy() const { return storagePolicy_; }

private:
    const std::shared_ptr<NSURLResponse> response_;
    const std::shared_ptr<NSData> data_;
    const NSURLCacheStoragePolicy storagePolicy_;
};

}  // namespace platform
