#include "tests/support/Wait.h"

#include <thread>

#include "platform/foundation/NSRunLoop.h"

namespace qlm_test {

bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) return condition();
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

bool runMainLoopUntil(const std::function<bool()>& condition, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) return condition();
        platform::CFRunLoopRunInMode(0.01, false);
    }
    return true;
}

}  // namespace qlm_test
