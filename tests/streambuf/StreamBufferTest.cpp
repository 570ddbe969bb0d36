#include "support/Characters.hpp"
#include "support/StreamBuffers.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <locale>
#include <streambuf>
#include <string>
#include <type_traits>
#include <vector>

namespace agent::orvi::streambuf::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(StreamBufferTest, IsAMovableStandardStreamBufferThatCannotBeCopied) {
    static_assert(std::is_base_of_v<std::basic_streambuf<char>, StreamBuffer>);
    static_assert(std::is_convertible_v<StreamBuffer*, std::streambuf*>);
    static_assert(std::is_move_constructible_v<StreamBuffer>);
    static_assert(std::is_move_assignable_v<StreamBuffer>);
    static_assert(!std::is_copy_constructible_v<StreamBuffer>);
    static_assert(!std::is_copy_assignable_v<StreamBuffer>);
    static_assert(!std::is_default_constructible_v<StreamBuffer>);
    static_assert(
        !std::is_constructible_v<StreamBuffer, std::shared_ptr<details::StreamBufferImpl>>);

    RecordingDevice device("abc");
    auto buffer = makeBuffer(inputOf(device), 4);
    std::streambuf& standard = buffer;
    EXPECT_EQ(standard.sgetc(), 'a');
}

TEST(StreamBufferTest, ReturnsTheBytesOfItsUuidInTextOrder) {
    RecordingDevice device("abc");
    const auto buffer = makeBuffer(bothOf(device), 4);

    EXPECT_EQ(
        buffer.toBytes(), (std::vector<std::uint8_t>{
                              0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0xaa,
                              0xbb, 0xcc, 0xdd, 0xee, 0xff}));
    EXPECT_EQ(buffer.toBytes(), buffer.toBytes());
    EXPECT_THAT(device.calls(), IsEmpty());
}

TEST(StreamBufferTest, StartsWithBothAreasEmptyInsideTheirBuffers) {
    RecordingDevice device("abc");
    auto buffer = makeExposedBuffer(bothOf(device), 16);

    EXPECT_EQ(buffer.getPosition(), 16);
    EXPECT_EQ(buffer.getEnd(), 16);
    EXPECT_EQ(buffer.putPosition(), 0);
    EXPECT_EQ(buffer.putEnd(), 16);
    EXPECT_EQ(buffer.in_avail(), 0);
    EXPECT_THAT(device.calls(), IsEmpty());
}

TEST(StreamBufferTest, HasNoAreaForADirectionItsDeviceLacks) {
    RecordingDevice device("abc");
    auto input = makeExposedBuffer(inputOf(device), 16);
    auto output = makeExposedBuffer(outputOf(device), 16);
    auto neither = makeExposedBuffer({}, 16);

    EXPECT_TRUE(input.hasGetArea());
    EXPECT_FALSE(input.hasPutArea());
    EXPECT_FALSE(output.hasGetArea());
    EXPECT_TRUE(output.hasPutArea());
    EXPECT_FALSE(neither.hasGetArea());
    EXPECT_FALSE(neither.hasPutArea());
}

TEST(StreamBufferTest, CanDoNothingButExistWithoutOperations) {
    auto buffer = makeExposedBuffer({}, 16);

    EXPECT_EQ(buffer.sgetc(), endOfFile);
    EXPECT_EQ(buffer.sbumpc(), endOfFile);
    EXPECT_EQ(take(buffer, 3), "");
    EXPECT_EQ(buffer.sputc('a'), endOfFile);
    EXPECT_EQ(put(buffer, "abc"), 0);
    EXPECT_EQ(buffer.pubsync(), 0);
    EXPECT_EQ(buffer.pubseekoff(0, std::ios_base::beg), std::streampos(std::streamoff(-1)));
    EXPECT_EQ(buffer.pubseekpos(0, std::ios_base::in), std::streampos(std::streamoff(-1)));
    EXPECT_EQ(buffer.toBytes().size(), 16U);
}

TEST(StreamBufferTest, KeepsTheStandardBehaviourOfWhatItDoesNotOverride) {
    RecordingDevice device("abc");
    auto buffer = makeExposedBuffer(bothOf(device), 4);
    take(buffer, 1);
    put(buffer, "xy");
    char unused[100];

    EXPECT_EQ(buffer.pubsetbuf(unused, sizeof(unused)), &buffer);
    EXPECT_EQ(buffer.getPosition(), 1);
    EXPECT_EQ(buffer.getEnd(), 3);
    EXPECT_EQ(buffer.putPosition(), 2);
    EXPECT_EQ(buffer.putEnd(), 4);

    EXPECT_EQ(take(buffer, 2), "bc");
    EXPECT_EQ(buffer.in_avail(), 0);
    EXPECT_EQ(buffer.pubimbue(std::locale::classic()), std::locale());
    EXPECT_THAT(device.calls(), ElementsAre(readCall(4)));
}

} // namespace
} // namespace agent::orvi::streambuf::test
