#include "support/Characters.hpp"
#include "support/DeviceError.hpp"
#include "support/StreamBuffers.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace agent::orvi::streambuf::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::ThrowsMessage;

TEST(ZeroBufferSizeTest, StartsWithEmptyBuffersAndAreas) {
    RecordingDevice device("abc");
    auto buffer = makeExposedBuffer(bothOf(device), 0);

    const auto& record = details::StreamBufferAccess::record(buffer);
    EXPECT_EQ(record->getBuffer, "");
    EXPECT_EQ(record->putBuffer, "");
    EXPECT_EQ(buffer.getEnd(), 0);
    EXPECT_EQ(buffer.putEnd(), 0);
    EXPECT_EQ(buffer.in_avail(), 0);
}

TEST(ZeroBufferSizeTest, ReadsSingleCharactersOneByOne) {
    RecordingDevice device("ab");
    auto buffer = makeBuffer(inputOf(device), 0);

    EXPECT_EQ(buffer.sgetc(), 'a');
    EXPECT_EQ(buffer.sbumpc(), 'a');
    EXPECT_EQ(buffer.sbumpc(), 'b');
    EXPECT_EQ(buffer.sbumpc(), endOfFile);

    EXPECT_THAT(device.calls(), ElementsAre(readCall(1), readCall(1), readCall(1)));
}

TEST(ZeroBufferSizeTest, ReadsInBulkWithOneCharacterMore) {
    RecordingDevice device("abcdef");
    auto buffer = makeBuffer(inputOf(device), 0);

    EXPECT_EQ(take(buffer, 1), "a");
    EXPECT_EQ(buffer.in_avail(), 1);
    EXPECT_EQ(take(buffer, 3), "bcd");
    EXPECT_EQ(take(buffer, 10), "ef");

    EXPECT_THAT(device.calls(), ElementsAre(readCall(2), readCall(3), readCall(10)));
}

TEST(ZeroBufferSizeTest, WritesSingleCharactersOneByOne) {
    RecordingDevice device;
    auto buffer = makeBuffer(outputOf(device), 0);

    EXPECT_EQ(buffer.sputc('a'), 'a');
    EXPECT_THAT(device.calls(), IsEmpty());
    EXPECT_EQ(buffer.sputc('b'), 'b');
    EXPECT_EQ(buffer.pubsync(), 0);

    EXPECT_THAT(device.calls(), ElementsAre(writeCall("a"), writeCall("b")));
}

TEST(ZeroBufferSizeTest, WritesInBulkAsWithOneCharacter) {
    for (const std::size_t count : {0U, 1U, 2U, 3U}) {
        SCOPED_TRACE(count);
        RecordingDevice device;
        RecordingDevice expected;
        auto buffer = makeExposedBuffer(outputOf(device), 0);
        auto single = makeExposedBuffer(outputOf(expected), 1);

        EXPECT_EQ(put(buffer, pattern(count)), put(single, pattern(count)));

        EXPECT_EQ(device.calls(), expected.calls());
        EXPECT_EQ(buffer.pendingCharacters(), single.pendingCharacters());
        EXPECT_EQ(buffer.pubsync(), 0);
        EXPECT_EQ(device.bytes(), pattern(count));
    }
}

TEST(ZeroBufferSizeTest, MovesAndSyncsBeforeItsFirstUse) {
    RecordingDevice device("abc");
    auto buffer = makeBuffer(bothOf(device), 0);

    EXPECT_EQ(buffer.pubsync(), 0);
    EXPECT_EQ(take(buffer, 0), "");
    EXPECT_EQ(put(buffer, ""), 0);
    EXPECT_EQ(buffer.sungetc(), endOfFile);
    EXPECT_EQ(buffer.pubseekpos(1), std::streampos(1));
    EXPECT_EQ(buffer.pubseekoff(1, std::ios_base::cur), std::streampos(2));
    EXPECT_EQ(take(buffer, 2), "c");
    StreamBuffer moved(std::move(buffer));
    EXPECT_EQ(put(moved, "xy"), 2);
}

TEST(ZeroBufferSizeTest, LeavesTheOtherDirectionsBufferEmpty) {
    RecordingDevice device("abc");
    auto buffer = makeExposedBuffer(bothOf(device), 0);

    buffer.sgetc();

    EXPECT_EQ(buffer.getEnd(), 1);
    EXPECT_EQ(buffer.putEnd(), 0);
    buffer.sputc('x');
    EXPECT_EQ(buffer.putEnd(), 1);
}

TEST(ZeroBufferSizeTest, MeetsFailuresAsWithOneCharacter) {
    RecordingDevice device("abc");
    device.onCall(Operation::read, 1, Reply::throwing(DeviceError("torn tape")));
    device.onCall(Operation::read, 2, Reply::with(2));
    device.onCall(Operation::read, 3, Reply::with(3));
    device.onCall(Operation::write, 1, Reply::with(0));
    device.onCall(Operation::write, 2, Reply::with(-1));
    auto buffer = makeBuffer(bothOf(device), 0);

    EXPECT_THAT([&] { buffer.sgetc(); }, ThrowsMessage<DeviceError>("torn tape"));
    EXPECT_THAT(
        [&] { buffer.sgetc(); },
        ThrowsMessage<std::length_error>(
            "The device answered a read of 1 characters with 2 characters."));
    EXPECT_THAT(
        [&] { take(buffer, 1); },
        ThrowsMessage<std::length_error>(
            "The device answered a read of 2 characters with 3 characters."));
    EXPECT_EQ(put(buffer, "abc"), 0);
    EXPECT_EQ(buffer.sputc('d'), 'd');
    EXPECT_EQ(buffer.sputc('e'), 'e');
    EXPECT_THAT(
        device.calls(),
        ElementsAre(readCall(1), readCall(1), readCall(2), writeCall("a"), writeCall("d")));
}

} // namespace
} // namespace agent::orvi::streambuf::test
