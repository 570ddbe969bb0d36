#pragma once

#include <cstddef>

namespace agent::orvi::remoting::details::test {

/// Watches the calls of the global operator new that this thread makes while the object lives.
///
/// Link LargestAllocation.cpp, which replaces the global operators.
class LargestAllocation {
public:
    LargestAllocation() noexcept;

    /// Return the size of the largest one, in bytes.
    std::size_t size() const noexcept;
};

} // namespace agent::orvi::remoting::details::test
