// What log capture costs a host that writes a lot to standard output: throughput with capture on
// and, as the same run's baseline, off; and the delay from a write until the console has it.
//
// The console is a pipe that descriptor 1 pointed at before the library started, drained by a
// thread of its own; a figure ends only when the console has received every byte. The library runs
// as a host runs it, started on the bench's own thread (log capture needs no run loop), uploading
// once a second to a loopback endpoint that reads each batch and throws it away. Standard error
// goes to /dev/null meanwhile.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "engine/Configuration.h"
#include "engine/Core.h"
#include "engine/Session.h"

namespace {

using quillmere::Configuration;
using quillmere::Core;
using Clock = std::chrono::steady_clock;

// An ingest endpoint that answers every POST with 200 and keeps nothing, so batches of hundreds of
// megabytes cost the library what sending them costs, and the bench no memory.
class DiscardingEndpoint {
public:
    DiscardingEndpoint() {
        listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        ::bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address);
        ::listen(listener_, 16);
        ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length);
        port_ = ntohs(address.sin_port);
        std::thread([this] { acceptLoop(); }).detach();
    }

    std::string url() const { return "http://127.0.0.1:" + std::to_string(port_) + "/i"; }

private:
    void acceptLoop() {
        for (;;) {
            const int connection = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
            if (connection < 0) continue;
            std::thread([connection] { serve(connection); }).detach();
        }
    }

    static void serve(int connection) {
        std::vector<char> buffer(1 << 20);
        std::string head;
        for (;;) {
            std::size_t end;
            while ((end = head.find("\r\n\r\n")) == std::string::npos) {
                const ssize_t n = ::read(connection, buffer.data(), buffer.size());
                if (n <= 0) return (void)::close(connection);
                head.append(buffer.data(), static_cast<std::size_t>(n));
            }
            std::size_t left = contentLength(head.substr(0, end));
            std::size_t extra = head.size() - (end + 4);
            head.erase(0, end + 4 + std::min(extra, left));
            left -= std::min(extra, left);
            while (left > 0) {
                const ssize_t n = ::read(connection, buffer.data(), std::min(left, buffer.size()));
                if (n <= 0) return (void)::close(connection);
                left -= static_cast<std::size_t>(n);
            }
            static const char kReply[] = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n";
            if (::write(connection, kReply, sizeof kReply - 1) < 0) return (void)::close(connection);
        }
    }

    static std::size_t contentLength(std::string head) {
        std::transform(head.begin(), head.end(), head.begin(),
                       [](unsigned char c) { return std::tolower(c); });
        const auto at = head.find("content-length:");
        return at == std::string::npos ? 0 : std::stoull(head.substr(at + 15));
    }

    int listener_ = -1;
    uint16_t port_ = 0;
};

DiscardingEndpoint& endpoint() {
    static auto* made = new DiscardingEndpoint();
    return *made;
}

// The console: a pipe whose reader counts what arrives.
class CountingConsole {
public:
    CountingConsole() {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0) std::abort();
        reading_ = ends[0];
        writing_ = ends[1];
        reader_ = std::thread([this] { readLoop(); });
    }
    ~CountingConsole() {
        stopping_.store(true);
        ::close(writing_);  // the library's copies may keep the pipe open: the reader polls
        reader_.join();
        ::close(reading_);
    }

    int writingEnd() const { return writing_; }
    uint64_t received() const { return received_.load(); }
    void waitFor(uint64_t total) const {
        for (uint64_t seen = received_.load(); seen < total; seen = received_.load()) received_.wait(seen);
    }

private:
    void readLoop() {
        std::vector<char> buffer(1 << 16);
        while (!stopping_.load()) {
            pollfd ready{reading_, POLLIN, 0};
            if (::poll(&ready, 1, 50) <= 0) continue;
            const ssize_t n = ::read(reading_, buffer.data(), buffer.size());
            if (n <= 0) continue;
            received_.fetch_add(static_cast<uint64_t>(n));
            received_.notify_all();
        }
    }

    int reading_ = -1;
    int writing_ = -1;
    std::atomic<bool> stopping_{false};
    std::atomic<uint64_t> received_{0};
    std::thread reader_;
};

// Descriptor 1 on a counting console, descriptor 2 on /dev/null and, with capture, a started Core.
// Everything is put back when the rig goes.
class Rig {
public:
    explicit Rig(bool capture) {
        std::cout.flush();
        std::fflush(stdout);
        std::fflush(stderr);
        savedOut_ = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
        savedErr_ = ::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
        ::dup2(console_.writingEnd(), STDOUT_FILENO);
        const int null = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
        ::dup2(null, STDERR_FILENO);
        ::close(null);
        // A host without capture has a buffered stdout; an earlier run with capture left it without.
        // (With a null buffer glibc would keep the one-byte buffer of an unbuffered stream.)
        static char streamBuffer[BUFSIZ];
        std::setvbuf(stdout, streamBuffer, _IOFBF, sizeof streamBuffer);
        if (!capture) return;
        auto configuration = std::make_shared<Configuration>("bench");
        configuration->setServerURL(endpoint().url());
        configuration->setViewScanningEnabled(false);
        configuration->setNetworkCaptureEnabled(false);
        core_ = Core::make(quillmere::Session::make("bench"), configuration);
        core_->start();
    }

    ~Rig() {
        if (core_) core_->shutdown();
        std::fflush(stdout);
        ::dup2(savedOut_, STDOUT_FILENO);
        ::dup2(savedErr_, STDERR_FILENO);
        ::close(savedOut_);
        ::close(savedErr_);
    }

    CountingConsole& console() { return console_; }
    // Events the capturing Core has made so far (its session's sequence); 0 without capture.
    int64_t events() const { return core_ ? core_->session()->seqID().value() : 0; }

private:
    CountingConsole console_;
    int savedOut_ = -1;
    int savedErr_ = -1;
    std::shared_ptr<Core> core_;
};

constexpr uint64_t kMegabyte = 1 << 20;

std::string lineOf(std::size_t length) {
    std::string line;
    while (line.size() + 1 < length) line += "GET /api/items?page=" + std::to_string(line.size()) + " 200 ";
    line.resize(length - 1);
    line += '\n';
    return line;
}

// range(0): bytes per write; range(1): capture on; range(2): megabytes per iteration; range(3):
// through the C stream (fwrite, as printf would) rather than write(2).
void BM_HostWrites(benchmark::State& state) {
    const auto chunk = static_cast<std::size_t>(state.range(0));
    const bool capture = state.range(1) != 0;
    const uint64_t total = static_cast<uint64_t>(state.range(2)) * kMegabyte;
    const bool throughStream = state.range(3) != 0;
    const std::string piece = chunk >= 1024 ? std::string(chunk - 1, 'x') + "\n" : lineOf(chunk);
    const uint64_t writes = (total + chunk - 1) / chunk;
    Rig rig(capture);
    uint64_t expected = rig.console().received();
    const int64_t eventsBefore = rig.events();
    for (auto _ : state) {
        for (uint64_t i = 0; i < writes; ++i) {
            if (throughStream) {
                std::fwrite(piece.data(), 1, piece.size(), stdout);
            } else if (::write(STDOUT_FILENO, piece.data(), piece.size()) !=
                       static_cast<ssize_t>(piece.size())) {
                state.SkipWithError("short write");
                return;
            }
        }
        if (throughStream) std::fflush(stdout);
        expected += writes * chunk;
        rig.console().waitFor(expected);
    }
    state.SetBytesProcessed(static_cast<int64_t>(writes * chunk * state.iterations()));
    if (capture) {
        // How the reads cut the stream: every piece is one event (a few others are the session's).
        const auto pieces = static_cast<double>(rig.events() - eventsBefore);
        state.counters["pieces"] = pieces;
        state.counters["bytes_per_piece"] = static_cast<double>(writes * chunk * state.iterations()) / pieces;
    }
    state.SetLabel(capture ? "capture on" : "capture off (baseline)");
}

// 4 KB writes and 80-byte lines, each without and with capture, interleaved so that both see the
// same machine.
BENCHMARK(BM_HostWrites)
    ->ArgNames({"bytes", "capture", "MB", "stdio"})
    ->Args({4096, 0, 100, 0})
    ->Args({4096, 1, 100, 0})
    ->Args({80, 0, 100, 0})
    ->Args({80, 1, 100, 0})
    ->Args({80, 0, 100, 1})
    ->Args({80, 1, 100, 1})
    ->Iterations(1)
    ->Repetitions(5)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond)
    ->ReportAggregatesOnly(true);

// One 64-byte line written, then the wait until the console has it; median and p99 of many.
void BM_WriteToConsoleDelay(benchmark::State& state) {
    const bool capture = state.range(0) != 0;
    const std::string line = lineOf(64);
    Rig rig(capture);
    uint64_t expected = rig.console().received();
    std::vector<double> microseconds;
    microseconds.reserve(static_cast<std::size_t>(state.max_iterations));
    for (auto _ : state) {
        const auto start = Clock::now();
        if (::write(STDOUT_FILENO, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
            state.SkipWithError("short write");
            return;
        }
        expected += line.size();
        rig.console().waitFor(expected);
        const double elapsed = std::chrono::duration<double, std::micro>(Clock::now() - start).count();
        state.SetIterationTime(elapsed / 1e6);
        microseconds.push_back(elapsed);
    }
    std::sort(microseconds.begin(), microseconds.end());
    state.counters["median_us"] = microseconds[microseconds.size() / 2];
    state.counters["p99_us"] = microseconds[microseconds.size() * 99 / 100];
    state.SetLabel(capture ? "capture on" : "capture off (baseline)");
}
BENCHMARK(BM_WriteToConsoleDelay)
    ->ArgName("capture")
    ->Arg(0)
    ->Arg(1)
    ->Iterations(5000)
    ->Repetitions(3)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond)
    ->ReportAggregatesOnly(true);

}  // namespace
