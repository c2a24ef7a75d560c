#pragma once
// A one-way pipe; each end is a file handle that owns its descriptor. Any thread.
#include <memory>

#include "platform/foundation/NSFileHandle.h"
#include "platform/foundation/NSObject.h"

namespace platform {

class NSPipe : public NSObject {
    PLATFORM_OBJC_CLASS(NSPipe, NSObject)
public:
    NSPipe(std::shared_ptr<NSFileHandle> reading, std::shared_ptr<NSFileHandle> writing)
        : reading_(std::move(reading)), writing_(std::move(writing)) {}

    // nil when the system cannot make a pipe (out of descriptors). The descriptors are
    // close-on-exec; a child's dup2 onto its standard descriptors still inherits them.
    static std::shared_ptr<NSPipe> pipe();

    const std::shared_ptr<NSFileHandle>& fileHandleForReading() const { return reading_; }
    const std::shared_ptr<NSFileHandle>& fileHandleForWriting() const { return writing_; }

private:
    std::shared_ptr<NSFileHandle> reading_;
    std::shared_ptr<NSFileHandle> writing_;
};

}  // namespace platform
