#include "payload/FlagArray.hpp"

#include "support/ThrowsExactly.hpp"

#include <gtest/gtest.h>

#include <cstddef>
#include <limits>
#include <stdexcept>

namespace agent::orvi::core::detail {
namespace {

using streambuf::test::throwsExactly;

bool patternAt(std::size_t index) {
    return index % 3 == 0 || index % 64 == 63;
}

FlagArray patternOf(std::size_t count) {
    FlagArray flags;
    for (std::size_t index = 0; index < count; ++index) {
        flags.push_back(patternAt(index));
    }
    return flags;
}

TEST(FlagArrayTest, KeepsEveryFlagAcrossItsWords) {
    for (const std::size_t count : {1u, 63u, 64u, 65u, 127u, 128u, 129u, 200u}) {
        const FlagArray flags = patternOf(count);
        for (std::size_t index = 0; index < count; ++index) {
            EXPECT_EQ(flags.at(index), patternAt(index)) << index << " of " << count;
        }
    }
}

TEST(FlagArrayTest, RefusesASubscriptAtOrPastItsEnd) {
    for (const std::size_t count : {0u, 1u, 63u, 64u, 65u, 128u}) {
        const FlagArray flags = patternOf(count);
        for (const std::size_t index :
             {count, count + 1, std::numeric_limits<std::size_t>::max()}) {
            EXPECT_THAT(
                [&] { flags.at(index); },
                throwsExactly<std::out_of_range>("invalid vector<bool> subscript"))
                << index << " of " << count;
        }
    }
}

TEST(FlagArrayTest, IsEmptyAfterClearAndCanBeFilledAgain) {
    FlagArray flags = patternOf(100);
    flags.clear();
    EXPECT_THAT(
        [&] { flags.at(0); }, throwsExactly<std::out_of_range>("invalid vector<bool> subscript"));
    flags.push_back(false);
    flags.push_back(true);
    EXPECT_FALSE(flags.at(0));
    EXPECT_TRUE(flags.at(1));
}

} // namespace
} // namespace agent::orvi::core::detail
