#include "engine/AtomicBool.h"

namespace quillmere {

bool AtomicBool::value() const {
    lock_.wait();
    const bool value = value_;
    lock_.signal();
    return value;
}

void AtomicBool::setValue(bool value) {
    lock_.wait();
    value_ = value;
    lock_.signal();
}

bool AtomicBool::compareAndSet(bool expect, bool update) {
    lock_.wait();
    const bool matched = value_ == expect;
    if (matched) value_ = update;
    lock_.signal();
    return matched;
}

}  // namespace quillmere
