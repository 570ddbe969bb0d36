#include "contract/StreamContract.hpp"

#include "support/Characters.hpp"
#include "support/DeviceError.hpp"

#include <gmock/gmock.h>

#include <cstdint>
#include <istream>
#include <iterator>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace agent::orvi::streambuf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::string allBytes() {
    std::string bytes;
    for (int byte = 0; byte < 256; ++byte) {
        bytes.push_back(static_cast<char>(byte));
    }
    return bytes;
}

std::string randomBytes(std::size_t count, std::mt19937& random) {
    std::string bytes(count, '\0');
    for (char& byte : bytes) {
        byte = static_cast<char>(random());
    }
    return bytes;
}

Call wholeBuffer(std::size_t bufferSize) {
    return readCall(static_cast<std::int64_t>(bufferSize));
}

TEST_P(ReadingContract, SingleCharactersComeFromReadsOfWholeBuffers) {
    const std::string data = pattern(150);
    RecordingDevice device(data);
    const auto stream = open(inputOf(device));
    EXPECT_THAT(device.calls(), IsEmpty()) << "nothing is read before it is wanted";
    std::string characters;
    for (int next = stream->buffer().sbumpc(); next != endOfFile;
         next = stream->buffer().sbumpc()) {
        characters.push_back(static_cast<char>(next));
    }
    EXPECT_EQ(characters, data);
    const std::size_t filled = (data.size() + bufferSize() - 1) / bufferSize();
    EXPECT_EQ(device.calls(), std::vector<Call>(filled + 1, wholeBuffer(bufferSize())));
}

TEST_P(ReadingContract, LookingAtACharacterDoesNotConsumeIt) {
    RecordingDevice device("ab");
    const auto stream = open(inputOf(device));
    EXPECT_EQ(stream->buffer().sgetc(), 'a');
    EXPECT_EQ(stream->buffer().sgetc(), 'a');
    EXPECT_THAT(device.calls(), ElementsAre(wholeBuffer(bufferSize())));
    EXPECT_EQ(stream->buffer().snextc(), 'b');
}

TEST_P(ReadingContract, BulkReadsAskForTheNextMultipleAboveTheRest) {
    const std::string data = pattern(8 * bufferSize() + 10);
    for (const std::size_t length : lengths()) {
        SCOPED_TRACE(length);
        RecordingDevice device(data);
        const auto stream = open(inputOf(device));
        EXPECT_EQ(take(stream->buffer(), length), data.substr(0, length));
        if (length == 0) {
            EXPECT_THAT(device.takeCalls(), IsEmpty());
            continue;
        }
        const std::size_t request = (length / bufferSize() + 1) * bufferSize();
        EXPECT_THAT(device.takeCalls(), ElementsAre(readCall(static_cast<std::int64_t>(request))));

        const std::size_t readAhead = request - length;
        EXPECT_EQ(take(stream->buffer(), readAhead), data.substr(length, readAhead));
        EXPECT_THAT(device.takeCalls(), IsEmpty()) << "the rest of the buffer was read ahead";
        EXPECT_EQ(stream->buffer().sbumpc(), static_cast<unsigned char>(data[request]));
        EXPECT_THAT(device.takeCalls(), ElementsAre(wholeBuffer(bufferSize())));
    }
}

TEST_P(ReadingContract, BulkReadsTakeTheReadAheadFirst) {
    const std::string data = pattern(8 * bufferSize());
    RecordingDevice device(data);
    const auto stream = open(inputOf(device));
    stream->buffer().sbumpc();
    device.takeCalls();
    const std::size_t length = 2 * bufferSize() + 1;
    EXPECT_EQ(take(stream->buffer(), length), data.substr(1, length));
    const std::size_t rest = length - (bufferSize() - 1);
    const std::size_t request = (rest / bufferSize() + 1) * bufferSize();
    EXPECT_THAT(device.calls(), ElementsAre(readCall(static_cast<std::int64_t>(request))));
}

TEST_P(ReadingContract, AShortReadIsAShortCountWithoutASecondCall) {
    const std::string data = pattern(20);
    RecordingDevice device(data);
    const std::size_t wanted = 3 * bufferSize() + 1;
    device.onCall(Operation::read, 1, Reply::with(3));
    const auto stream = open(inputOf(device));
    const std::size_t delivered = std::min<std::size_t>(wanted, 3);
    EXPECT_EQ(take(stream->buffer(), wanted), data.substr(0, delivered));
    EXPECT_EQ(device.calls().size(), 1u);
}

TEST_P(ReadingContract, TheEndOfDataIsAskedForAgainEachTime) {
    RecordingDevice device("x");
    const auto stream = open(inputOf(device));
    EXPECT_EQ(stream->buffer().sbumpc(), 'x');
    device.takeCalls();
    EXPECT_EQ(stream->buffer().sgetc(), endOfFile);
    EXPECT_EQ(stream->buffer().sgetc(), endOfFile);
    EXPECT_EQ(take(stream->buffer(), 1), "");
    EXPECT_EQ(device.takeCalls().size(), 3u);

    device.write()("y more"); // The device writes at its start.
    device.write()("z");
    EXPECT_EQ(stream->buffer().sbumpc(), ' ') << "what has been added since is delivered";
}

TEST_P(ReadingContract, EveryByteIsACharacterOfItsOwnValue) {
    RecordingDevice device(allBytes() + "\xff\xff");
    const auto stream = open(inputOf(device));
    for (int byte = 0; byte < 256; ++byte) {
        ASSERT_EQ(stream->buffer().sgetc(), byte);
        ASSERT_EQ(stream->buffer().sbumpc(), byte);
    }
    EXPECT_EQ(take(stream->buffer(), 2), "\xff\xff");
    EXPECT_EQ(stream->buffer().sgetc(), endOfFile);
}

TEST_P(ReadingContract, RandomBytesArriveUnchangedInChunksOfAnySize) {
    std::mt19937 random(20240607);
    const std::string data = randomBytes(30000, random);
    RecordingDevice device(data);
    const auto stream = open(inputOf(device));
    std::string arrived;
    while (arrived.size() < data.size()) {
        if (random() % 3 == 0) {
            const int next = stream->buffer().sbumpc();
            ASSERT_NE(next, endOfFile);
            arrived.push_back(static_cast<char>(next));
        } else {
            arrived += take(stream->buffer(), random() % 700);
        }
    }
    EXPECT_EQ(arrived, data);
}

TEST_P(ReadingContract, AStandardStreamReadsItAll) {
    std::mt19937 random(7);
    const std::string data = randomBytes(10000, random);
    RecordingDevice device(data);
    const auto stream = open(inputOf(device));
    std::istream input(&stream->buffer());
    const std::string arrived{std::istreambuf_iterator<char>(input), {}};
    EXPECT_EQ(arrived, data);
}

TEST_P(ReadingContract, ADeviceWithoutReadIsAtItsEnd) {
    RecordingDevice device("data");
    const auto stream = open(outputOf(device));
    EXPECT_EQ(stream->buffer().sgetc(), endOfFile);
    EXPECT_EQ(stream->buffer().sbumpc(), endOfFile);
    EXPECT_EQ(take(stream->buffer(), 3), "");
    EXPECT_EQ(stream->buffer().sungetc(), endOfFile);
    EXPECT_THAT(device.calls(), IsEmpty());
}

TEST_P(ReadingContract, ADeviceThatThrowsIsAtItsEnd) {
    RecordingDevice device("data");
    device.onCall(Operation::read, 1, Reply::throwing(DeviceError("out of paper")));
    device.onCall(Operation::read, 2, Reply::throwing(42));
    const auto stream = open(inputOf(device));
    EXPECT_EQ(stream->buffer().sgetc(), endOfFile);
    EXPECT_EQ(take(stream->buffer(), 3), "");
    EXPECT_EQ(stream->buffer().sgetc(), 'd') << "the device has recovered";
}

TEST_P(ReadingContract, AnAnswerLongerThanAskedForIsAnError) {
    RecordingDevice device(pattern(3 * bufferSize()));
    const auto asked = static_cast<std::int64_t>(bufferSize());
    device.onCall(Operation::read, 1, Reply::with(asked + 1));
    const auto stream = open(inputOf(device));
    EXPECT_THAT(
        [&] { stream->buffer().sgetc(); }, testing::ThrowsMessage<std::length_error>(testing::AllOf(
                                               testing::HasSubstr(std::to_string(asked)),
                                               testing::HasSubstr(std::to_string(asked + 1)))));
}

} // namespace
} // namespace agent::orvi::streambuf::test
