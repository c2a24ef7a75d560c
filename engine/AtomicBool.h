#pragma once
// A boolean whose every access is one step under a semaphore of count 1. Any thread.
#include "platform/dispatch/DispatchSemaphore.h"

namespace quillmere {

class AtomicBool {
public:
    explicit AtomicBool(bool value = false) : value_(value) {}
    AtomicBool(const AtomicBool&) = delete;
    AtomicBool& operator=(const AtomicBool&) = delete;

    bool value() const;
    void setValue(bool value);
    // Sets `update` and gives true when the value was `expect`; else changes nothing, gives false.
    bool compareAndSet(bool expect, bool update);

private:
    mutable platform::DispatchSemaphore lock_{1};
    bool value_;  // guarded by lock_
};

}  // namespace quillmere
