#include "support/SparseDevice.hpp"
#include "support/StreamBuffers.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <iostream>
#include <string>

namespace agent::orvi::streambuf::test {
namespace {

using ::testing::ElementsAre;

constexpr std::int64_t gibibyte = std::int64_t{1} << 30;

TEST(SparseStreamTest, ReadsAcrossTheFourthGibibyte) {
    const SparseDevice device(6 * gibibyte);
    auto buffer = makeBuffer(inputOf(device), 4096);
    std::istream stream(&buffer);
    constexpr std::int64_t start = 4 * gibibyte - 10'000;

    stream.seekg(start);
    ASSERT_TRUE(stream);
    std::string text(20'000, '\0');
    stream.read(text.data(), 20'000);

    EXPECT_EQ(stream.gcount(), 20'000);
    EXPECT_EQ(text, sparseCharacters(start, 20'000));
    EXPECT_EQ(stream.tellg(), std::streampos(start + 20'480));
}

TEST(SparseStreamTest, SeeksFromTheEndAndFromTheCurrentPosition) {
    const SparseDevice device(6 * gibibyte + 5);
    auto buffer = makeBuffer(inputOf(device), 16);
    std::istream stream(&buffer);

    EXPECT_EQ(stream.seekg(-3, std::ios_base::end).tellg(), std::streampos(6 * gibibyte + 2));
    EXPECT_EQ(take(buffer, 10), sparseCharacters(6 * gibibyte + 2, 3));
    EXPECT_EQ(
        stream.seekg(-5 * gibibyte, std::ios_base::cur).tellg(), std::streampos(gibibyte + 5));
    EXPECT_EQ(take(buffer, 10), sparseCharacters(gibibyte + 5, 10));
    EXPECT_EQ(buffer.pubseekpos(5 * gibibyte + 1, std::ios_base::in), 5 * gibibyte + 1);
    EXPECT_EQ(take(buffer, 10), sparseCharacters(5 * gibibyte + 1, 10));
}

TEST(SparseStreamTest, ReadsCharacterByCharacterBeyondTheFourthGibibyte) {
    const SparseDevice device(std::int64_t{1} << 62);
    auto buffer = makeBuffer(inputOf(device), 3);
    constexpr std::int64_t start = (std::int64_t{1} << 61) + 12345;
    ASSERT_EQ(buffer.pubseekpos(start, std::ios_base::in), start);

    std::string text;
    for (int count = 0; count < 100; ++count) {
        text += static_cast<char>(buffer.sbumpc());
    }
    EXPECT_EQ(text, sparseCharacters(start, 100));
}

TEST(SparseStreamTest, WritesAndReportsThePositionBeyondTheFourthGibibyte) {
    const SparseDevice device(5 * gibibyte);
    auto buffer = makeBuffer(outputOf(device), 1000);
    std::ostream stream(&buffer);
    constexpr std::int64_t start = 5 * gibibyte - 1;

    stream.seekp(start);
    stream << sparseCharacters(start, 700) << sparseCharacters(start + 700, 700);
    EXPECT_EQ(stream.tellp(), std::streampos(start + 1400));

    EXPECT_THAT(
        device.written(), ElementsAre(
                              SparseDevice::Written{start, 1000, true},
                              SparseDevice::Written{start + 1000, 400, true}));
    EXPECT_EQ(device.size(), start + 1400);
}

} // namespace
} // namespace agent::orvi::streambuf::test
