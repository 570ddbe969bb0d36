#pragma once

#include <cstddef>

namespace agent::orvi::fuzz {

/// While it lives, its thread is on a machine that has no more than some bytes in one piece:
/// operator new throws std::bad_alloc for more. Link SmallMachine.cpp, which replaces the global
/// operators.
class SmallMachine {
public:
    static constexpr std::size_t largestPiece = std::size_t{1} << 20;

    SmallMachine() noexcept;
    ~SmallMachine();

    SmallMachine(const SmallMachine&) = delete;
    SmallMachine& operator=(const SmallMachine&) = delete;
};

} // namespace agent::orvi::fuzz
