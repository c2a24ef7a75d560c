#include "tests/support/ProcessResources.h"

#include <dirent.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

namespace qlm_test {

namespace {

std::size_t entriesIn(const char* folder) {
    DIR* dir = ::opendir(folder);
    if (!dir) return 0;
    std::size_t count = 0;
    while (const dirent* entry = ::readdir(dir)) {
        if (entry->d_name[0] != '.') ++count;
    }
    ::closedir(dir);
    return count;
}

}  // namespace

ProcessResources ProcessResources::now() {
    ProcessResources resources;
    // The listing's own descriptor is counted while it reads.
    resources.descriptors = entriesIn("/proc/self/fd") - 1;
    resources.threads = entriesIn("/proc/self/task");
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        std::istringstream fields(line);
        std::string name;
        std::size_t kib = 0;
        fields >> name >> kib;
        if (name == "VmRSS:") resources.residentKiB = kib;
        if (name == "VmHWM:") resources.peakResidentKiB = kib;
    }
    return resources;
}

std::string ProcessResources::descriptorList() {
    std::string list;
    DIR* dir = ::opendir("/proc/self/fd");
    if (!dir) return list;
    std::size_t listed = 0;
    while (const dirent* entry = ::readdir(dir)) {
        if (entry->d_name[0] == '.') continue;
        if (++listed > 40) {
            list += "...";
            break;
        }
        char target[256] = {};
        const std::string path = std::string("/proc/self/fd/") + entry->d_name;
        const ssize_t length = ::readlink(path.c_str(), target, sizeof target - 1);
        list += std::string(entry->d_name) + "=" + (length > 0 ? std::string(target, length) : "?") + " ";
    }
    ::closedir(dir);
    return list;
}

std::string ProcessResources::describe() const {
    return std::to_string(descriptors) + " descriptors, " + std::to_string(threads) + " threads, " +
           std::to_string(residentKiB / 1024) + " MiB resident (peak " +
           std::to_string(peakResidentKiB / 1024) + " MiB)";
}

}  // namespace qlm_test
