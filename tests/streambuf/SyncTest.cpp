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

TEST(SyncTest, MakesNoCallWhenNothingIsPending) {
    RecordingDevice device;
    auto buffer = makeBuffer(outputOf(device), 8);

    EXPECT_EQ(buffer.pubsync(), 0);
    put(buffer, "abc");
    EXPECT_EQ(buffer.pubsync(), 0);
    EXPECT_EQ(buffer.pubsync(), 0);

    EXPECT_THAT(device.calls(), ElementsAre(writeCall("abc")));
}

TEST(SyncTest, SucceedsWithoutAWriteOperation) {
    RecordingDevice device("abc");
    auto buffer = makeExposedBuffer(inputOf(device), 8);
    buffer.sgetc();
    device.takeCalls();

    EXPECT_EQ(buffer.pubsync(), 0);

    EXPECT_THAT(device.calls(), IsEmpty());
    EXPECT_EQ(buffer.in_avail(), 3);
}

TEST(SyncTest, WritesExactlyWhatIsPendingAndEmptiesTheArea) {
    for (const std::size_t pending : {1U, 7U, 8U}) {
        RecordingDevice device;
        auto buffer = makeExposedBuffer(outputOf(device), 8);
        put(buffer, pattern(pending));

        EXPECT_EQ(buffer.pubsync(), 0);

        EXPECT_THAT(device.calls(), ElementsAre(writeCall(pattern(pending))));
        EXPECT_EQ(buffer.putPosition(), 0);
        EXPECT_EQ(buffer.putEnd(), 8);
    }
}

TEST(SyncTest, KeepsWhatWasNotTakenAtTheStartOfTheBuffer) {
    RecordingDevice device;
    device.onCall(Operation::write, 1, Reply::with(300));
    auto buffer = makeExposedBuffer(outputOf(device), 1024);
    put(buffer, pattern(500));

    EXPECT_EQ(buffer.pubsync(), -1);

    EXPECT_EQ(buffer.pendingCharacters(), pattern(200, 300));
    EXPECT_EQ(buffer.putEnd(), 1024);
    EXPECT_EQ(buffer.pubsync(), 0);
    EXPECT_THAT(device.calls(), ElementsAre(writeCall(pattern(500)), writeCall(pattern(200, 300))));
    EXPECT_EQ(device.bytes(), pattern(500));
}

TEST(SyncTest, KeepsTheOrderThroughRepeatedShortWrites) {
    for (const std::size_t size : {1U, 2U, 16U}) {
        for (std::size_t pending = 1; pending <= size; ++pending) {
            RecordingDevice device;
            device.always(Operation::write, Reply::with(1));
            auto buffer = makeExposedBuffer(outputOf(device), size);
            put(buffer, pattern(pending));

            for (std::size_t left = pending - 1; left > 0; --left) {
                ASSERT_EQ(buffer.pubsync(), -1);
                ASSERT_EQ(buffer.pendingCharacters(), pattern(left, pending - left));
            }
            ASSERT_EQ(buffer.pubsync(), 0);
            ASSERT_EQ(device.bytes(), pattern(pending));
        }
    }
}

TEST(SyncTest, MakesRoomBehindWhatWasNotTaken) {
    RecordingDevice device;
    device.onCall(Operation::write, 1, Reply::with(3));
    auto buffer = makeBuffer(outputOf(device), 4);
    put(buffer, "abcd");
    EXPECT_EQ(buffer.pubsync(), -1);

    EXPECT_EQ(put(buffer, "efg"), 3);
    EXPECT_EQ(buffer.pubsync(), 0);

    EXPECT_THAT(device.calls(), ElementsAre(writeCall("abcd"), writeCall("defg")));
}

TEST(SyncTest, ChangesNothingWhenNoneOrMoreThanAllIsReported) {
    for (const std::int64_t answer :
         {std::int64_t{0}, std::int64_t{-1}, std::int64_t{-3}, std::int64_t{4}, std::int64_t{8},
          std::int64_t{9}, std::int64_t{0xFFFFFFFF}, lowWord, lowWord + 3, -lowWord + 3,
          -lowWord + 1, std::numeric_limits<std::int64_t>::min(),
          std::numeric_limits<std::int64_t>::max()}) {
        SCOPED_TRACE(answer);
        RecordingDevice device;
        device.onCall(Operation::write, 1, Reply::with(answer));
        auto buffer = makeExposedBuffer(outputOf(device), 8);
        put(buffer, "abc");

        EXPECT_EQ(buffer.pubsync(), -1);

        EXPECT_EQ(buffer.pendingCharacters(), "abc");
        EXPECT_EQ(buffer.putEnd(), 8);
        EXPECT_EQ(buffer.pubsync(), 0);
        EXPECT_THAT(device.calls(), ElementsAre(writeCall("abc"), writeCall("abc")));
    }
}

TEST(SyncTest, PassesAnExceptionOnAndChangesNothing) {
    RecordingDevice device;
    device.onCall(Operation::write, 1, Reply::throwing(DeviceError("disk full")));
    auto buffer = makeExposedBuffer(outputOf(device), 8);
    put(buffer, "abc");

    EXPECT_THAT([&] { buffer.pubsync(); }, ThrowsMessage<DeviceError>("disk full"));

    EXPECT_EQ(buffer.pendingCharacters(), "abc");
    EXPECT_EQ(buffer.pubsync(), 0);
    EXPECT_EQ(device.bytes(), "abc");
}

TEST(SyncTest, LeavesTheReadAheadAlone) {
    RecordingDevice device("0123456789");
    auto buffer = makeExposedBuffer(bothOf(device), 4);
    buffer.sbumpc();
    put(buffer, "ab");

    EXPECT_EQ(buffer.pubsync(), 0);

    EXPECT_EQ(buffer.getPosition(), 1);
    EXPECT_EQ(buffer.getCharacters(), "0123");
    EXPECT_THAT(device.calls(), ElementsAre(readCall(4), writeCall("ab")));
}

} // namespace
} // namespace agent::orvi::streambuf::test
