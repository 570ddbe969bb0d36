#include "properties/SmallMachine.hpp"

#include <cstdlib>
#include <new>

namespace {

thread_local bool small = false;

} // namespace

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    const bool fits = !small || size <= agent::orvi::fuzz::SmallMachine::largestPiece;
    return fits ? std::malloc(size == 0 ? 1 : size) : nullptr;
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

namespace agent::orvi::fuzz {

SmallMachine::SmallMachine() noexcept {
    small = true;
}

SmallMachine::~SmallMachine() {
    small = false;
}

} // namespace agent::orvi::fuzz
