#pragma once
// Input streams. The base class reads from an NSData; a host may subclass it for a stream of its
// own by overriding the virtual methods. A stream is used by one thread at a time (the URL loading
// system reads a request's body stream on its loader thread); reads should not block for long.
#include <cstdint>
#include <memory>
#include <mutex>

#include "platform/foundation/NSData.h"
#include "platform/foundation/NSError.h"
#include "platform/foundation/NSObject.h"

namespace platform {

enum NSStreamStatus : unsigned long {
    NSStreamStatusNotOpen = 0,
    NSStreamStatusOpening = 1,
    NSStreamStatusOpen = 2,
    NSStreamStatusReading = 3,
    NSStreamStatusWriting = 4,
    NSStreamStatusAtEnd = 5,
    NSStreamStatusClosed = 6,
    NSStreamStatusError = 7,
};

class NSInputStream : public NSObject {
    PLATFORM_OBJC_CLASS(NSInputStream, NSObject)
public:
    // A stream over `data` (a null data reads as empty).
    explicit NSInputStream(std::shared_ptr<NSData> data = nullptr) : data_(std::move(data)) {}
    static std::shared_ptr<NSInputStream> inputStreamWithData(std::shared_ptr<NSData> data);

    virtual void open();
    virtual void close();
    // Up to `maxLength` bytes into `buffer`: the count read, 0 at the end, -1 when the stream is
    // not open or failed.
    virtual long read(uint8_t* buffer, std::size_t maxLength);
    virtual bool hasBytesAvailable() const;
    virtual NSStreamStatus streamStatus() const;
    // The failure when streamStatus() is NSStreamStatusError; else nullptr.
    virtual std::shared_ptr<NSError> streamError() const { return nullptr; }

private:
    mutable std::mutex mutex_;
    const std::shared_ptr<NSData> data_;             // immutable
    std::size_t offset_ = 0;                         // guarded by mutex_
    NSStreamStatus status_ = NSStreamStatusNotOpen;  // guarded by mutex_
};

}  // namespace platform
