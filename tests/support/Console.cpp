#include "tests/support/Console.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "tests/support/Wait.h"

namespace qlm_test {

Console::Console(int fd) : fd_(fd) {
    std::fflush(stdout);
    std::fflush(stderr);
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        ADD_FAILURE() << "no pipe for the console";
        return;
    }
    reading_ = ends[0];
    ::fcntl(reading_, F_SETFL, ::fcntl(reading_, F_GETFL) | O_NONBLOCK);
    saved_ = ::fcntl(fd_, F_DUPFD_CLOEXEC, 0);
    ::dup2(ends[1], fd_);
    ::close(ends[1]);
    stop_ = ::eventfd(0, EFD_CLOEXEC);
    reader_ = std::thread([this] { readLoop(); });
}

Console::~Console() {
    if (saved_ >= 0) {
        ::dup2(saved_, fd_);
        ::close(saved_);
    }
    if (reader_.joinable()) {
        const uint64_t one = 1;
        [[maybe_unused]] const auto written = ::write(stop_, &one, sizeof one);
        reader_.join();
    }
    if (stop_ >= 0) ::close(stop_);
    if (reading_ >= 0) ::close(reading_);
}

std::string Console::text() const {
    std::lock_guard lock(mutex_);
    return text_;
}

bool Console::waitFor(std::string_view expected, std::chrono::milliseconds timeout) {
    return runMainLoopUntil([&] { return text().find(expected) != std::string::npos; }, timeout);
}

bool Console::isBehind(int fd) const {
    struct stat behind = {};
    struct stat own = {};
    if (::fstat(fd, &behind) != 0 || ::fstat(reading_, &own) != 0) return false;
    return behind.st_dev == own.st_dev && behind.st_ino == own.st_ino;
}

void Console::pause() {
    std::lock_guard lock(mutex_);
    paused_ = true;
}

void Console::resume() {
    std::lock_guard lock(mutex_);
    paused_ = false;
}

bool Console::paused() const {
    std::lock_guard lock(mutex_);
    return paused_;
}

void Console::readLoop() {
    // Other holders of the writing end (the library's copies) may outlive the console, so the end
    // of the pipe never comes: the eventfd ends the loop, after a last drain.
    char buffer[64 * 1024];
    bool stopping = false;
    bool ended = false;  // no writer is left: only the eventfd is worth waiting for
    while (!stopping) {
        pollfd ready[2] = {{stop_, POLLIN, 0}, {reading_, POLLIN, 0}};
        // Paused, it looks now and then whether it may go on.
        const bool paused = this->paused();
        if (::poll(ready, ended || paused ? 1 : 2, paused ? 10 : -1) < 0 && errno != EINTR) return;
        stopping = ready[0].revents != 0;
        if (paused && !stopping) continue;
        for (;;) {
            const ssize_t n = ::read(reading_, buffer, sizeof buffer);
            if (n < 0 && errno == EINTR) continue;
            if (n == 0) ended = true;
            if (n <= 0) break;
            std::lock_guard lock(mutex_);
            text_.append(buffer, static_cast<std::size_t>(n));
        }
    }
}

}  // namespace qlm_test
