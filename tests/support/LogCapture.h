#pragma once
// Captures what the process writes to descriptor 2 while it lives, as NSLog's diagnostics are read
// back. A thread drains the pipe so writers never block; readers of the lines drain it too, so they
// see every line written before their call. The destructor restores descriptor 2 and
// passes on to it every line that was not a library diagnostic, so sanitizer reports stay visible.
#include <cstddef>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace qlm_test {

class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    // The library's diagnostics so far, each from "Quillmere: " on, in the order written.
    std::vector<std::string> lines() const;
    // How many diagnostics equal `line` exactly.
    std::size_t count(std::string_view line) const;

private:
    void readLoop();
    // Reads what the pipe holds now; call with mutex_ held, so a caller that finds the pipe empty
    // knows every line written before its call has been taken.
    void drainLocked() const;
    void restore();

    int pipe_[2] = {-1, -1};
    int saved_ = -1;
    std::thread reader_;

    mutable std::mutex mutex_;
    // Filled by whoever drains, readers of the lines included.
    mutable std::string pending_;             // guarded by mutex_; an unfinished last line
    mutable std::vector<std::string> lines_;  // guarded by mutex_; diagnostics
    mutable std::string passOn_;              // guarded by mutex_; everything else
    mutable bool ended_ = false;              // guarded by mutex_; the pipe has no writer left
    bool restored_ = false;                   // guarded by mutex_; descriptor 2 is back
};

}  // namespace qlm_test
