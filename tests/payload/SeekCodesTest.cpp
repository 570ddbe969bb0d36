#include "payload/SeekCodes.hpp"

#include <gtest/gtest.h>

#include <limits>

namespace agent::orvi::streambuf::details {
namespace {

constexpr int smallest = std::numeric_limits<int>::min();
constexpr int largest = std::numeric_limits<int>::max();

TEST(SeekCodesTest, EncodeDirections) {
    EXPECT_EQ(encodeDirection(std::ios_base::beg), 1);
    EXPECT_EQ(encodeDirection(std::ios_base::end), 2);
    EXPECT_EQ(encodeDirection(std::ios_base::cur), 0);
    for (const int unknown : {-1, 3, 7, smallest, largest}) {
        EXPECT_EQ(encodeDirection(unknown), 0) << unknown;
    }
}

TEST(SeekCodesTest, DecodeDirections) {
    EXPECT_EQ(decodeDirection(1), std::ios_base::beg);
    EXPECT_EQ(decodeDirection(2), std::ios_base::end);
    for (const int other : {0, -1, 3, 7, smallest, largest}) {
        EXPECT_EQ(decodeDirection(other), std::ios_base::cur) << other;
    }
}

TEST(SeekCodesTest, EncodeModes) {
    EXPECT_EQ(encodeMode(std::ios_base::in), 1);
    EXPECT_EQ(encodeMode(std::ios_base::out), 2);
    EXPECT_EQ(encodeMode(std::ios_base::in | std::ios_base::out), 0);
    for (const int other :
         {0, static_cast<int>(std::ios_base::in | std::ios_base::binary),
          static_cast<int>(std::ios_base::out | std::ios_base::app),
          static_cast<int>(std::ios_base::in | std::ios_base::out | std::ios_base::ate), -1,
          1 << 20, smallest, largest}) {
        EXPECT_EQ(encodeMode(other), 0) << other;
    }
}

TEST(SeekCodesTest, DecodeModes) {
    EXPECT_EQ(decodeMode(1), std::ios_base::in);
    EXPECT_EQ(decodeMode(2), std::ios_base::out);
    for (const int other : {0, -3, 3, 8, 16, smallest, largest}) {
        EXPECT_EQ(decodeMode(other), std::ios_base::in | std::ios_base::out) << other;
    }
}

} // namespace
} // namespace agent::orvi::streambuf::details
