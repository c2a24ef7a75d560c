#pragma once
// What one run of a scenario observed, as lines in the order they were written. Any thread may
// add; the runner reads it once the scenario has returned.
#include <mutex>
#include <string>
#include <vector>

namespace qlm_test {

class Transcript {
public:
    void add(std::string line);
    std::vector<std::string> lines() const;

    // One line per line; false when the file can't be written.
    bool save(const std::string& path) const;
    // Empty when the file can't be read.
    static std::vector<std::string> load(const std::string& path);

private:
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;  // guarded by mutex_
};

}  // namespace qlm_test
