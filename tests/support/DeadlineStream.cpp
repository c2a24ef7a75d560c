#include "tests/support/DeadlineStream.h"

#include <poll.h>
#include <sys/socket.h>

#include <boost/asio/error.hpp>
#include <boost/beast/core/error.hpp>
#include <algorithm>
#include <cerrno>

namespace qlm_test {

bool DeadlineStream::waitFor(short events, std::chrono::milliseconds timeout, boost::beast::error_code& error) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        int wait = -1;
        if (timeout.count() >= 0) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline -
                                                                                    std::chrono::steady_clock::now());
            wait = static_cast<int>(std::max<std::chrono::milliseconds::rep>(left.count(), 0));
        }
        pollfd fds[2] = {{fd_, events, 0}, {wakeFd_, POLLIN, 0}};
        const int ready = ::poll(fds, 2, wait);
        if (ready < 0 && errno == EINTR) continue;
        if (ready < 0) {
            error = boost::beast::error_code(errno, boost::system::system_category());
            return false;
        }
        if ((fds[1].revents & POLLIN) != 0) {
            error = boost::asio::error::operation_aborted;
            return false;
        }
        if (fds[0].revents != 0) return true;
        if (ready == 0) {
            error = boost::beast::error::timeout;
            return false;
        }
    }
}

std::size_t DeadlineStream::readInto(void* data, std::size_t size, boost::beast::error_code& error) {
    for (;;) {
        if (!waitFor(POLLIN, readTimeout_, error)) return 0;
        const ssize_t count = ::recv(fd_, data, size, MSG_DONTWAIT);
        if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) continue;
        if (count < 0) {
            error = boost::beast::error_code(errno, boost::system::system_category());
            return 0;
        }
        if (count == 0) {
            error = boost::asio::error::eof;
            return 0;
        }
        readTimeout_ = afterData_;
        error = {};
        return static_cast<std::size_t>(count);
    }
}

std::size_t DeadlineStream::writeFrom(const iovec* pieces, std::size_t count, boost::beast::error_code& error) {
    if (count == 0) {
        error = {};
        return 0;
    }
    for (;;) {
        // Writes wait without a deadline of their own: a client that stops reading holds its
        // connection until stop(), as a slow one would.
        if (!waitFor(POLLOUT, std::chrono::milliseconds(-1), error)) return 0;
        msghdr message{};
        message.msg_iov = const_cast<iovec*>(pieces);
        message.msg_iovlen = count;
        const ssize_t sent = ::sendmsg(fd_, &message, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) continue;
        if (sent < 0) {
            error = boost::beast::error_code(errno, boost::system::system_category());
            return 0;
        }
        error = {};
        return static_cast<std::size_t>(sent);
    }
}

}  // namespace qlm_test
