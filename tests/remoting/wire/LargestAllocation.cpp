#include "remoting/wire/LargestAllocation.hpp"

#include "wire/Messages.hpp"

#include <algorithm>
#include <cstdlib>
#include <new>

namespace {

thread_local std::size_t largest = 0;

} // namespace

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    largest = std::max(largest, size);
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

namespace agent::orvi::remoting::details::test {

LargestAllocation::LargestAllocation() noexcept {
    v1::Frame::descriptor(); // made once, with the first message that is read
    largest = 0;
}

std::size_t LargestAllocation::size() const noexcept {
    return largest;
}

} // namespace agent::orvi::remoting::details::test
