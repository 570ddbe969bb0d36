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

TEST(XsgetnTest, AsksForTheNextMultipleAboveTheRest) {
    struct {
        std::size_t rest;
        std::int64_t request;
    } const cases[] = {{1, 1024},    {1023, 1024}, {1024, 2048}, {1025, 2048},
                       {1500, 2048}, {2047, 2048}, {2048, 3072}, {3000, 3072}};

    for (const auto& [rest, request] : cases) {
        SCOPED_TRACE(rest);
        RecordingDevice device(pattern(5000));
        auto buffer = makeBuffer(inputOf(device), 1024);

        EXPECT_EQ(take(buffer, rest), pattern(rest));

        EXPECT_THAT(device.calls(), ElementsAre(readCall(request)));
    }
}

TEST(XsgetnTest, AsksForTheRestAfterWhatTheAreaHolds) {
    RecordingDevice device(pattern(5000));
    auto buffer = makeBuffer(inputOf(device), 1024);
    EXPECT_EQ(take(buffer, 1000), pattern(1000));
    device.takeCalls();

    EXPECT_EQ(take(buffer, 24 + 1024), pattern(1048, 1000));

    EXPECT_THAT(device.calls(), ElementsAre(readCall(2048)));
}

TEST(XsgetnTest, ServesSmallReadsFromOneWholeBuffer) {
    RecordingDevice device(pattern(5000));
    auto buffer = makeExposedBuffer(inputOf(device), 1024);

    EXPECT_EQ(take(buffer, 10), pattern(10));
    EXPECT_EQ(buffer.in_avail(), 1014);
    for (std::size_t done = 10; done < 1020; done += 10) {
        ASSERT_EQ(take(buffer, 10), pattern(10, done));
    }
    EXPECT_THAT(device.calls(), ElementsAre(readCall(1024)));

    EXPECT_EQ(take(buffer, 4), pattern(4, 1020));
    EXPECT_THAT(device.calls(), ElementsAre(readCall(1024)));
    EXPECT_EQ(take(buffer, 1), pattern(1, 1024));
    EXPECT_THAT(device.calls(), ElementsAre(readCall(1024), readCall(1024)));
}

TEST(XsgetnTest, KeepsTheDevicesLastBlockInTheBuffer) {
    RecordingDevice device(pattern(5000));
    auto buffer = makeExposedBuffer(inputOf(device), 1024);

    EXPECT_EQ(take(buffer, 3000), pattern(3000));

    EXPECT_THAT(device.calls(), ElementsAre(readCall(3072)));
    EXPECT_EQ(buffer.getPosition(), 952);
    EXPECT_EQ(buffer.getEnd(), 1024);
    EXPECT_EQ(buffer.getCharacters(), pattern(1024, 2048));
    EXPECT_EQ(buffer.in_avail(), 72);
}

TEST(XsgetnTest, KeepsWhatWasJustDeliveredForPuttingBack) {
    RecordingDevice device(pattern(5000));
    auto buffer = makeBuffer(inputOf(device), 1024);
    take(buffer, 3000);

    for (std::size_t index = 3000; index > 2048; --index) {
        ASSERT_EQ(buffer.sungetc(), pattern(1, index - 1)[0]);
    }
    EXPECT_EQ(buffer.sungetc(), std::char_traits<char>::eof());
}

TEST(XsgetnTest, ReadsNothingForACountOfZeroOrBelow) {
    RecordingDevice device("abc");
    auto buffer = makeExposedBuffer(inputOf(device), 2);
    char untouched[] = "untouched";

    for (const std::streamsize count :
         {std::streamsize{0}, std::streamsize{-1}, std::numeric_limits<std::streamsize>::min()}) {
        EXPECT_EQ(buffer.sgetn(untouched, count), 0);
    }
    EXPECT_THAT(device.calls(), IsEmpty());

    buffer.sbumpc();
    EXPECT_EQ(buffer.sgetn(untouched, 0), 0);
    EXPECT_EQ(buffer.sgetn(untouched, -1), 0);
    EXPECT_EQ(buffer.getPosition(), 1);
    EXPECT_STREQ(untouched, "untouched");
}

TEST(XsgetnTest, ReadsNothingWithoutAReadOperation) {
    RecordingDevice device("abc");
    auto buffer = makeBuffer(outputOf(device), 2);

    EXPECT_EQ(take(buffer, 3), "");
    EXPECT_THAT(device.calls(), IsEmpty());
}

TEST(XsgetnTest, PassesAnExceptionOnWithTheAreaConsumed) {
    RecordingDevice device(pattern(40));
    device.onCall(Operation::read, 2, Reply::throwing(DeviceError("torn tape")));
    auto buffer = makeExposedBuffer(inputOf(device), 8);
    take(buffer, 5);
    std::string destination(20, '.');

    EXPECT_THAT(
        [&] { buffer.sgetn(destination.data(), 20); }, ThrowsMessage<DeviceError>("torn tape"));

    EXPECT_EQ(destination, pattern(3, 5) + std::string(17, '.'));
    EXPECT_EQ(buffer.getPosition(), 8);
    EXPECT_EQ(buffer.getEnd(), 8);
    EXPECT_EQ(buffer.getCharacters(), pattern(8));
    EXPECT_EQ(take(buffer, 1), pattern(1, 8));
    EXPECT_THAT(device.calls(), ElementsAre(readCall(8), readCall(24), readCall(8)));
}

TEST(XsgetnTest, RefusesAnAnswerLongerThanAskedAsIfTheDeviceHadThrown) {
    RecordingDevice device(pattern(100));
    device.onCall(Operation::read, 2, Reply::with(25));
    auto buffer = makeExposedBuffer(inputOf(device), 8);
    take(buffer, 5);
    std::string destination(20, '.');

    EXPECT_THAT(
        [&] { buffer.sgetn(destination.data(), 20); },
        ThrowsMessage<std::length_error>(
            "The device answered a read of 24 characters with 25 characters."));

    EXPECT_EQ(destination, pattern(3, 5) + std::string(17, '.'));
    EXPECT_EQ(buffer.getPosition(), 8);
    EXPECT_EQ(buffer.getEnd(), 8);
    EXPECT_EQ(buffer.getCharacters(), pattern(8));
}

TEST(XsgetnTest, RefusesACountTooLargeToBeAskedForBeforeAnythingChanges) {
    RecordingDevice device("abcdefgh");
    auto buffer = makeExposedBuffer(inputOf(device), 4);
    take(buffer, 1);
    device.takeCalls();
    char destination[] = "....";

    EXPECT_THAT(
        [&] { buffer.sgetn(destination, std::numeric_limits<std::streamsize>::max()); },
        ThrowsMessage<std::length_error>(
            "A read of 9223372036854775807 characters is too large to be asked for."));

    EXPECT_THAT(device.calls(), IsEmpty());
    EXPECT_STREQ(destination, "....");
    EXPECT_EQ(take(buffer, 7), "bcdefgh");
}

TEST(XsgetnTest, AsksForTheLargestMultipleThatFitsACount) {
    constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
    RecordingDevice device("ab");
    auto buffer = makeBuffer(inputOf(device), 4);
    char destination[] = "....";

    EXPECT_EQ(buffer.sgetn(destination, largest - 4), 2);

    EXPECT_THAT(device.calls(), ElementsAre(readCall(largest - 3)));
    EXPECT_STREQ(destination, "ab..");
}

/// What a bulk read must do, said with the lengths alone.
struct Expected {
    std::int64_t request;
    std::size_t result;
    std::size_t position;
    std::size_t end;
    std::size_t first; ///< Where in the stream the buffer's first character comes from.
};

Expected
expectedRead(std::size_t bufferSize, std::size_t available, std::size_t count, std::size_t got) {
    const std::size_t rest = count - available;
    const std::size_t blocks = rest / bufferSize;
    const auto request = static_cast<std::int64_t>((blocks + 1) * bufferSize);
    if (got <= rest) {
        return {request, available + got, bufferSize, bufferSize, 0};
    }
    return {request, count, rest % bufferSize, got - blocks * bufferSize, blocks * bufferSize};
}

TEST(XsgetnTest, FollowsTheRulesForEveryCountAvailabilityAndAnswer) {
    for (const std::size_t bufferSize : {1U, 2U, 3U, 16U, 100U}) {
        for (const std::size_t available : {std::size_t{0}, std::size_t{1}, bufferSize - 1}) {
            if (available >= bufferSize) {
                continue; // one character of the block is always taken to fill the area
            }
            for (const std::size_t count :
                 {available + 1, bufferSize - 1, bufferSize, bufferSize + 1, 2 * bufferSize + 1}) {
                if (count <= available) {
                    continue; // served from the area, see below
                }
                const std::size_t rest = count - available;
                const std::size_t request = rest + bufferSize - rest % bufferSize;
                for (std::size_t got = 0; got <= request; ++got) {
                    SCOPED_TRACE(
                        "buffer size " + std::to_string(bufferSize) + ", available " +
                        std::to_string(available) + ", count " + std::to_string(count) +
                        ", answer " + std::to_string(got));
                    RecordingDevice device(pattern(1000));
                    auto buffer = makeExposedBuffer(inputOf(device), bufferSize);
                    std::size_t done = 0;
                    if (available > 0) {
                        done = bufferSize - available;
                        EXPECT_EQ(take(buffer, done), pattern(done));
                        device.onCall(
                            Operation::read, 2, Reply::with(static_cast<std::int64_t>(got)));
                    } else {
                        device.onCall(
                            Operation::read, 1, Reply::with(static_cast<std::int64_t>(got)));
                    }
                    device.takeCalls();

                    const std::string result = take(buffer, count);

                    const Expected expected = expectedRead(bufferSize, available, count, got);
                    ASSERT_EQ(result, pattern(expected.result, done));
                    ASSERT_THAT(device.calls(), ElementsAre(readCall(expected.request)));
                    ASSERT_EQ(buffer.getPosition(), static_cast<std::ptrdiff_t>(expected.position));
                    ASSERT_EQ(buffer.getEnd(), static_cast<std::ptrdiff_t>(expected.end));
                    if (got > rest) {
                        ASSERT_EQ(
                            buffer.getCharacters(),
                            pattern(expected.end, done + available + expected.first));
                    }
                }
            }
        }
    }
}

TEST(XsgetnTest, ServesEveryCountUpToWhatIsThereWithoutACall) {
    for (const std::size_t bufferSize : {2U, 3U, 16U}) {
        for (std::size_t count = 0; count < bufferSize; ++count) {
            SCOPED_TRACE(count);
            RecordingDevice device(pattern(bufferSize));
            auto buffer = makeExposedBuffer(inputOf(device), bufferSize);
            buffer.sbumpc();
            device.takeCalls();

            EXPECT_EQ(take(buffer, count), pattern(count, 1));

            EXPECT_EQ(buffer.getPosition(), static_cast<std::ptrdiff_t>(1 + count));
            EXPECT_EQ(buffer.getEnd(), static_cast<std::ptrdiff_t>(bufferSize));
            EXPECT_THAT(device.calls(), IsEmpty());
        }
    }
}

TEST(XsgetnTest, AgreesWithTheRulesAboutPuttingBackWhateverComesNext) {
    RecordingDevice device(pattern(64));
    auto buffer = makeExposedBuffer(inputOf(device), 8);
    EXPECT_EQ(take(buffer, 8), pattern(8));

    EXPECT_EQ(buffer.getPosition(), 0);
    EXPECT_EQ(buffer.getEnd(), 8);
    EXPECT_EQ(buffer.getCharacters(), pattern(8, 8));
    EXPECT_EQ(buffer.sungetc(), std::char_traits<char>::eof());
    EXPECT_THAT(device.calls(), ElementsAre(readCall(16)));
}

TEST(XsgetnTest, LeavesPendingOutputAlone) {
    RecordingDevice device(pattern(20));
    auto buffer = makeExposedBuffer(bothOf(device), 4);
    put(buffer, "xyz");

    EXPECT_EQ(take(buffer, 9), pattern(9));

    EXPECT_EQ(buffer.pendingCharacters(), "xyz");
    EXPECT_THAT(device.calls(), ElementsAre(readCall(12)));
}

} // namespace
} // namespace agent::orvi::streambuf::test
