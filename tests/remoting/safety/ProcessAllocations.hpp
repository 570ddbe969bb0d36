#pragma once

#include <cstddef>

namespace agent::orvi::remoting::test {

/// Watches the calls of the global operator new that any thread of the process makes while the
/// object lives. One at a time.
///
/// Link ProcessAllocations.cpp, which replaces the global operators.
class ProcessAllocations {
public:
    ProcessAllocations() noexcept;

    /// Return the size of the largest one, in bytes.
    std::size_t largest() const noexcept;
};

/// Return how much memory the process has in use, in bytes. What it could give back to the system
/// is given back before.
std::size_t memoryInUse();

} // namespace agent::orvi::remoting::test
