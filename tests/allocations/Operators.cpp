#include "allocations/Operators.hpp"

#include <algorithm>
#include <cstdlib>
#include <new>

namespace agent::orvi::test {

constinit std::atomic<std::size_t> largestOfProcess{0};

ThreadAllocations& ThreadAllocations::ofThisThread() noexcept {
    static constinit thread_local ThreadAllocations allocations;
    return allocations;
}

namespace {

void* allocate(std::size_t size) noexcept {
    ThreadAllocations& allocations = ThreadAllocations::ofThisThread();
    ++allocations.count;
    allocations.largest = std::max(allocations.largest, size);
    std::size_t largest = largestOfProcess.load(std::memory_order_relaxed);
    while (size > largest && !largestOfProcess.compare_exchange_weak(largest, size)) {
    }
    // Some allocators end the program when they are asked for the impossible.
    constexpr std::size_t impossible = std::numeric_limits<std::size_t>::max() / 8;
    const bool chosen = allocations.untilFailure > 0 && --allocations.untilFailure == 0;
    if (chosen || size > std::min(allocations.limit, impossible)) {
        return nullptr;
    }
    return std::malloc(size == 0 ? 1 : size);
}

void* allocateOrThrow(std::size_t size) {
    if (void* memory = allocate(size)) {
        return memory;
    }
    throw std::bad_alloc();
}

} // namespace
} // namespace agent::orvi::test

void* operator new(std::size_t size) {
    return agent::orvi::test::allocateOrThrow(size);
}

void* operator new[](std::size_t size) {
    return agent::orvi::test::allocateOrThrow(size);
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return agent::orvi::test::allocate(size);
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return agent::orvi::test::allocate(size);
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete[](void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}

void operator delete(void* memory, const std::nothrow_t&) noexcept {
    std::free(memory);
}

void operator delete[](void* memory, const std::nothrow_t&) noexcept {
    std::free(memory);
}
