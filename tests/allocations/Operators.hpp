#pragma once

#include <atomic>
#include <cstddef>
#include <limits>

/// The global operators of a program that looks at its allocations. Link Operators.cpp, which
/// replaces them, and use the classes of this folder.
namespace agent::orvi::test {

/// What the operators know of the allocations of a thread, and what they do with them.
struct ThreadAllocations {
    std::size_t count = 0;
    std::size_t largest = 0;
    std::size_t limit = std::numeric_limits<std::size_t>::max(); ///< What is larger fails.
    std::size_t untilFailure = 0;                                ///< 1: the next one; 0: none.
    bool exempt = false; ///< What is to fail on other threads leaves this one alone.

    static ThreadAllocations& ofThisThread() noexcept;
};

/// The largest allocation of any thread.
extern std::atomic<std::size_t> largestOfProcess;

/// Which allocation of this program's own code fails, on threads that are not exempt. 1: the next
/// one; 0: none.
extern std::atomic<std::size_t> untilFailureElsewhere;

/// Set it.
void failElsewhere(std::size_t number) noexcept;

} // namespace agent::orvi::test
