#pragma once
// A blocking byte stream over a connected socket for Beast's synchronous read and write: every
// wait is bounded by a deadline and ends early once a wake descriptor becomes readable (the owning
// server stopping). Used by one thread at a time; it neither owns nor closes the descriptors.
#include <boost/asio/buffer.hpp>
#include <boost/beast/core/error.hpp>
#include <poll.h>
#include <sys/uio.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <stdexcept>

namespace qlm_test {

class DeadlineStream {
public:
    DeadlineStream(int fd, int wakeFd) : fd_(fd), wakeFd_(wakeFd) {}

    // How long the next read may wait for its first byte; negative waits without end.
    void setReadTimeout(std::chrono::milliseconds timeout) { readTimeout_ = timeout; }
    // Reads that follow one which returned bytes wait this long instead.
    void setReadTimeoutAfterData(std::chrono::milliseconds timeout) { afterData_ = timeout; }

    template <class MutableBuffers>
    std::size_t read_some(const MutableBuffers& buffers, boost::beast::error_code& error) {
        for (auto it = boost::asio::buffer_sequence_begin(buffers); it != boost::asio::buffer_sequence_end(buffers);
             ++it) {
            const boost::asio::mutable_buffer buffer = *it;
            if (buffer.size() > 0) return readInto(buffer.data(), buffer.size(), error);
        }
        error = {};
        return 0;
    }

    template <class ConstBuffers>
    std::size_t write_some(const ConstBuffers& buffers, boost::beast::error_code& error) {
        std::array<iovec, 16> pieces{};
        std::size_t count = 0;
        for (auto it = boost::asio::buffer_sequence_begin(buffers);
             it != boost::asio::buffer_sequence_end(buffers) && count < pieces.size(); ++it) {
            const boost::asio::const_buffer buffer = *it;
            if (buffer.size() == 0) continue;
            pieces[count++] = iovec{const_cast<void*>(buffer.data()), buffer.size()};
        }
        return writeFrom(pieces.data(), count, error);
    }

    template <class MutableBuffers>
    std::size_t read_some(const MutableBuffers& buffers) {
        boost::beast::error_code error;
        const std::size_t count = read_some(buffers, error);
        if (error) throw boost::system::system_error(error);
        return count;
    }

    template <class ConstBuffers>
    std::size_t write_some(const ConstBuffers& buffers) {
        boost::beast::error_code error;
        const std::size_t count = write_some(buffers, error);
        if (error) throw boost::system::system_error(error);
        return count;
    }

    // Waits up to the read timeout until the descriptor is readable (a listening one: a connection
    // is waiting); false with `error` set on timeout, wake or failure.
    bool waitForReadable(boost::beast::error_code& error) { return waitFor(POLLIN, readTimeout_, error); }

private:
    std::size_t readInto(void* data, std::size_t size, boost::beast::error_code& error);
    std::size_t writeFrom(const iovec* pieces, std::size_t count, boost::beast::error_code& error);
    // Waits until `fd_` is ready for `events`; false with `error` set on timeout, wake or failure.
    bool waitFor(short events, std::chrono::milliseconds timeout, boost::beast::error_code& error);

    const int fd_;
    const int wakeFd_;
    std::chrono::milliseconds readTimeout_{-1};
    std::chrono::milliseconds afterData_{-1};
};

}  // namespace qlm_test
