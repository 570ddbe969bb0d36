#pragma once

#include "allocations/Operators.hpp"

#include <cstddef>
#include <utility>

namespace agent::orvi::test {

/// While it lives, its thread is left alone by what lets others fail. For what a test itself does.
class SparedThread {
public:
    SparedThread() noexcept = default;

    ~SparedThread() { ThreadAllocations::ofThisThread().exempt = before; }

    SparedThread(const SparedThread&) = delete;
    SparedThread& operator=(const SparedThread&) = delete;

private:
    const bool before = std::exchange(ThreadAllocations::ofThisThread().exempt, true);
};

/// While it lives, lets one allocation of any other thread fail that this program's own code has
/// asked for, the library that is linked into it included. Those that shared libraries ask for
/// themselves are left alone: gRPC ends a process that has no memory. One at a time.
class FailingElsewhere {
public:
    /// @param number which allocation fails: 1 is the first; 0 for none.
    explicit FailingElsewhere(std::size_t number) noexcept { failElsewhere(number); }

    ~FailingElsewhere() { failElsewhere(0); }

    FailingElsewhere(const FailingElsewhere&) = delete;
    FailingElsewhere& operator=(const FailingElsewhere&) = delete;

    /// Say whether there was such an allocation, so that it has failed.
    bool happened() const noexcept { return untilFailureElsewhere == 0; }

private:
    const SparedThread here;
};

} // namespace agent::orvi::test
