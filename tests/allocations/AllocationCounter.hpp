#pragma once

#include "allocations/Operators.hpp"

namespace agent::orvi::test {

/// Counts the allocations of its thread while it lives.
class AllocationCounter {
public:
    std::size_t count() const noexcept { return ThreadAllocations::ofThisThread().count - before; }

private:
    const std::size_t before = ThreadAllocations::ofThisThread().count;
};

} // namespace agent::orvi::test
