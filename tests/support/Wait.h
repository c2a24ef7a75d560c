#pragma once
// Waiting for a condition with a deadline, instead of sleeping for a guessed time.
#include <chrono>
#include <functional>

namespace qlm_test {

// Polls `condition` until it holds or `timeout` passes; gives its last value.
bool waitUntil(const std::function<bool()>& condition,
               std::chrono::milliseconds timeout = std::chrono::milliseconds(5000));

// As waitUntil, running the main run loop between polls; call on the main thread.
bool runMainLoopUntil(const std::function<bool()>& condition,
                      std::chrono::milliseconds timeout = std::chrono::milliseconds(5000));

}  // namespace qlm_test
