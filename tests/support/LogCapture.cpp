#include "tests/support/LogCapture.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>


namespace qlm_test {

namespace {

constexpr std::string_view kPrefix = "Quillmere: ";

}  // namespace

LogCapture::LogCapture() {
    if (::pipe2(pipe_, O_CLOEXEC) != 0) return;
    // Only the reading end: writers into descriptor 2 must still block rather than lose lines.
    ::fcntl(pipe_[0], F_SETFL, ::fcntl(pipe_[0], F_GETFL) | O_NONBLOCK);
    saved_ = ::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
    if (saved_ < 0 || ::dup2(pipe_[1], STDERR_FILENO) != STDERR_FILENO) return;
    reader_ = std::thread([this] { readLoop(); });
}

LogCapture::~LogCapture() {
    restore();
    if (reader_.joinable()) reader_.join();
    if (pipe_[0] >= 0) ::close(pipe_[0]);
    std::lock_guard lock(mutex_);
    passOn_ += pending_;
    if (!passOn_.empty()) {
        [[maybe_unused]] const auto written = ::write(STDERR_FILENO, passOn_.data(), passOn_.size());
    }
}

void LogCapture::restore() {
    if (saved_ >= 0) {
        ::dup2(saved_, STDERR_FILENO);
        ::close(saved_);
        saved_ = -1;
    }
    if (pipe_[1] >= 0) {
        ::close(pipe_[1]);
        pipe_[1] = -1;
    }
    // Copies of descriptor 2 taken meanwhile (a Core keeps two for good) may hold the pipe open, so
    // its end may never come: whatever was written before the restore is in the pipe by now, and
    // the reader's last drain takes it.
    std::lock_guard lock(mutex_);
    restored_ = true;
}

void LogCapture::readLoop() {
    for (;;) {
        pollfd ready{pipe_[0], POLLIN, 0};
        ::poll(&ready, 1, 100);
        std::lock_guard lock(mutex_);
        drainLocked();
        if (ended_ || restored_) return;
    }
}

void LogCapture::drainLocked() const {
    char buffer[4096];
    for (;;) {
        const ssize_t n = ::read(pipe_[0], buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n == 0) ended_ = true;
        if (n <= 0) return;
        pending_.append(buffer, static_cast<std::size_t>(n));
        std::size_t end;
        while ((end = pending_.find('\n')) != std::string::npos) {
            std::string line = pending_.substr(0, end);
            pending_.erase(0, end + 1);
            const auto at = line.find(kPrefix);
            if (at != std::string::npos) {
                lines_.push_back(line.substr(at));
            } else {
                passOn_ += line + "\n";
            }
        }
    }
}

std::vector<std::string> LogCapture::lines() const {
    std::lock_guard lock(mutex_);
    drainLocked();
    return lines_;
}

std::size_t LogCapture::count(std::string_view line) const {
    const auto all = lines();
    return static_cast<std::size_t>(std::count(all.begin(), all.end(), line));
}

}  // namespace qlm_test
