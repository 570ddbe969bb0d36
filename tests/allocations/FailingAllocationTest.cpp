#include "allocations/FailingAllocation.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <vector>

namespace agent::orvi::test {
namespace {

TEST(FailingAllocationTest, FailsEachOnceUntilNoneIsLeft) {
    std::vector<int> reached;
    const std::size_t failures = failEachAllocation([&](FailingAllocation& failure) {
        int made = 0;
        const bool done = failure.allows([&] {
            for (; made < 3; ++made) {
                auto kept = std::make_unique<int>(made);
            }
        });
        EXPECT_EQ(done, !failure.happened());
        reached.push_back(made);
    });
    EXPECT_EQ(failures, reached.size() - 1);
    EXPECT_EQ(reached.front(), 0);
    EXPECT_EQ(reached.back(), 3);
}

TEST(FailingAllocationTest, KnowsOfAFailureThatTheOperationHides) {
    FailingAllocation failure(1);
    const bool done = failure.allows([] {
        try {
            const std::vector<int> numbers(10);
        } catch (const std::bad_alloc&) {
            // This is what it hides.
        }
    });
    EXPECT_TRUE(done);
    EXPECT_TRUE(failure.happened());
}

TEST(FailingAllocationTest, FailsNothingOutsideOfTheOperation) {
    FailingAllocation failure(1);
    EXPECT_TRUE(failure.allows([] {}));
    const std::vector<int> numbers(10);
    EXPECT_FALSE(failure.happened());
}

TEST(FailingAllocationTest, LetsOtherErrorsPass) {
    FailingAllocation failure(100);
    EXPECT_THROW(failure.allows([] { throw std::logic_error("other"); }), std::logic_error);
}

} // namespace
} // namespace agent::orvi::test
