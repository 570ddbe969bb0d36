#include "contract/StreamContract.hpp"

#include "support/DeviceError.hpp"
#include "support/SparseDevice.hpp"

#include <gmock/gmock.h>

#include <cstdint>
#include <functional>
#include <ios>
#include <istream>
#include <string>
#include <utility>

namespace agent::orvi::streambuf::test {
namespace {

using std::ios_base;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr auto both = ios_base::in | ios_base::out;
const std::streampos invalid = std::streamoff(-1);

TEST_P(SeekingContract, PassesEveryDirectionAndModeOnUnchanged) {
    RecordingDevice device(pattern(100));
    const auto stream = open(bothOf(device));
    for (const ios_base::seekdir direction : {ios_base::beg, ios_base::cur, ios_base::end}) {
        for (const ios_base::openmode mode : {ios_base::in, ios_base::out, both}) {
            stream->buffer().pubseekoff(-3, direction, mode);
            EXPECT_THAT(device.takeCalls(), ElementsAre(seekOffCall(-3, direction, mode)));
        }
    }
    for (const ios_base::openmode mode : {ios_base::in, ios_base::out, both}) {
        EXPECT_EQ(stream->buffer().pubseekpos(12, mode), std::streampos(12));
        EXPECT_THAT(device.takeCalls(), ElementsAre(seekPosCall(12, mode)));
    }
}

TEST_P(SeekingContract, RefusesEveryOtherModeWithoutTouchingAnything) {
    RecordingDevice device(pattern(100));
    const auto stream = open(bothOf(device));
    stream->buffer().sputc('x');
    for (const ios_base::openmode mode :
         {ios_base::openmode{}, ios_base::in | ios_base::binary, ios_base::out | ios_base::app,
          both | ios_base::ate, ios_base::binary}) {
        EXPECT_EQ(stream->buffer().pubseekoff(0, ios_base::beg, mode), invalid);
        EXPECT_EQ(stream->buffer().pubseekpos(0, mode), invalid);
    }
    EXPECT_THAT(device.calls(), IsEmpty());
}

TEST_P(SeekingContract, DropsTheReadAheadOfTheInput) {
    const std::string data = pattern(3 * bufferSize() + 20);
    RecordingDevice device(data);
    const auto stream = open(inputOf(device));
    stream->buffer().sbumpc();
    EXPECT_EQ(
        stream->buffer().pubseekoff(0, ios_base::cur, ios_base::in),
        std::streampos(static_cast<std::streamoff>(bufferSize())))
        << "the device's own position counts";
    EXPECT_EQ(stream->buffer().sbumpc(), data[bufferSize()]);
    EXPECT_EQ(stream->buffer().pubseekoff(5, ios_base::beg, ios_base::in), std::streampos(5));
    EXPECT_EQ(stream->buffer().sbumpc(), data[5]);
    EXPECT_EQ(stream->buffer().pubseekpos(7, ios_base::in), std::streampos(7));
    EXPECT_EQ(stream->buffer().sgetc(), data[7]);
    const Call refill = readCall(static_cast<std::int64_t>(bufferSize()));
    EXPECT_THAT(
        device.calls(), ElementsAre(
                            refill, seekOffCall(0, ios_base::cur, ios_base::in), refill,
                            seekOffCall(5, ios_base::beg, ios_base::in), refill,
                            seekPosCall(7, ios_base::in), refill));
}

TEST_P(SeekingContract, FlushesTheOutputFirst) {
    RecordingDevice device;
    const auto stream = open(outputOf(device));
    stream->buffer().sputc('a');
    EXPECT_EQ(stream->buffer().pubseekoff(0, ios_base::cur, ios_base::out), std::streampos(1));
    stream->buffer().sputc('b');
    EXPECT_EQ(stream->buffer().pubseekpos(0, ios_base::out), std::streampos(0));
    stream->buffer().sputc('c');
    EXPECT_EQ(stream->buffer().pubsync(), 0);
    EXPECT_THAT(
        device.calls(), ElementsAre(
                            writeCall("a"), seekOffCall(0, ios_base::cur, ios_base::out),
                            writeCall("b"), seekPosCall(0, ios_base::out), writeCall("c")));
    EXPECT_EQ(device.bytes(), "cb");
}

TEST_P(SeekingContract, DoesNotMoveWhenTheFlushFails) {
    for (const ios_base::openmode mode : {ios_base::out, both}) {
        RecordingDevice device(pattern(10));
        device.onCall(Operation::write, 1, Reply::with(0));
        device.onCall(Operation::write, 2, Reply::with(0));
        const auto stream = open(bothOf(device));
        stream->buffer().sputc('x');
        EXPECT_EQ(stream->buffer().pubseekoff(0, ios_base::beg, mode), invalid);
        EXPECT_EQ(stream->buffer().pubseekpos(0, mode), invalid);
        EXPECT_THAT(device.calls(), ElementsAre(writeCall("x"), writeCall("x")));
    }
}

TEST_P(SeekingContract, TheInputLeavesTheOutputAlone) {
    RecordingDevice device(pattern(10));
    const auto stream = open(bothOf(device));
    stream->buffer().sputc('x');
    stream->buffer().pubseekoff(0, ios_base::beg, ios_base::in);
    EXPECT_THAT(device.takeCalls(), ElementsAre(seekOffCall(0, ios_base::beg, ios_base::in)));
    EXPECT_EQ(stream->buffer().pubsync(), 0);
    EXPECT_THAT(device.calls(), ElementsAre(writeCall("x")));
}

TEST_P(SeekingContract, IsRefusedInADirectionThatTheDeviceLacks) {
    RecordingDevice device(pattern(10));
    const auto input = open(inputOf(device));
    const auto output = open(outputOf(device));
    for (const auto& [stream, mode] :
         {std::pair(input.get(), ios_base::out), std::pair(input.get(), both),
          std::pair(output.get(), ios_base::in), std::pair(output.get(), both)}) {
        EXPECT_EQ(stream->buffer().pubseekoff(0, ios_base::beg, mode), invalid);
        EXPECT_EQ(stream->buffer().pubseekpos(0, mode), invalid);
    }
    EXPECT_THAT(device.calls(), IsEmpty());
}

TEST_P(SeekingContract, IsABadCallOfADeviceThatCannotBeMoved) {
    RecordingDevice device(pattern(10));
    const auto stream = open({device.read(), device.write(), {}, {}, {}});
    for (const ios_base::openmode mode : {ios_base::in, ios_base::out, both}) {
        EXPECT_THROW(stream->buffer().pubseekoff(0, ios_base::beg, mode), std::bad_function_call);
        EXPECT_THROW(stream->buffer().pubseekpos(0, mode), std::bad_function_call);
    }
    EXPECT_THAT(device.calls(), IsEmpty());
}

TEST_P(SeekingContract, ReturnsTheDevicesAnswerUnchanged) {
    RecordingDevice device(pattern(10));
    const auto stream = open(bothOf(device));
    EXPECT_EQ(stream->buffer().pubseekoff(11, ios_base::beg, ios_base::in), invalid);
    EXPECT_EQ(stream->buffer().pubseekpos(-1, ios_base::in), invalid);
    device.always(Operation::seekoff, Reply::with((std::int64_t{1} << 40) + 1));
    device.always(Operation::seekpos, Reply::throwing(DeviceError("stuck")));
    EXPECT_EQ(
        stream->buffer().pubseekoff(0, ios_base::beg, ios_base::in),
        std::streampos((std::int64_t{1} << 40) + 1));
    EXPECT_EQ(stream->buffer().pubseekpos(3, ios_base::in), invalid);
}

constexpr std::int64_t sixGiB = std::int64_t{6} << 30;

TEST_P(SeekingContract, ReadsBeyondFourGiB) {
    const SparseDevice device(sixGiB);
    const auto stream = open({device.read(), {}, device.seekoff(), device.seekpos(), {}});
    std::istream input(&stream->buffer());
    for (const std::int64_t position :
         {(std::int64_t{1} << 32) - 3, (std::int64_t{1} << 32) + 12345, sixGiB - 4000}) {
        input.seekg(position);
        ASSERT_TRUE(input.good());
        EXPECT_EQ(input.tellg(), std::streampos(position));
        EXPECT_EQ(
            take(stream->buffer(), 3000),
            sparseCharacters(static_cast<std::uint64_t>(position), 3000));
    }
    input.seekg(0, ios_base::end);
    EXPECT_EQ(input.tellg(), std::streampos(sixGiB));
    EXPECT_EQ(input.get(), std::char_traits<char>::eof());
    input.clear();
    input.seekg(-(std::int64_t{5} << 30), ios_base::cur);
    EXPECT_EQ(input.tellg(), std::streampos(std::int64_t{1} << 30));
}

TEST_P(SeekingContract, WritesBeyondFourGiB) {
    const SparseDevice device(sixGiB);
    const std::int64_t position = (std::int64_t{1} << 32) + 12345;
    const std::string data = sparseCharacters(static_cast<std::uint64_t>(position), 10000);
    {
        const auto stream = open({{}, device.write(), device.seekoff(), device.seekpos(), {}});
        EXPECT_EQ(stream->buffer().pubseekpos(position, ios_base::out), std::streampos(position));
        EXPECT_EQ(put(stream->buffer(), data), 10000);
        EXPECT_EQ(
            stream->buffer().pubseekoff(0, ios_base::cur, ios_base::out),
            std::streampos(position + 10000));
    }
    std::int64_t expected = position;
    for (const SparseDevice::Written& written : device.written()) {
        EXPECT_EQ(written.position, expected);
        EXPECT_TRUE(written.asExpected);
        expected += written.length;
    }
    EXPECT_EQ(expected, position + 10000);
}

} // namespace
} // namespace agent::orvi::streambuf::test
