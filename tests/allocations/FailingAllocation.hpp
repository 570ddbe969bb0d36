#pragma once

#include "allocations/Operators.hpp"

#include <cstddef>
#include <functional>
#include <new>
#include <stdexcept>
#include <utility>

namespace agent::orvi::test {

/// Lets one allocation of an operation fail. Only what the operation allocates on the calling
/// thread counts, and only while it runs.
///
/// Thread safety: single-thread.
class FailingAllocation {
public:
    /// @param number which allocation fails: 1 is the first.
    explicit FailingAllocation(std::size_t number) noexcept
        : number(number) {}

    /// Run an operation.
    ///
    /// @return whether it has run to its end; false when it has thrown `std::bad_alloc`. Anything
    ///         else that it throws passes.
    bool allows(const std::function<void()>& operation) {
        const Armed armed(*this);
        try {
            operation();
        } catch (const std::bad_alloc&) {
            return false;
        }
        return true;
    }

    /// Say whether there was such an allocation, so that it has failed.
    bool happened() const noexcept { return failed; }

private:
    struct Armed {
        explicit Armed(FailingAllocation& failure) noexcept
            : failure(failure) {
            ThreadAllocations::ofThisThread().untilFailure = failure.number;
        }

        ~Armed() {
            failure.failed = std::exchange(ThreadAllocations::ofThisThread().untilFailure, 0) == 0;
        }

        FailingAllocation& failure;
    };

    std::size_t number;
    bool failed = false;
};

/// Make an attempt with the first allocation failing, with the second, ... until there is none left
/// to fail. The last attempt is one in which nothing fails.
///
/// An attempt prepares what it needs, passes what is tested to `FailingAllocation::allows`, once,
/// and looks at what came of it.
///
/// @return how many allocations have failed.
template <class Attempt>
std::size_t failEachAllocation(const Attempt& attempt) {
    constexpr std::size_t tooMany = 100'000;
    for (std::size_t number = 1; number < tooMany; ++number) {
        FailingAllocation failure(number);
        attempt(failure);
        if (!failure.happened()) {
            return number - 1;
        }
    }
    throw std::runtime_error("The operation allocates without an end.");
}

/// Let the next allocation of the calling thread fail.
inline void failNextAllocation() noexcept {
    ThreadAllocations::ofThisThread().untilFailure = 1;
}

} // namespace agent::orvi::test
