#pragma once

#include "allocations/Operators.hpp"

#include <limits>

namespace agent::orvi::test {

/// While it lives, its thread is on a machine that has no more than some bytes in one piece.
class SmallMachine {
public:
    static constexpr std::size_t largestPiece = std::size_t{1} << 20;

    SmallMachine() noexcept { ThreadAllocations::ofThisThread().limit = largestPiece; }

    ~SmallMachine() {
        ThreadAllocations::ofThisThread().limit = std::numeric_limits<std::size_t>::max();
    }

    SmallMachine(const SmallMachine&) = delete;
    SmallMachine& operator=(const SmallMachine&) = delete;
};

} // namespace agent::orvi::test
