#pragma once
// One standard stream's way through log capture: a pipe for descriptor 1 or 2 to write into, and a
// thread of the drain's own that reads the pipe as fast as the host fills it. Each piece read goes
// on at once, byte for byte, to a copy of where the descriptor pointed before, and then to the
// capture callback. The host's writers therefore see a plain pipe that never stays full longer
// than their console would, and no thread of the host's does any of the drain's work.
//
// Threads: make, start and finish on one thread (the one that starts and stops log capture). The
// callback runs on the drain's thread, one piece at a time, in the order read. The drain owns the
// pipe, the copy of the destination and the thread; all three are gone once finish() saw the
// thread end.
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string_view>
#include <thread>

#include "platform/foundation/NSPipe.h"

namespace quillmere {

class LogDrain {
public:
    // Called with each piece read. Must not throw.
    using Piece = std::function<void(std::string_view piece)>;

    // A drain forwarding to a copy of `destination` (1 or 2, taken now). Null when the copy or the
    // pipe cannot be made, or when either would take one of descriptors 0 to 2 (which the host has
    // closed): the host would then find a descriptor of ours where it left none.
    static std::unique_ptr<LogDrain> make(int destination, Piece piece);

    // Ends the thread unless finish() did; past the patience finish() allows, the thread runs on
    // alone, without capturing, until the pipe ends.
    ~LogDrain();
    LogDrain(const LogDrain&) = delete;
    LogDrain& operator=(const LogDrain&) = delete;

    // The pipe's writing end, to put behind descriptor 1 or 2 once start() returned true.
    int inputDescriptor() const;
    // Starts the thread; false when it cannot be started. Call once.
    bool start();
    // Call once the descriptor no longer writes into the pipe. Closes the drain's own writing end,
    // so the thread reads what is left up to the end of the pipe (when every writer, host threads
    // mid-write included, has let go) and ends, releasing the descriptors. Waits for that up to
    // `deadline`; should the pipe not end by then (a console that stopped reading, a copy of the
    // writing end held elsewhere), the thread is left to forward alone, capturing nothing more,
    // and ends by itself with the pipe.
    void finish(std::chrono::steady_clock::time_point deadline);

private:
    struct Channel;
    explicit LogDrain(std::shared_ptr<Channel> channel);
    static void drain(const std::shared_ptr<Channel>& channel);

    const std::shared_ptr<Channel> channel_;  // shared with the thread, which outlives the drain when left alone
    // Confined to the thread that starts and finishes.
    std::thread thread_;
    bool started_ = false;
};

}  // namespace quillmere
