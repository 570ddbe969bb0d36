#include "support/DeviceError.hpp"
#include "support/StreamBuffers.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

namespace agent::orvi::streambuf::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::ThrowsMessage;

TEST(XsputnTest, FillsTheBufferExactlyWithoutACall) {
    RecordingDevice device;
    auto buffer = makeExposedBuffer(outputOf(device), 8);

    EXPECT_EQ(put(buffer, pattern(8)), 8);
    EXPECT_EQ(buffer.pendingCharacters(), pattern(8));
    EXPECT_THAT(device.calls(), IsEmpty());

    EXPECT_EQ(buffer.sputc('x'), 'x');
    EXPECT_EQ(buffer.pendingCharacters(), "x");
    EXPECT_THAT(device.calls(), ElementsAre(writeCall(pattern(8))));
}

TEST(XsputnTest, WritesAFilledBufferThenALongTailInOneCall) {
    RecordingDevice device;
    auto buffer = makeExposedBuffer(outputOf(device), 1024);
    put(buffer, pattern(24));

    EXPECT_EQ(put(buffer, pattern(10000, 24)), 10000);

    EXPECT_THAT(
        device.calls(), ElementsAre(writeCall(pattern(1024)), writeCall(pattern(9000, 1024))));
    EXPECT_EQ(buffer.putPosition(), 0);
    EXPECT_EQ(buffer.putEnd(), 1024);
}

TEST(XsputnTest, IsAllOrNothingWhenTheTailFallsShort) {
    for (const std::int64_t answer :
         {std::int64_t{8999}, std::int64_t{0}, std::int64_t{-1}, -lowWord + 9000,
          std::numeric_limits<std::int64_t>::min()}) {
        SCOPED_TRACE(answer);
        RecordingDevice device;
        device.onCall(Operation::write, 2, Reply::with(answer));
        auto buffer = makeExposedBuffer(outputOf(device), 1024);
        put(buffer, pattern(24));

        EXPECT_EQ(put(buffer, pattern(10000, 24)), 0);

        EXPECT_EQ(buffer.putPosition(), 0);
        EXPECT_EQ(buffer.putEnd(), 1024);
        EXPECT_EQ(device.calls().size(), 2U);
    }
}

TEST(XsputnTest, TakesATailAnswerAboveTheTailForAFullWrite) {
    for (const std::int64_t answer : {std::int64_t{9001}, lowWord}) {
        SCOPED_TRACE(answer);
        RecordingDevice device;
        device.onCall(Operation::write, 2, Reply::with(answer));
        auto buffer = makeExposedBuffer(outputOf(device), 1024);
        put(buffer, pattern(24));

        EXPECT_EQ(put(buffer, pattern(10000, 24)), 10000);
        EXPECT_EQ(buffer.putPosition(), 0);
    }
}

TEST(XsputnTest, KeepsATailOfExactlyTheBufferSize) {
    RecordingDevice device;
    auto buffer = makeExposedBuffer(outputOf(device), 8);
    put(buffer, pattern(3));

    EXPECT_EQ(put(buffer, pattern(13, 3)), 13);

    EXPECT_THAT(device.calls(), ElementsAre(writeCall(pattern(8))));
    EXPECT_EQ(buffer.pendingCharacters(), pattern(8, 8));
    EXPECT_EQ(buffer.sputc('x'), 'x');
    EXPECT_THAT(device.calls(), ElementsAre(writeCall(pattern(8)), writeCall(pattern(8, 8))));
}

TEST(XsputnTest, WritesATailOneLongerThanTheBufferPastIt) {
    RecordingDevice device;
    auto buffer = makeExposedBuffer(outputOf(device), 8);
    put(buffer, pattern(3));

    EXPECT_EQ(put(buffer, pattern(14, 3)), 14);

    EXPECT_THAT(device.calls(), ElementsAre(writeCall(pattern(8)), writeCall(pattern(9, 8))));
    EXPECT_EQ(buffer.putPosition(), 0);
}

TEST(XsputnTest, StartsWithTheBufferWhenThatIsFullAlready) {
    RecordingDevice device;
    auto buffer = makeExposedBuffer(outputOf(device), 4);
    put(buffer, "abcd");

    EXPECT_EQ(put(buffer, "efg"), 3);

    EXPECT_THAT(device.calls(), ElementsAre(writeCall("abcd")));
    EXPECT_EQ(buffer.pendingCharacters(), "efg");
}

TEST(XsputnTest, WritesNothingForACountOfZeroOrBelow) {
    RecordingDevice device;
    auto buffer = makeExposedBuffer(outputOf(device), 4);
    put(buffer, "abcd");

    for (const std::streamsize count :
         {std::streamsize{0}, std::streamsize{-1}, std::numeric_limits<std::streamsize>::min()}) {
        EXPECT_EQ(buffer.sputn("unused", count), 0);
    }

    EXPECT_EQ(buffer.pendingCharacters(), "abcd");
    EXPECT_THAT(device.calls(), IsEmpty());
}

TEST(XsputnTest, WritesNothingWithoutAWriteOperation) {
    RecordingDevice device("abc");
    auto buffer = makeExposedBuffer(inputOf(device), 4);

    EXPECT_EQ(put(buffer, "x"), 0);
    EXPECT_EQ(put(buffer, pattern(100)), 0);

    EXPECT_FALSE(buffer.hasPutArea());
    EXPECT_THAT(device.calls(), IsEmpty());
}

TEST(XsputnTest, JudgesTheFullBufferByTheLow32Bits) {
    for (const std::int64_t answer :
         {std::int64_t{4}, std::int64_t{9}, std::int64_t{-1}, lowWord + 4}) {
        SCOPED_TRACE(answer);
        RecordingDevice device;
        device.onCall(Operation::write, 1, Reply::with(answer));
        auto buffer = makeExposedBuffer(outputOf(device), 4);

        EXPECT_EQ(put(buffer, "abcdef"), 6);
        EXPECT_EQ(buffer.pendingCharacters(), "ef");
    }
}

TEST(XsputnTest, CountsNothingAsPendingWhenTheFullBufferIsNotTaken) {
    for (const std::int64_t answer :
         {std::int64_t{0}, std::int64_t{3}, lowWord, lowWord + 3, -lowWord}) {
        SCOPED_TRACE(answer);
        RecordingDevice device;
        device.onCall(Operation::write, 1, Reply::with(answer));
        auto buffer = makeExposedBuffer(outputOf(device), 4);
        put(buffer, "a");

        EXPECT_EQ(put(buffer, "bcdefghij"), 0);

        EXPECT_THAT(device.takeCalls(), ElementsAre(writeCall("abcd")));
        EXPECT_EQ(buffer.pendingCharacters(), "a");
        EXPECT_EQ(put(buffer, "XY"), 2);
        EXPECT_EQ(buffer.pubsync(), 0);
        EXPECT_THAT(device.takeCalls(), ElementsAre(writeCall("aXY")));
    }
}

TEST(XsputnTest, PassesAnExceptionOfTheFullBufferOnWithTheOldOutputPending) {
    RecordingDevice device;
    device.onCall(Operation::write, 1, Reply::throwing(DeviceError("disk full")));
    auto buffer = makeExposedBuffer(outputOf(device), 4);
    put(buffer, "a");

    EXPECT_THAT([&] { put(buffer, "bcdefghij"); }, ThrowsMessage<DeviceError>("disk full"));

    EXPECT_THAT(device.calls(), ElementsAre(writeCall("abcd")));
    EXPECT_EQ(buffer.pendingCharacters(), "a");
}

TEST(XsputnTest, PassesAnExceptionOfTheTailOnWithAnEmptyArea) {
    RecordingDevice device;
    device.onCall(Operation::write, 2, Reply::throwing(DeviceError("disk full")));
    auto buffer = makeExposedBuffer(outputOf(device), 4);
    put(buffer, "a");

    EXPECT_THAT([&] { put(buffer, "bcdefghij"); }, ThrowsMessage<DeviceError>("disk full"));

    EXPECT_THAT(device.calls(), ElementsAre(writeCall("abcd"), writeCall("efghij")));
    EXPECT_EQ(buffer.putPosition(), 0);
    EXPECT_EQ(buffer.putEnd(), 4);
}

TEST(XsputnTest, FollowsTheRulesForEveryCountAndAmountPending) {
    for (const std::size_t size : {1U, 2U, 3U, 16U}) {
        for (std::size_t pending = 0; pending <= size; ++pending) {
            for (const std::size_t count :
                 {std::size_t{0}, std::size_t{1}, size - 1, size, size + 1, size - pending + 1,
                  2 * size - pending, 2 * size - pending + 1, 2 * size + 1}) {
                SCOPED_TRACE(
                    "buffer size " + std::to_string(size) + ", pending " + std::to_string(pending) +
                    ", count " + std::to_string(count));
                RecordingDevice device;
                auto buffer = makeExposedBuffer(outputOf(device), size);
                put(buffer, pattern(pending));

                ASSERT_EQ(
                    put(buffer, pattern(count, pending)), static_cast<std::streamsize>(count));

                const std::size_t total = pending + count;
                std::vector<Call> calls;
                std::size_t written = 0;
                if (total > size) {
                    calls.push_back(writeCall(pattern(size)));
                    written = size;
                }
                if (total > 2 * size) {
                    calls.push_back(writeCall(pattern(total - size, size)));
                    written = total;
                }
                ASSERT_EQ(device.calls(), calls);
                ASSERT_EQ(buffer.pendingCharacters(), pattern(total - written, written));
                ASSERT_EQ(buffer.putEnd(), static_cast<std::ptrdiff_t>(size));
            }
        }
    }
}

TEST(XsputnTest, LeavesTheReadAheadAlone) {
    RecordingDevice device("0123456789");
    auto buffer = makeExposedBuffer(bothOf(device), 4);
    buffer.sbumpc();

    EXPECT_EQ(put(buffer, pattern(9)), 9);

    EXPECT_EQ(buffer.getPosition(), 1);
    EXPECT_EQ(buffer.getCharacters(), "0123");
}

} // namespace
} // namespace agent::orvi::streambuf::test
