#include "payload/AllocationCounter.hpp"

#include <cstdlib>
#include <limits>
#include <new>
#include <utility>

namespace {

thread_local std::size_t allocations = 0;
thread_local bool failNext = false;

} // namespace

void* operator new(std::size_t size) {
    ++allocations;
    // Some allocators end the program when they are asked for the impossible.
    constexpr std::size_t impossible = std::numeric_limits<std::size_t>::max() / 8;
    if (size > impossible || std::exchange(failNext, false)) {
        throw std::bad_alloc();
    }
    if (void* memory = std::malloc(size == 0 ? 1 : size)) {
        return memory;
    }
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace agent::orvi::streambuf::test {

AllocationCounter::AllocationCounter() noexcept
    : before(allocations) {}

std::size_t AllocationCounter::count() const noexcept {
    return allocations - before;
}

void failNextAllocation() noexcept {
    failNext = true;
}

} // namespace agent::orvi::streambuf::test
