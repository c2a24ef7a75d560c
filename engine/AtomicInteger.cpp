#include "engine/AtomicInteger.h"

namespace quillmere {

int64_t AtomicInteger::value() const {
    lock_.wait();
    const int64_t value = value_;
    lock_.signal();
    return value;
}

void AtomicInteger::setValue(int64_t value) {
    lock_.wait();
    value_ = value;
    lock_.signal();
}

int64_t AtomicInteger::decrementAndGet() {
    lock_.wait();
    const int64_t value = --value_;
    lock_.signal();
    return value;
}

int64_t AtomicInteger::getAndIncrement() {
    lock_.wait();
    const int64_t value = value_++;
    lock_.signal();
    return value;
}

}  // namespace quillmere
