#include "support/DeviceError.hpp"
#include "support/StreamBuffers.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <istream>
#include <limits>
#include <ostream>
#include <string>
#include <vector>

namespace agent::orvi::streambuf::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::ThrowsMessage;

constexpr auto in = std::ios_base::in;
constexpr auto out = std::ios_base::out;
constexpr auto beg = std::ios_base::beg;
constexpr auto cur = std::ios_base::cur;
constexpr auto end = std::ios_base::end;

std::streampos invalid() {
    return std::streamoff(-1);
}

/// One of the two members, so that what they share is tested on both.
struct Member {
    const char* name;
    std::function<std::streampos(StreamBuffer&, std::streamoff, std::ios_base::openmode)> move;
    std::function<Call(std::int64_t, std::ios_base::openmode)> call;
    Operation operation;
};

void PrintTo(const Member& member, std::ostream* stream) {
    *stream << member.name;
}

class SeekTest : public ::testing::TestWithParam<Member> {
protected:
    std::streampos
    move(StreamBuffer& buffer, std::streamoff offset, std::ios_base::openmode mode) const {
        return GetParam().move(buffer, offset, mode);
    }

    Call call(std::int64_t offset, std::ios_base::openmode mode) const {
        return GetParam().call(offset, mode);
    }
};

INSTANTIATE_TEST_SUITE_P(
    Members, SeekTest,
    ::testing::Values(
        Member{
            "seekoff",
            [](StreamBuffer& buffer, std::streamoff offset, std::ios_base::openmode mode) {
                return buffer.pubseekoff(offset, beg, mode);
            },
            [](std::int64_t offset, std::ios_base::openmode mode) {
                return seekOffCall(offset, beg, mode);
            },
            Operation::seekoff},
        Member{
            "seekpos",
            [](StreamBuffer& buffer, std::streamoff offset, std::ios_base::openmode mode) {
                return buffer.pubseekpos(offset, mode);
            },
            seekPosCall, Operation::seekpos}),
    [](const auto& parameter) { return parameter.param.name; });

TEST_P(SeekTest, DropsTheReadAheadBeforeMovingTheInput) {
    RecordingDevice device(pattern(100));
    auto buffer = makeExposedBuffer(inputOf(device), 16);
    take(buffer, 5);

    EXPECT_EQ(move(buffer, 2, in), std::streampos(2));

    EXPECT_EQ(buffer.getPosition(), 16);
    EXPECT_EQ(buffer.getEnd(), 16);
    EXPECT_EQ(buffer.in_avail(), 0);
    EXPECT_EQ(buffer.sgetc(), pattern(1, 2)[0]);
    EXPECT_THAT(device.calls(), ElementsAre(readCall(16), call(2, in), readCall(16)));
}

TEST_P(SeekTest, WritesPendingOutputBeforeMovingTheOutput) {
    RecordingDevice device;
    auto buffer = makeExposedBuffer(outputOf(device), 16);
    put(buffer, "abcde");

    EXPECT_EQ(move(buffer, 1, out), std::streampos(1));
    put(buffer, "X");
    EXPECT_EQ(buffer.pubsync(), 0);

    EXPECT_THAT(device.calls(), ElementsAre(writeCall("abcde"), call(1, out), writeCall("X")));
    EXPECT_EQ(device.bytes(), "aXcde");
}

TEST_P(SeekTest, MakesOneCallWhenNothingIsPending) {
    RecordingDevice device;
    auto buffer = makeBuffer(outputOf(device), 16);

    EXPECT_EQ(move(buffer, 0, out), std::streampos(0));

    EXPECT_THAT(device.calls(), ElementsAre(call(0, out)));
}

TEST_P(SeekTest, DropsThenFlushesBeforeMovingBoth) {
    RecordingDevice device(pattern(100));
    auto buffer = makeExposedBuffer(bothOf(device), 16);
    take(buffer, 5);
    put(buffer, "abc");
    device.takeCalls();

    EXPECT_EQ(move(buffer, 7, in | out), std::streampos(7));

    EXPECT_EQ(buffer.getPosition(), 16);
    EXPECT_EQ(buffer.getEnd(), 16);
    EXPECT_EQ(buffer.putPosition(), 0);
    EXPECT_THAT(device.calls(), ElementsAre(writeCall("abc"), call(7, in | out)));
}

TEST_P(SeekTest, LeavesPendingOutputWhenMovingTheInput) {
    RecordingDevice device(pattern(100));
    auto buffer = makeExposedBuffer(bothOf(device), 16);
    put(buffer, "abc");

    EXPECT_EQ(move(buffer, 7, in), std::streampos(7));

    EXPECT_EQ(buffer.pendingCharacters(), "abc");
    EXPECT_THAT(device.calls(), ElementsAre(call(7, in)));
}

TEST_P(SeekTest, LeavesTheReadAheadWhenMovingTheOutput) {
    RecordingDevice device(pattern(100));
    auto buffer = makeExposedBuffer(bothOf(device), 16);
    take(buffer, 5);
    device.takeCalls();

    EXPECT_EQ(move(buffer, 7, out), std::streampos(7));

    EXPECT_EQ(buffer.getPosition(), 5);
    EXPECT_EQ(buffer.getEnd(), 16);
    EXPECT_THAT(device.calls(), ElementsAre(call(7, out)));
}

TEST_P(SeekTest, FailsWithoutACallWhenADirectionIsMissing) {
    RecordingDevice device(pattern(100));
    auto input = makeExposedBuffer(inputOf(device), 16);
    auto output = makeExposedBuffer(outputOf(device), 16);
    take(input, 5);
    put(output, "abc");
    device.takeCalls();

    EXPECT_EQ(move(input, 0, out), invalid());
    EXPECT_EQ(move(input, 0, in | out), invalid());
    EXPECT_EQ(move(output, 0, in), invalid());
    EXPECT_EQ(move(output, 0, in | out), invalid());

    EXPECT_THAT(device.calls(), IsEmpty());
    EXPECT_EQ(input.getPosition(), 5);
    EXPECT_EQ(input.getEnd(), 16);
    EXPECT_EQ(output.pendingCharacters(), "abc");
}

TEST_P(SeekTest, FailsWithNothingTouchedForAnyOtherMode) {
    RecordingDevice device(pattern(100));
    auto buffer = makeExposedBuffer(bothOf(device), 16);
    take(buffer, 5);
    put(buffer, "abc");
    device.takeCalls();

    for (const auto mode :
         {std::ios_base::openmode{}, std::ios_base::app, std::ios_base::binary, std::ios_base::ate,
          std::ios_base::trunc, in | std::ios_base::binary, out | std::ios_base::app,
          out | std::ios_base::trunc, in | out | std::ios_base::binary,
          in | out | std::ios_base::ate}) {
        EXPECT_EQ(move(buffer, 0, mode), invalid()) << mode;
    }

    EXPECT_THAT(device.calls(), IsEmpty());
    EXPECT_EQ(buffer.getPosition(), 5);
    EXPECT_EQ(buffer.getEnd(), 16);
    EXPECT_EQ(buffer.pendingCharacters(), "abc");
}

TEST_P(SeekTest, FailsAfterAShortFlushWithTheRestPendingAndTheReadAheadDropped) {
    RecordingDevice device(pattern(100));
    device.always(Operation::write, Reply::with(60));
    auto buffer = makeExposedBuffer(bothOf(device), 128);
    take(buffer, 5);
    put(buffer, pattern(100));
    device.takeCalls();

    EXPECT_EQ(move(buffer, 0, in | out), invalid());

    EXPECT_THAT(device.calls(), ElementsAre(writeCall(pattern(100))));
    EXPECT_EQ(buffer.pendingCharacters(), pattern(40, 60));
    EXPECT_EQ(buffer.in_avail(), 0);
    EXPECT_EQ(buffer.getPosition(), 128);
}

TEST_P(SeekTest, FailsAfterAFlushThatTookNothingOrClaimsTooMuch) {
    for (const std::int64_t answer : {0, -1, 4}) {
        SCOPED_TRACE(answer);
        RecordingDevice device;
        device.onCall(Operation::write, 1, Reply::with(answer));
        auto buffer = makeExposedBuffer(outputOf(device), 16);
        put(buffer, "abc");

        EXPECT_EQ(move(buffer, 0, out), invalid());

        EXPECT_THAT(device.calls(), ElementsAre(writeCall("abc")));
        EXPECT_EQ(buffer.pendingCharacters(), "abc");
    }
}

TEST_P(SeekTest, ReturnsTheDevicesAnswerUnchanged) {
    for (const std::int64_t answer :
         {std::int64_t{-1}, std::int64_t{-7}, std::int64_t{0}, std::int64_t{1} << 40,
          std::numeric_limits<std::int64_t>::max(), std::numeric_limits<std::int64_t>::min()}) {
        for (const auto mode : {in, out, in | out}) {
            RecordingDevice device;
            device.always(GetParam().operation, Reply::with(answer));
            auto buffer = makeBuffer(bothOf(device), 16);

            EXPECT_EQ(std::streamoff(move(buffer, 3, mode)), answer);

            EXPECT_THAT(device.calls(), ElementsAre(call(3, mode)));
        }
    }
}

TEST_P(SeekTest, PassesEveryOffsetOnUnchanged) {
    for (const std::int64_t offset :
         {std::int64_t{0}, std::int64_t{-1}, std::int64_t{1} << 33, -(std::int64_t{1} << 33),
          std::numeric_limits<std::int64_t>::max(), std::numeric_limits<std::int64_t>::min()}) {
        RecordingDevice device;
        device.always(GetParam().operation, Reply::with(5));
        auto buffer = makeBuffer(bothOf(device), 16);

        move(buffer, offset, in);

        EXPECT_THAT(device.calls(), ElementsAre(call(offset, in)));
    }
}

TEST_P(SeekTest, ThrowsBadFunctionCallWhenTheDeviceCannotMoveAfterPreparing) {
    RecordingDevice device(pattern(100));
    Operations operations = bothOf(device);
    if (GetParam().operation == Operation::seekoff) {
        operations.seekoff = nullptr;
    } else {
        operations.seekpos = nullptr;
    }
    auto buffer = makeExposedBuffer(operations, 16);
    take(buffer, 5);
    put(buffer, "abc");
    device.takeCalls();

    EXPECT_THROW(move(buffer, 0, in), std::bad_function_call);
    EXPECT_EQ(buffer.in_avail(), 0);
    EXPECT_EQ(buffer.getPosition(), 16);
    EXPECT_EQ(buffer.pendingCharacters(), "abc");
    EXPECT_THAT(device.takeCalls(), IsEmpty());

    EXPECT_THROW(move(buffer, 0, out), std::bad_function_call);
    EXPECT_EQ(buffer.putPosition(), 0);
    EXPECT_THAT(device.takeCalls(), ElementsAre(writeCall("abc")));

    put(buffer, "def");
    EXPECT_THROW(move(buffer, 0, in | out), std::bad_function_call);
    EXPECT_THAT(device.takeCalls(), ElementsAre(writeCall("def")));
}

TEST_P(SeekTest, PassesAnExceptionOfTheMoveOnAfterPreparing) {
    RecordingDevice device(pattern(100));
    device.always(GetParam().operation, Reply::throwing(DeviceError("stuck head")));
    auto buffer = makeExposedBuffer(bothOf(device), 16);
    take(buffer, 5);
    put(buffer, "abc");
    device.takeCalls();

    EXPECT_THAT([&] { move(buffer, 0, in | out); }, ThrowsMessage<DeviceError>("stuck head"));

    EXPECT_EQ(buffer.getPosition(), 16);
    EXPECT_EQ(buffer.putPosition(), 0);
    EXPECT_THAT(device.calls(), ElementsAre(writeCall("abc"), call(0, in | out)));
}

TEST_P(SeekTest, PassesAnExceptionOfTheFlushOnWithTheReadAheadDropped) {
    RecordingDevice device(pattern(100));
    device.onCall(Operation::write, 1, Reply::throwing(DeviceError("disk full")));
    auto buffer = makeExposedBuffer(bothOf(device), 16);
    take(buffer, 5);
    put(buffer, "abc");
    device.takeCalls();

    EXPECT_THAT([&] { move(buffer, 0, in | out); }, ThrowsMessage<DeviceError>("disk full"));

    EXPECT_EQ(buffer.getPosition(), 16);
    EXPECT_EQ(buffer.getEnd(), 16);
    EXPECT_EQ(buffer.pendingCharacters(), "abc");
    EXPECT_THAT(device.calls(), ElementsAre(writeCall("abc")));
}

/// Counts the calls of its own `sync`, which the library's members must not make.
class CountingStreamBuffer : public ExposedStreamBuffer {
public:
    using ExposedStreamBuffer::ExposedStreamBuffer;

    int syncs = 0;

protected:
    int sync() override {
        ++syncs;
        return -1;
    }
};

TEST_P(SeekTest, FlushesWithTheLibrarysOwnSync) {
    RecordingDevice device;
    CountingStreamBuffer buffer(makeBuffer(outputOf(device), 16));
    put(buffer, "abc");

    EXPECT_EQ(move(buffer, 0, out), std::streampos(0));

    EXPECT_EQ(buffer.syncs, 0);
    EXPECT_THAT(device.calls(), ElementsAre(writeCall("abc"), call(0, out)));
}

TEST(SeekOffTest, PassesEveryDirectionAndModeOn) {
    for (const auto direction : {beg, cur, end}) {
        for (const auto mode : {in, out, in | out}) {
            RecordingDevice device(pattern(10));
            auto buffer = makeBuffer(bothOf(device), 16);

            buffer.pubseekoff(0, direction, mode);

            EXPECT_THAT(device.calls(), ElementsAre(seekOffCall(0, direction, mode)));
        }
    }
}

TEST(SeekOffTest, MovesBothByDefault) {
    RecordingDevice device(pattern(10));
    auto both = makeBuffer(bothOf(device), 16);
    auto input = makeExposedBuffer(inputOf(device), 16);
    auto output = makeExposedBuffer(outputOf(device), 16);

    EXPECT_EQ(input.pubseekoff(0, cur), invalid());
    EXPECT_EQ(output.pubseekoff(0, cur), invalid());
    EXPECT_EQ(input.seekoff(0, cur), invalid());
    EXPECT_EQ(input.pubseekpos(0), invalid());
    EXPECT_EQ(output.pubseekpos(0), invalid());
    EXPECT_EQ(output.seekpos(0), invalid());
    EXPECT_THAT(device.takeCalls(), IsEmpty());

    EXPECT_EQ(both.pubseekoff(3, beg), std::streampos(3));
    EXPECT_EQ(both.pubseekpos(4), std::streampos(4));
    EXPECT_THAT(
        device.calls(), ElementsAre(seekOffCall(3, beg, in | out), seekPosCall(4, in | out)));
}

TEST(SeekOffTest, ReportsTheDevicesPositionBeyondTheReadAhead) {
    RecordingDevice device(pattern(5000));
    auto buffer = makeBuffer(inputOf(device), 1024);
    std::istream stream(&buffer);
    EXPECT_EQ(stream.get(), pattern(1)[0]);

    EXPECT_EQ(stream.tellg(), std::streampos(1024));
    EXPECT_EQ(stream.get(), pattern(1, 1024)[0]);

    EXPECT_THAT(
        device.calls(), ElementsAre(readCall(1024), seekOffCall(0, cur, in), readCall(1024)));
}

TEST(SeekOffTest, RewindsAReadOnlyDevice) {
    RecordingDevice device(pattern(5000));
    auto buffer = makeBuffer(inputOf(device), 1024);
    std::istream stream(&buffer);
    std::string skipped(1500, '\0');
    stream.read(skipped.data(), 1500);
    device.takeCalls();

    stream.seekg(0, beg);

    EXPECT_EQ(stream.rdbuf()->sgetc(), pattern(1)[0]);
    EXPECT_EQ(stream.rdbuf()->sbumpc(), pattern(1)[0]);
    EXPECT_THAT(device.calls(), ElementsAre(seekOffCall(0, beg, in), readCall(1024)));
}

TEST(SeekOffTest, FlushesForTellp) {
    RecordingDevice device;
    auto buffer = makeBuffer(outputOf(device), 1024);
    std::ostream stream(&buffer);
    stream << pattern(100);

    EXPECT_EQ(stream.tellp(), std::streampos(100));

    EXPECT_THAT(device.calls(), ElementsAre(writeCall(pattern(100)), seekOffCall(0, cur, out)));
}

TEST(SeekOffTest, FailsTellpWhenTheFlushFallsShort) {
    RecordingDevice device;
    device.onCall(Operation::write, 1, Reply::with(60));
    auto buffer = makeExposedBuffer(outputOf(device), 1024);
    std::ostream stream(&buffer);
    stream << pattern(100);

    EXPECT_EQ(stream.tellp(), invalid());

    EXPECT_THAT(device.calls(), ElementsAre(writeCall(pattern(100))));
    EXPECT_EQ(buffer.pendingCharacters(), pattern(40, 60));
}

TEST(SeekOffTest, ReachesTheDeviceOnlyThroughItsSeekoff) {
    RecordingDevice device(pattern(10));
    Operations operations = inputOf(device);
    operations.seekpos = nullptr;
    auto buffer = makeBuffer(operations, 4);

    EXPECT_EQ(buffer.pubseekoff(2, beg, in), std::streampos(2));
    EXPECT_THAT(device.calls(), ElementsAre(seekOffCall(2, beg, in)));
}

TEST(SeekPosTest, ReachesTheDeviceOnlyThroughItsSeekpos) {
    RecordingDevice device(pattern(10));
    Operations operations = inputOf(device);
    operations.seekoff = nullptr;
    auto buffer = makeBuffer(operations, 4);

    EXPECT_EQ(buffer.pubseekpos(2, in), std::streampos(2));
    EXPECT_THAT(device.calls(), ElementsAre(seekPosCall(2, in)));
}

TEST(SeekPosTest, KeepsTheConversionStateOfThePositionBothWays) {
    std::mbstate_t state{};
    std::memset(&state, 0x5A, sizeof(state));
    std::streampos position(17);
    position.state(state);
    std::vector<std::streampos> seen;
    Operations operations;
    operations.read = [](std::int64_t) { return std::string(); };
    operations.seekpos = [&](std::streampos given, int) {
        seen.push_back(given);
        return given;
    };
    auto buffer = makeBuffer(operations, 4);

    const std::streampos result = buffer.pubseekpos(position, in);

    ASSERT_EQ(seen.size(), 1U);
    for (const std::streampos& each : {seen.front(), result}) {
        const std::mbstate_t kept = each.state();
        EXPECT_EQ(each, std::streampos(17));
        EXPECT_EQ(std::memcmp(&kept, &state, sizeof(state)), 0);
    }
}

} // namespace
} // namespace agent::orvi::streambuf::test
