#pragma once
// A signed 64-bit counter whose every access is one step under a semaphore of count 1. Any thread.
#include <cstdint>

#include "platform/dispatch/DispatchSemaphore.h"

namespace quillmere {

class AtomicInteger {
public:
    explicit AtomicInteger(int64_t value = 0) : value_(value) {}
    AtomicInteger(const AtomicInteger&) = delete;
    AtomicInteger& operator=(const AtomicInteger&) = delete;

    int64_t value() const;
    void setValue(int64_t value);
    int64_t decrementAndGet();
    int64_t getAndIncrement();

private:
    mutable platform::DispatchSemaphore lock_{1};
    int64_t value_;  // guarded by lock_
};

}  // namespace quillmere
