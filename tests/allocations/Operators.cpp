#include "allocations/Operators.hpp"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <new>

#include <dlfcn.h>
#include <execinfo.h>

namespace agent::orvi::test {

constinit std::atomic<std::size_t> largestOfProcess{0};
constinit std::atomic<std::size_t> untilFailureElsewhere{0};

ThreadAllocations& ThreadAllocations::ofThisThread() noexcept {
    static constinit thread_local ThreadAllocations allocations;
    return allocations;
}

namespace {

/// Return where the file begins of which a piece of code or data is.
const void* fileOf(const void* place) noexcept {
    Dl_info info{};
    return ::dladdr(place, &info) != 0 ? info.dli_fbase : nullptr;
}

/// Say whether it is this program that asks for memory, itself or by what the standard library
/// does for it.
bool isAskedForHere(const void* caller) noexcept {
    static const void* const program = fileOf(reinterpret_cast<const void*>(&fileOf));
    static const void* const standardLibrary = fileOf(::dlsym(RTLD_DEFAULT, "_ZSt9terminatev"));
    if (fileOf(caller) != standardLibrary) {
        return fileOf(caller) == program;
    }
    std::array<void*, 24> callers;
    const auto* const end =
        callers.begin() + ::backtrace(callers.data(), static_cast<int>(callers.size()));
    const auto* const first = std::find(callers.cbegin(), end, caller);
    const auto* const other = std::find_if(
        first, end, [](const void* place) { return fileOf(place) != standardLibrary; });
    return other != end && fileOf(*other) == program;
}

bool failsElsewhere(const void* caller) noexcept {
    if (untilFailureElsewhere.load(std::memory_order_relaxed) == 0 ||
        ThreadAllocations::ofThisThread().exempt || !isAskedForHere(caller)) {
        return false;
    }
    std::size_t left = untilFailureElsewhere;
    while (left != 0 && !untilFailureElsewhere.compare_exchange_weak(left, left - 1)) {
    }
    return left == 1;
}

void* allocate(std::size_t size, const void* caller) noexcept {
    ThreadAllocations& allocations = ThreadAllocations::ofThisThread();
    ++allocations.count;
    allocations.largest = std::max(allocations.largest, size);
    std::size_t largest = largestOfProcess.load(std::memory_order_relaxed);
    while (size > largest && !largestOfProcess.compare_exchange_weak(largest, size)) {
    }
    // Some allocators end the program when they are asked for the impossible.
    constexpr std::size_t impossible = std::numeric_limits<std::size_t>::max() / 8;
    const bool chosen =
        (allocations.untilFailure > 0 && --allocations.untilFailure == 0) || failsElsewhere(caller);
    if (chosen || size > std::min(allocations.limit, impossible)) {
        return nullptr;
    }
    return std::malloc(size == 0 ? 1 : size);
}

void* allocateOrThrow(std::size_t size, const void* caller) {
    if (void* memory = allocate(size, caller)) {
        return memory;
    }
    throw std::bad_alloc();
}

} // namespace

void failElsewhere(std::size_t number) noexcept {
    std::array<void*, 1> first;
    ::backtrace(first.data(), 1); // which allocates the first time
    untilFailureElsewhere = number;
}

} // namespace agent::orvi::test

void* operator new(std::size_t size) {
    return agent::orvi::test::allocateOrThrow(size, __builtin_return_address(0));
}

void* operator new[](std::size_t size) {
    return agent::orvi::test::allocateOrThrow(size, __builtin_return_address(0));
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return agent::orvi::test::allocate(size, __builtin_return_address(0));
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return agent::orvi::test::allocate(size, __builtin_return_address(0));
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
