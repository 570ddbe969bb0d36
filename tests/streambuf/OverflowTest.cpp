#include "support/Characters.hpp"
#include "support/DeviceError.hpp"
#include "support/StreamBuffers.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <string>

namespace agent::orvi::streambuf::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::ThrowsMessage;

ExposedStreamBuffer fullBuffer(const RecordingDevice& device, const std::string& content) {
    auto buffer = makeExposedBuffer(outputOf(device), content.size());
    put(buffer, content);
    return buffer;
}

TEST(OverflowTest, StoresWithoutACallWhileThereIsRoom) {
    RecordingDevice device;
    auto buffer = makeExposedBuffer(outputOf(device), 3);

    EXPECT_EQ(buffer.sputc('a'), 'a');
    EXPECT_EQ(buffer.overflow('b'), 'b');
    EXPECT_EQ(buffer.sputc('c'), 'c');

    EXPECT_EQ(buffer.pendingCharacters(), "abc");
    EXPECT_THAT(device.calls(), IsEmpty());
}

TEST(OverflowTest, WritesTheWholeBufferOnceItIsFullAndThenStores) {
    RecordingDevice device;
    auto buffer = makeExposedBuffer(outputOf(device), 3);
    for (const char character : {'a', 'b', 'c', 'd'}) {
        EXPECT_EQ(buffer.sputc(character), character);
    }

    EXPECT_THAT(device.calls(), ElementsAre(writeCall("abc")));
    EXPECT_EQ(buffer.pendingCharacters(), "d");
    EXPECT_EQ(buffer.putEnd(), 3);
}

TEST(OverflowTest, ReturnsAndStoresByte255) {
    RecordingDevice device;
    auto buffer = makeExposedBuffer(outputOf(device), 1);

    EXPECT_EQ(buffer.sputc('\xff'), 255);
    EXPECT_EQ(buffer.overflow(255), 255);

    EXPECT_EQ(buffer.pendingCharacters(), "\xff");
    EXPECT_THAT(device.calls(), ElementsAre(writeCall("\xff")));
}

TEST(OverflowTest, FlushesNothingWhenGivenEndOfFile) {
    RecordingDevice device;
    auto buffer = makeExposedBuffer(outputOf(device), 3);
    put(buffer, "ab");

    EXPECT_EQ(buffer.overflow(endOfFile), endOfFile);
    EXPECT_EQ(buffer.overflow(), endOfFile);
    buffer.sputc('c');
    EXPECT_EQ(buffer.overflow(endOfFile), endOfFile);

    EXPECT_EQ(buffer.pendingCharacters(), "abc");
    EXPECT_THAT(device.calls(), IsEmpty());
}

TEST(OverflowTest, FailsWithoutAWriteOperation) {
    RecordingDevice device("abc");
    auto buffer = makeExposedBuffer(inputOf(device), 3);

    EXPECT_EQ(buffer.sputc('a'), endOfFile);
    EXPECT_EQ(buffer.overflow('a'), endOfFile);

    EXPECT_FALSE(buffer.hasPutArea());
    EXPECT_THAT(device.calls(), IsEmpty());
}

TEST(OverflowTest, TakesAnswersWhoseLow32BitsCoverTheBufferForAFullWrite) {
    for (const std::int64_t answer :
         {std::int64_t{4}, std::int64_t{5}, std::int64_t{-1}, std::int64_t{-5},
          std::int64_t{0xFFFFFFFF}, lowWord + 4, -lowWord + 4,
          std::numeric_limits<std::int64_t>::max()}) {
        SCOPED_TRACE(answer);
        RecordingDevice device;
        device.onCall(Operation::write, 1, Reply::with(answer));
        auto buffer = fullBuffer(device, "abcd");

        EXPECT_EQ(buffer.sputc('e'), 'e');

        EXPECT_EQ(buffer.pendingCharacters(), "e");
        EXPECT_THAT(device.calls(), ElementsAre(writeCall("abcd")));
    }
}

TEST(OverflowTest, FailsWhenTheLow32BitsFallShortAndStaysFull) {
    for (const std::int64_t answer :
         {std::int64_t{0}, std::int64_t{1}, std::int64_t{3}, lowWord, lowWord + 3, -lowWord,
          std::numeric_limits<std::int64_t>::min()}) {
        SCOPED_TRACE(answer);
        RecordingDevice device;
        device.onCall(Operation::write, 1, Reply::with(answer));
        auto buffer = fullBuffer(device, "abcd");

        EXPECT_EQ(buffer.sputc('e'), endOfFile);

        EXPECT_EQ(buffer.pendingCharacters(), "abcd");
        EXPECT_THAT(device.calls(), ElementsAre(writeCall("abcd")));
    }
}

TEST(OverflowTest, WritesTheWholeBufferAgainAfterAShortWrite) {
    RecordingDevice device;
    device.onCall(Operation::write, 1, Reply::with(2));
    auto buffer = fullBuffer(device, "abcd");

    EXPECT_EQ(buffer.sputc('e'), endOfFile);
    EXPECT_EQ(buffer.sputc('e'), 'e');

    EXPECT_THAT(device.calls(), ElementsAre(writeCall("abcd"), writeCall("abcd")));
    EXPECT_EQ(device.bytes(), "ababcd");
}

TEST(OverflowTest, PassesAnExceptionOnAndStaysFull) {
    RecordingDevice device;
    device.onCall(Operation::write, 1, Reply::throwing(DeviceError("disk full")));
    auto buffer = fullBuffer(device, "abcd");

    EXPECT_THAT([&] { buffer.sputc('e'); }, ThrowsMessage<DeviceError>("disk full"));

    EXPECT_EQ(buffer.pendingCharacters(), "abcd");
    EXPECT_EQ(buffer.sputc('e'), 'e');
    EXPECT_EQ(device.bytes(), "abcd");
}

TEST(OverflowTest, LeavesTheReadAheadAlone) {
    RecordingDevice device("0123456789");
    auto buffer = makeExposedBuffer(bothOf(device), 4);
    buffer.sbumpc();
    put(buffer, "abcd");

    buffer.sputc('e');

    EXPECT_EQ(buffer.getPosition(), 1);
    EXPECT_EQ(buffer.getCharacters(), "0123");
    EXPECT_THAT(device.calls(), ElementsAre(readCall(4), writeCall("abcd")));
}

} // namespace
} // namespace agent::orvi::streambuf::test
