#pragma once
// Log capture takes descriptors 1 and 2 of its process, so its tests run in a child process of
// their own and stand a console of their own behind those descriptors first.
#include <gtest/gtest.h>

#include <chrono>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "tests/support/ChildProcess.h"

namespace qlm_test {

// A console behind descriptor `fd` (1 or 2): a pipe whose every byte a thread keeps reading, so
// writers never block on it. The destructor puts the descriptor back as it was.
class Console {
public:
    explicit Console(int fd);
    ~Console();
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    // Every byte the console has received so far.
    std::string text() const;
    // Runs the main run loop (which delivers the captured pieces) until the console has received
    // `expected` somewhere in its text.
    bool waitFor(std::string_view expected,
                 std::chrono::milliseconds timeout = std::chrono::milliseconds(8000));
    // Whether `fd` writes into this console's pipe, directly.
    bool isBehind(int fd) const;
    // A console that stops reading, as a terminal's reader that hangs, and one that goes on again.
    void pause();
    void resume();

private:
    void readLoop();
    bool paused() const;

    const int fd_;
    int saved_ = -1;
    int reading_ = -1;
    int stop_ = -1;  // an eventfd that ends the reader
    std::thread reader_;

    mutable std::mutex mutex_;
    std::string text_;    // guarded by mutex_
    bool paused_ = false;  // guarded by mutex_
};

}  // namespace qlm_test
