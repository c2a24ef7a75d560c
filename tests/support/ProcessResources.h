#pragma once
// What this process holds, as /proc/self tells it: for tests that a run of the library leaves the
// host no more descriptors, threads or memory than it found.
#include <cstddef>
#include <string>

namespace qlm_test {

struct ProcessResources {
    std::size_t descriptors = 0;
    std::size_t threads = 0;
    std::size_t residentKiB = 0;      // VmRSS
    std::size_t peakResidentKiB = 0;  // VmHWM: the most resident since the process began

    static ProcessResources now();
    std::string describe() const;
    // What the first forty open descriptors refer to, for a message.
    static std::string descriptorList();
};

}  // namespace qlm_test
