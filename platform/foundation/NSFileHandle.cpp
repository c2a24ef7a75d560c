#include "platform/foundation/NSFileHandle.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

#include "platform/foundation/NSDictionary.h"
#include "platform/foundation/NSNotificationCenter.h"
#include "platform/foundation/NSNumber.h"
#include "platform/foundation/NSRunLoop.h"
#include "platform/foundation/NSString.h"

namespace platform {

// One armed background read. The handle holds it while it is pending; the delivery holds it to
// learn whether it was cancelled meanwhile.
struct NSFileHandle::BackgroundRead {
    std::weak_ptr<NSObject> handle;
    std::atomic<bool> cancelled{false};
};

// The reader's own duplicate of a handle's descriptor, so that the handle may close its descriptor
// while the reader polls: a descriptor number reused meanwhile is never read by mistake.
struct NSFileHandle::ReadChannel {
    explicit ReadChannel(int descriptor) : fd(descriptor) {}
    ~ReadChannel() { ::close(fd); }
    ReadChannel(const ReadChannel&) = delete;
    ReadChannel& operator=(const ReadChannel&) = delete;
    const int fd;
};

namespace {

constexpr std::size_t kBackgroundReadSize = 64 * 1024;

// One thread polls every armed descriptor of the process, so a read costs a wake-up rather than a
// thread. Never destroyed: handles may be released while the process exits.
class BackgroundReader {
public:
    struct Request {
        int fd;
        std::shared_ptr<const void> keepOpen;  // owns `fd`
        const void* token;                     // identifies the request for cancel()
        std::function<void(std::shared_ptr<NSData>, int)> complete;
    };

    static BackgroundReader& shared() {
        static BackgroundReader* instance = new BackgroundReader();
        return *instance;
    }

    // False when the reader could not start (no descriptor or thread left); `request` is untouched.
    bool arm(Request& request) {
        if (wakeFd_ < 0) return false;
        {
            std::lock_guard lock(mutex_);
            armed_.push_back(std::move(request));
        }
        wake();
        return true;
    }

    // The request is not completed after this returns, unless its read is already under way.
    void cancel(const void* token) {
        {
            std::lock_guard lock(mutex_);
            std::erase_if(armed_, [token](const Request& r) { return r.token == token; });
        }
        wake();  // so the poll lets go of the descriptor
    }

private:
    BackgroundReader() : wakeFd_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
        if (wakeFd_ < 0) return;
        try {
            std::thread([this] { run(); }).detach();
        } catch (...) {
            ::close(wakeFd_);
            wakeFd_ = -1;
        }
    }

    void wake() {
        const uint64_t one = 1;
        while (::write(wakeFd_, &one, sizeof one) < 0 && errno == EINTR) {
        }
    }

    void run() {
        std::vector<uint8_t> buffer(kBackgroundReadSize);
        std::vector<pollfd> fds;
        std::vector<const void*> tokens;
        std::vector<std::shared_ptr<const void>> polled;  // keeps the polled descriptors open
        for (;;) {
            fds.assign(1, pollfd{wakeFd_, POLLIN, 0});
            tokens.clear();
            polled.clear();
            {
                std::lock_guard lock(mutex_);
                for (const Request& r : armed_) {
                    fds.push_back(pollfd{r.fd, POLLIN, 0});
                    tokens.push_back(r.token);
                    polled.push_back(r.keepOpen);
                }
            }
            if (::poll(fds.data(), fds.size(), -1) < 0) continue;  // EINTR; nothing else is expected
            if (fds[0].revents != 0) {
                uint64_t count;
                while (::read(wakeFd_, &count, sizeof count) < 0 && errno == EINTR) {
                }
            }
            for (std::size_t i = 1; i < fds.size(); ++i) {
                if (fds[i].revents != 0) serve(tokens[i - 1], fds[i].fd, buffer);
            }
        }
    }

    void serve(const void* token, int fd, std::vector<uint8_t>& buffer) {
        Request request;
        {
            std::lock_guard lock(mutex_);
            auto it = std::find_if(armed_.begin(), armed_.end(),
                                   [token](const Request& r) { return r.token == token; });
            if (it == armed_.end()) return;  // cancelled after the poll
            request = std::move(*it);
            armed_.erase(it);
        }
        ssize_t n;
        do {
            n = ::read(fd, buffer.data(), buffer.size());
        } while (n < 0 && errno == EINTR);
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            // A non-blocking descriptor that another reader emptied first: wait for more.
            std::lock_guard lock(mutex_);
            armed_.push_back(std::move(request));
            return;
        }
        const int error = n < 0 ? errno : 0;
        auto data =
            n > 0 ? NSData::dataWithBytes(buffer.data(), static_cast<std::size_t>(n)) : NSData::data();
        request.complete(std::move(data), error);
    }

    std::mutex mutex_;
    std::vector<Request> armed_;  // guarded by mutex_
    int wakeFd_;                  // set before the thread starts, then read-only
};

std::shared_ptr<NSFileHandle> standardHandle(int fd) {
    return std::make_shared<NSFileHandle>(fd, false);
}

}  // namespace

NSFileHandle::NSFileHandle(int fd, bool closeOnDealloc) : closeOnDealloc_(closeOnDealloc), fd_(fd) {}

NSFileHandle::~NSFileHandle() {
    cancelBackgroundRead();
    if (closeOnDealloc_ && fd_ >= 0) ::close(fd_);
}

std::shared_ptr<NSFileHandle> NSFileHandle::initWithFileDescriptor(int fd, bool closeOnDealloc) {
    return std::make_shared<NSFileHandle>(fd, closeOnDealloc);
}

std::shared_ptr<NSFileHandle> NSFileHandle::fileHandleWithStandardInput() {
    static const auto* handle = new std::shared_ptr<NSFileHandle>(standardHandle(STDIN_FILENO));
    return *handle;
}

std::shared_ptr<NSFileHandle> NSFileHandle::fileHandleWithStandardOutput() {
    static const auto* handle = new std::shared_ptr<NSFileHandle>(standardHandle(STDOUT_FILENO));
    return *handle;
}

std::shared_ptr<NSFileHandle> NSFileHandle::fileHandleWithStandardError() {
    static const auto* handle = new std::shared_ptr<NSFileHandle>(standardHandle(STDERR_FILENO));
    return *handle;
}

int NSFileHandle::fileDescriptor() const {
    std::shared_lock lock(descriptorMutex_);
    return fd_;
}

void NSFileHandle::writeData(const NSData& data) {
    std::shared_lock lock(descriptorMutex_);
    if (fd_ < 0) return;
    const uint8_t* next = data.bytes();
    std::size_t left = data.length();
    while (left > 0) {
        const ssize_t n = ::write(fd_, next, left);
        if (n >= 0) {
            next += n;
            left -= static_cast<std::size_t>(n);
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            pollfd p{fd_, POLLOUT, 0};
            if (::poll(&p, 1, -1) < 0 && errno != EINTR) return;
        } else if (errno != EINTR) {
            return;
        }
    }
}

std::shared_ptr<NSData> NSFileHandle::availableData() {
    {
        std::shared_lock lock(descriptorMutex_);
        if (fd_ < 0) return NSData::data();
        struct stat info {};
        if (::fstat(fd_, &info) != 0 || !S_ISREG(info.st_mode)) {
            std::vector<uint8_t> buffer(kBackgroundReadSize);
            for (;;) {
                const ssize_t n = ::read(fd_, buffer.data(), buffer.size());
                if (n >= 0) {
                    buffer.resize(static_cast<std::size_t>(n));
                    return std::make_shared<NSData>(std::move(buffer));
                }
                if (errno == EAGAIN || errno == EWOULDBLOCK) {
                    pollfd p{fd_, POLLIN, 0};
                    if (::poll(&p, 1, -1) < 0 && errno != EINTR) return NSData::data();
                } else if (errno != EINTR) {
                    return NSData::data();
                }
            }
        }
    }
    return readDataToEndOfFile();
}

std::shared_ptr<NSData> NSFileHandle::readDataToEndOfFile() {
    std::shared_lock lock(descriptorMutex_);
    auto data = NSMutableData::data();
    if (fd_ < 0) return data;
    uint8_t buffer[16 * 1024];
    for (;;) {
        const ssize_t n = ::read(fd_, buffer, sizeof buffer);
        if (n > 0) {
            data->appendBytes(buffer, static_cast<std::size_t>(n));
        } else if (n == 0) {
            break;
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            pollfd p{fd_, POLLIN, 0};
            if (::poll(&p, 1, -1) < 0 && errno != EINTR) break;
        } else if (errno != EINTR) {
            break;
        }
    }
    return data;
}

void NSFileHandle::closeFile() {
    {
        // Closed first: a read armed meanwhile sees the handle closed instead of reviving it.
        std::unique_lock lock(descriptorMutex_);
        if (fd_ < 0) return;
        ::close(fd_);
        fd_ = -1;
    }
    cancelBackgroundRead();
}

void NSFileHandle::cancelBackgroundRead() {
    std::shared_ptr<BackgroundRead> pending;
    std::shared_ptr<ReadChannel> channel;
    {
        std::lock_guard lock(readMutex_);
        pending = std::move(pendingRead_);
        channel = std::move(channel_);
    }
    if (pending) {
        pending->cancelled.store(true);
        BackgroundReader::shared().cancel(pending.get());
    }
}

NSFileHandle::Completion NSFileHandle::completionFor(std::shared_ptr<BackgroundRead> read,
                                                     std::shared_ptr<NSRunLoop> runLoop) {
    return [read = std::move(read), runLoop = std::move(runLoop)](std::shared_ptr<NSData> data, int error) {
        runLoop->performBlock([read, data = std::move(data), error] {
            if (read->cancelled.load()) return;
            auto handle = std::static_pointer_cast<NSFileHandle>(read->handle.lock());
            if (handle) handle->completeBackgroundRead(read, data, error);
        });
    };
}

void NSFileHandle::readInBackgroundAndNotify() {
    std::weak_ptr<NSObject> self = weak_from_this();
    if (self.expired()) return;  // not owned by a shared_ptr: there would be no one to notify about
    std::shared_ptr<NSRunLoop> runLoop = NSRunLoop::currentRunLoop();

    std::unique_lock lock(readMutex_);
    if (pendingRead_) return;
    auto read = std::make_shared<BackgroundRead>();
    read->handle = std::move(self);
    pendingRead_ = read;

    int error = 0;
    {
        std::shared_lock descriptorLock(descriptorMutex_);
        if (fd_ < 0) {
            error = EBADF;
        } else if (!channel_) {
            const int duplicate = ::fcntl(fd_, F_DUPFD_CLOEXEC, 0);
            if (duplicate < 0) {
                error = errno;
            } else {
                channel_ = std::make_shared<ReadChannel>(duplicate);
            }
        }
    }
    Completion complete = completionFor(read, std::move(runLoop));
    if (error == 0) {
        BackgroundReader::Request request{channel_->fd, channel_, read.get(), complete};
        if (BackgroundReader::shared().arm(request)) return;
        error = EMFILE;  // the reader could not start: no descriptor or thread was left for it
    }
    lock.unlock();
    complete(NSData::data(), error);
}

void NSFileHandle::completeBackgroundRead(const std::shared_ptr<BackgroundRead>& read,
                                          std::shared_ptr<NSData> data, int error) {
    {
        std::lock_guard lock(readMutex_);
        if (pendingRead_ != read) return;
        pendingRead_ = nullptr;  // before the post, so that observers may arm the next read
    }
    auto userInfo = NSMutableDictionary::dictionary();
    userInfo->setObjectForKey(std::move(data), NSFileHandleNotificationDataItem);
    if (error != 0) userInfo->setObjectForKey(NSNumber::numberWithLongLong(error), NSFileHandleError);
    NSNotificationCenter::defaultCenter()->postNotificationName(
        NSFileHandleReadCompletionNotification, shared_from_this(),
        std::make_shared<NSDictionary>(userInfo->entries()));
}

}  // namespace platform
