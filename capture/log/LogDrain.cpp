#include "capture/log/LogDrain.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>
#include <vector>

#include "platform/foundation/NSFileHandle.h"

namespace quillmere {

namespace {

// As much as a pipe holds by default: one read takes all the host has written meanwhile.
constexpr std::size_t kReadBytes = 64 * 1024;
constexpr int kFirstFreeDescriptor = 3;

// Writes every byte, however the destination cuts the writes; gives up silently on an error, when
// the host's own write would have failed as well.
void forward(int destination, const char* bytes, std::size_t count) {
    while (count > 0) {
        const ssize_t written = ::write(destination, bytes, count);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return;
        bytes += written;
        count -= static_cast<std::size_t>(written);
    }
}

}  // namespace

struct LogDrain::Channel {
    Channel(std::shared_ptr<platform::NSPipe> pipe, int destination, Piece piece)
        : pipe(std::move(pipe)), destination(destination), piece(std::move(piece)) {}

    // Immutable; the descriptors are released by the thread when the pipe ends (or by the drain
    // when the thread never started).
    const std::shared_ptr<platform::NSPipe> pipe;
    const int destination;
    const Piece piece;

    std::atomic<bool> capturing{true};  // cleared when the thread is left alone

    std::mutex mutex;
    std::condition_variable changed;
    bool ended = false;  // guarded by mutex; the thread has released everything
};

std::unique_ptr<LogDrain> LogDrain::make(int destination, Piece piece) {
    const int copy = ::fcntl(destination, F_DUPFD_CLOEXEC, kFirstFreeDescriptor);
    if (copy < 0) return nullptr;
    auto pipe = platform::NSPipe::pipe();
    if (!pipe || pipe->fileHandleForReading()->fileDescriptor() < kFirstFreeDescriptor ||
        pipe->fileHandleForWriting()->fileDescriptor() < kFirstFreeDescriptor) {
        ::close(copy);
        return nullptr;  // the pipe's handles close its descriptors as they go
    }
    return std::unique_ptr<LogDrain>(
        new LogDrain(std::make_shared<Channel>(std::move(pipe), copy, std::move(piece))));
}

LogDrain::LogDrain(std::shared_ptr<Channel> channel) : channel_(std::move(channel)) {}

LogDrain::~LogDrain() {
    if (thread_.joinable()) {
        channel_->capturing.store(false);
        thread_.detach();
    } else if (!started_) {
        // Nothing else will close the copy.
        ::close(channel_->destination);
    }
}

int LogDrain::inputDescriptor() const {
    return channel_->pipe->fileHandleForWriting()->fileDescriptor();
}

bool LogDrain::start() {
    try {
        thread_ = std::thread([channel = channel_] { drain(channel); });
        started_ = true;
        return true;
    } catch (const std::system_error&) {
        return false;
    }
}

void LogDrain::finish(std::chrono::steady_clock::time_point deadline) {
    if (!thread_.joinable()) return;
    channel_->pipe->fileHandleForWriting()->closeFile();
    bool ended;
    {
        std::unique_lock lock(channel_->mutex);
        ended = channel_->changed.wait_until(lock, deadline, [this] { return channel_->ended; });
    }
    if (ended) {
        thread_.join();
    } else {
        channel_->capturing.store(false);
        thread_.detach();
    }
}

void LogDrain::drain(const std::shared_ptr<Channel>& channel) {
    const auto& reading = channel->pipe->fileHandleForReading();
    const int source = reading->fileDescriptor();
    std::vector<char> buffer(kReadBytes);
    for (;;) {
        const ssize_t count = ::read(source, buffer.data(), buffer.size());
        if (count < 0 && errno == EINTR) continue;
        // End of the pipe: every writer is gone. (Reading a pipe fails for no other cause.)
        if (count <= 0) break;
        // The console first: the capture may wait for memory, the host's output never.
        forward(channel->destination, buffer.data(), static_cast<std::size_t>(count));
        if (channel->capturing.load(std::memory_order_relaxed))
            channel->piece(std::string_view(buffer.data(), static_cast<std::size_t>(count)));
    }
    reading->closeFile();
    ::close(channel->destination);
    {
        std::lock_guard lock(channel->mutex);
        channel->ended = true;
    }
    channel->changed.notify_all();
}

}  // namespace quillmere
