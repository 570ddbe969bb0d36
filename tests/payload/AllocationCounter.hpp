#pragma once

#include <cstddef>

namespace agent::orvi::streambuf::test {

/// Counts the calls of the global operator new that this thread makes while the counter lives.
///
/// Link AllocationCounter.cpp, which replaces the global operators.
class AllocationCounter {
public:
    AllocationCounter() noexcept;

    std::size_t count() const noexcept;

private:
    std::size_t before;
};

/// Let the next call of the global operator new on this thread throw `std::bad_alloc`.
void failNextAllocation() noexcept;

} // namespace agent::orvi::streambuf::test
