#pragma once
// File handles over descriptors (pipes, files, sockets), with the platform's background read that
// reports through a notification.
//
// Thread use: any thread may write, read, close and arm a background read. closeFile waits for
// reads and writes under way on other threads. Handles must be owned by a std::shared_ptr (as the
// factories give them) for background reads, whose notification names the handle.
#include <functional>
#include <memory>
#include <mutex>
#include <shared_mutex>

#include "platform/foundation/NSData.h"
#include "platform/foundation/NSObject.h"

namespace platform {

class NSRunLoop;

// Posted to the default center on the thread that armed a background read, while that thread runs
// its run loop; the object is the handle.
inline constexpr const char* NSFileHandleReadCompletionNotification =
    "NSFileHandleReadCompletionNotification";
// userInfo key of the bytes read (NSData): empty at end of file and on error.
inline constexpr const char* NSFileHandleNotificationDataItem = "NSFileHandleNotificationDataItem";
// userInfo key, present on error only: the errno value (NSNumber).
inline constexpr const char* NSFileHandleError = "NSFileHandleError";

class NSFileHandle : public NSObject {
    PLATFORM_OBJC_CLASS(NSFileHandle, NSObject)
public:
    // With `closeOnDealloc` the handle owns the descriptor and closes it when destroyed.
    NSFileHandle(int fd, bool closeOnDealloc);
    ~NSFileHandle() override;

    static std::shared_ptr<NSFileHandle> initWithFileDescriptor(int fd, bool closeOnDealloc = false);
    // Shared handles on descriptors 0, 1 and 2, which they do not close when released.
    static std::shared_ptr<NSFileHandle> fileHandleWithStandardInput();
    static std::shared_ptr<NSFileHandle> fileHandleWithStandardOutput();
    static std::shared_ptr<NSFileHandle> fileHandleWithStandardError();

    // -1 once closed.
    int fileDescriptor() const;

    // Writes all the bytes, resuming after signals and partial writes and waiting while a
    // non-blocking descriptor is full. On an error it stops silently: the platform raises an
    // exception there, which the library must never let reach its host. As with write(2), writing
    // to a pipe whose reading end is closed raises SIGPIPE, whose disposition is the process's.
    void writeData(const NSData& data);

    // Blocks until bytes are there and gives what one read returns (the rest of a regular file);
    // empty at end of file, on error or once closed.
    std::shared_ptr<NSData> availableData();
    // Reads until end of file; what was read before an error.
    std::shared_ptr<NSData> readDataToEndOfFile();

    // Closes the descriptor (owned or not) and cancels a pending background read, whose
    // notification then never comes. Further calls do nothing.
    void closeFile();

    // Reads once in the background as soon as at least one byte or end of file is there (up to
    // 64 KiB), then posts NSFileHandleReadCompletionNotification through the calling thread's run
    // loop. Never blocks the caller. Arm again from the observer to keep reading. While a read is
    // pending, arming again does nothing, and nothing else should read the descriptor. On a closed
    // handle the notification reports EBADF. A handle released with a read pending cancels it.
    // A handle that has read in the background holds a duplicate of its descriptor until it is
    // closed or released.
    void readInBackgroundAndNotify();

private:
    struct BackgroundRead;
    struct ReadChannel;
    using Completion = std::function<void(std::shared_ptr<NSData> data, int error)>;

    // What the reader calls, on its thread, when `read` has a result: hands it to `runLoop`.
    static Completion completionFor(std::shared_ptr<BackgroundRead> read, std::shared_ptr<NSRunLoop> runLoop);
    void completeBackgroundRead(const std::shared_ptr<BackgroundRead>& read, std::shared_ptr<NSData> data,
                                int error);
    void cancelBackgroundRead();

    const bool closeOnDealloc_;
    mutable std::shared_mutex descriptorMutex_;  // shared by reads and writes, exclusive for closing
    int fd_;                                     // guarded by descriptorMutex_; -1 once closed

    std::mutex readMutex_;
    std::shared_ptr<BackgroundRead> pendingRead_;  // guarded by readMutex_; null when none is armed
    std::shared_ptr<ReadChannel> channel_;         // guarded by readMutex_; made at the first background read
};

}  // namespace platform
