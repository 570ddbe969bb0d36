#pragma once

#include "allocations/Operators.hpp"

namespace agent::orvi::test {

/// Watches the allocations of all threads of the process while it lives. One at a time.
class ProcessAllocations {
public:
    ProcessAllocations() noexcept { largestOfProcess = 0; }

    /// Return the size of the largest one, in bytes.
    std::size_t largest() const noexcept { return largestOfProcess; }
};

} // namespace agent::orvi::test
