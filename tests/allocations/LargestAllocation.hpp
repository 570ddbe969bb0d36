#pragma once

#include "allocations/Operators.hpp"

namespace agent::orvi::test {

/// Watches the allocations of its thread while it lives. One at a time.
class LargestAllocation {
public:
    LargestAllocation() noexcept { ThreadAllocations::ofThisThread().largest = 0; }

    /// Return the size of the largest one, in bytes.
    std::size_t size() const noexcept { return ThreadAllocations::ofThisThread().largest; }
};

} // namespace agent::orvi::test
