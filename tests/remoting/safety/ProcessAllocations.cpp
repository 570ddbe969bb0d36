#include "remoting/safety/ProcessAllocations.hpp"

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <new>

#include <malloc.h>
#include <unistd.h>

namespace {

std::atomic<std::size_t> largestSize{0};

} // namespace

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    std::size_t largest = largestSize.load(std::memory_order_relaxed);
    while (size > largest && !largestSize.compare_exchange_weak(largest, size)) {
    }
    return std::malloc(size == 0 ? 1 : size);
}

void* operator new(std::size_t size) {
    if (void* memory = operator new(size, std::nothrow)) {
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

namespace agent::orvi::remoting::test {

ProcessAllocations::ProcessAllocations() noexcept {
    largestSize = 0;
}

std::size_t ProcessAllocations::largest() const noexcept {
    return largestSize;
}

std::size_t memoryInUse() {
    ::malloc_trim(0);
    std::ifstream statistics("/proc/self/statm");
    std::size_t all = 0;
    std::size_t resident = 0;
    statistics >> all >> resident;
    return resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

} // namespace agent::orvi::remoting::test
