#pragma once
// Allocation failures on demand: this header replaces the global operator new and delete of the
// test program that includes it, in exactly one of its source files. With no fault asked for,
// allocation is plain malloc and free.
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace qlm_test {

struct AllocationFaults {
    // Allocations of at least this many bytes throw std::bad_alloc, on every thread; 0 for none.
    static inline std::atomic<std::size_t> failFromSize{0};
    // On this thread, the failNth-th allocation from now (1: the next) throws; 0 for none.
    static inline thread_local std::size_t failNth = 0;
    // On this thread, allocations are counted in `counted` while `counting` is true.
    static inline thread_local bool counting = false;
    static inline thread_local std::size_t counted = 0;
};

}  // namespace qlm_test

// Kept out of line: inlined into a caller, free() on what operator new returned reads as a
// mismatched pair to the compiler.
#define QLM_ALLOCATION_REPLACEMENT __attribute__((noinline))

QLM_ALLOCATION_REPLACEMENT void* operator new(std::size_t size) {
    using Faults = qlm_test::AllocationFaults;
    const std::size_t limit = Faults::failFromSize.load(std::memory_order_relaxed);
    if (limit != 0 && size >= limit) throw std::bad_alloc();
    if (Faults::failNth != 0 && --Faults::failNth == 0) throw std::bad_alloc();
    if (Faults::counting) ++Faults::counted;
    if (void* p = std::malloc(size == 0 ? 1 : size)) return p;
    throw std::bad_alloc();
}
QLM_ALLOCATION_REPLACEMENT void* operator new[](std::size_t size) {
    return ::operator new(size);
}
QLM_ALLOCATION_REPLACEMENT void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return std::malloc(size == 0 ? 1 : size);
}
QLM_ALLOCATION_REPLACEMENT void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return std::malloc(size == 0 ? 1 : size);
}
QLM_ALLOCATION_REPLACEMENT void operator delete(void* p) noexcept {
    std::free(p);
}
QLM_ALLOCATION_REPLACEMENT void operator delete[](void* p) noexcept {
    std::free(p);
}
QLM_ALLOCATION_REPLACEMENT void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}
QLM_ALLOCATION_REPLACEMENT void operator delete[](void* p, std::size_t) noexcept {
    std::free(p);
}
QLM_ALLOCATION_REPLACEMENT void operator delete(void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}
QLM_ALLOCATION_REPLACEMENT void operator delete[](void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}
