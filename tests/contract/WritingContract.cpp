#include "contract/StreamContract.hpp"

#include "support/Characters.hpp"
#include "support/DeviceError.hpp"

#include <gmock/gmock.h>

#include <cstdint>
#include <ostream>
#include <random>
#include <string>
#include <vector>

namespace agent::orvi::streambuf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// Return what a bulk write into an empty put area makes the device see.
std::vector<Call> callsOfBulkWrite(const std::string& data, std::size_t bufferSize) {
    if (data.size() <= bufferSize) {
        return {};
    }
    std::vector<Call> calls = {writeCall(data.substr(0, bufferSize))};
    if (data.size() > 2 * bufferSize) {
        calls.push_back(writeCall(data.substr(bufferSize)));
    }
    return calls;
}

TEST_P(WritingContract, SingleCharactersGoInWholeBuffers) {
    const std::string data = pattern(150);
    RecordingDevice device;
    const auto stream = open(outputOf(device));
    std::vector<Call> expected;
    for (std::size_t index = 0; index < data.size(); ++index) {
        if (index > 0 && index % bufferSize() == 0) {
            expected.push_back(writeCall(data.substr(index - bufferSize(), bufferSize())));
        }
        ASSERT_EQ(stream->buffer().sputc(data[index]), static_cast<unsigned char>(data[index]));
        ASSERT_EQ(device.calls(), expected) << "after " << index + 1;
    }
    EXPECT_EQ(stream->buffer().pubsync(), 0);
    EXPECT_EQ(device.bytes(), data);
}

TEST_P(WritingContract, BulkWritesTakeTwoCallsAtMost) {
    for (const std::size_t length : lengths()) {
        SCOPED_TRACE(length);
        const std::string data = pattern(length);
        RecordingDevice device;
        const auto stream = open(outputOf(device));
        EXPECT_EQ(put(stream->buffer(), data), static_cast<std::streamsize>(length));
        EXPECT_EQ(device.calls(), callsOfBulkWrite(data, bufferSize()));
        EXPECT_EQ(stream->buffer().pubsync(), 0);
        EXPECT_EQ(device.bytes(), data);
        device.takeCalls();
        EXPECT_EQ(stream->buffer().pubsync(), 0);
        EXPECT_THAT(device.calls(), IsEmpty()) << "nothing is pending any more";
    }
}

TEST_P(WritingContract, AFlushWritesWhatIsPendingOnce) {
    RecordingDevice device;
    const auto stream = open(outputOf(device));
    EXPECT_EQ(stream->buffer().sputc('a'), 'a');
    EXPECT_EQ(stream->buffer().pubsync(), 0);
    EXPECT_EQ(stream->buffer().sputc('b'), 'b');
    EXPECT_EQ(stream->buffer().pubsync(), 0);
    EXPECT_THAT(device.calls(), ElementsAre(writeCall("a"), writeCall("b")));
}

TEST_P(WritingContract, TheEndFlushesOnce) {
    RecordingDevice device;
    {
        const auto stream = open(outputOf(device));
        EXPECT_EQ(stream->buffer().sputc('a'), 'a');
        EXPECT_THAT(device.calls(), IsEmpty());
    }
    EXPECT_THAT(device.calls(), ElementsAre(writeCall("a")));
}

TEST_P(WritingContract, TheEndIsQuietWhenTheDeviceFails) {
    for (const Reply& failure : {Reply::with(0), Reply::throwing(DeviceError("out of paper"))}) {
        RecordingDevice device;
        device.always(Operation::write, failure);
        {
            const auto stream = open(outputOf(device));
            EXPECT_EQ(stream->buffer().sputc('a'), 'a');
        }
        EXPECT_THAT(device.calls(), ElementsAre(writeCall("a")));
    }
}

TEST_P(WritingContract, AFlushThatFallsShortKeepsTheRest) {
    const std::string data = pattern(bufferSize());
    for (std::size_t taken = 0; taken < std::min<std::size_t>(data.size(), 5); ++taken) {
        SCOPED_TRACE(taken);
        RecordingDevice device;
        device.onCall(Operation::write, 1, Reply::with(static_cast<std::int64_t>(taken)));
        const auto stream = open(outputOf(device));
        put(stream->buffer(), data);
        EXPECT_EQ(stream->buffer().pubsync(), -1);
        EXPECT_EQ(stream->buffer().pubsync(), 0);
        EXPECT_THAT(device.calls(), ElementsAre(writeCall(data), writeCall(data.substr(taken))));
        EXPECT_EQ(device.bytes(), data);
    }
}

TEST_P(WritingContract, AFlushWithAnImpossibleCountChangesNothing) {
    for (const std::int64_t count : {-1, 2, 1000000}) {
        RecordingDevice device;
        device.onCall(Operation::write, 1, Reply::with(count));
        const auto stream = open(outputOf(device));
        stream->buffer().sputc('a');
        EXPECT_EQ(stream->buffer().pubsync(), -1);
        EXPECT_EQ(stream->buffer().pubsync(), 0);
        EXPECT_THAT(device.calls(), ElementsAre(writeCall("a"), writeCall("a")));
    }
}

TEST_P(WritingContract, AFullBufferThatIsNotTakenRefusesTheCharacter) {
    const std::string full = pattern(bufferSize());
    RecordingDevice device;
    device.onCall(Operation::write, 1, Reply::with(static_cast<std::int64_t>(bufferSize()) - 1));
    const auto stream = open(outputOf(device));
    put(stream->buffer(), full);
    EXPECT_EQ(stream->buffer().sputc('z'), endOfFile);
    EXPECT_EQ(stream->buffer().sputc('z'), 'z') << "the whole buffer is written again";
    EXPECT_THAT(device.calls(), ElementsAre(writeCall(full), writeCall(full)));
}

TEST_P(WritingContract, AFullBufferCountsAsTakenByTheLowBitsOfTheAnswer) {
    const std::string full = pattern(bufferSize());
    for (const std::int64_t answer :
         {std::int64_t{-1}, (std::int64_t{1} << 32) + static_cast<std::int64_t>(bufferSize())}) {
        RecordingDevice device;
        device.onCall(Operation::write, 1, Reply::with(answer));
        const auto stream = open(outputOf(device));
        put(stream->buffer(), full);
        EXPECT_EQ(stream->buffer().sputc('z'), 'z');
        EXPECT_EQ(stream->buffer().pubsync(), 0);
        EXPECT_THAT(device.calls(), ElementsAre(writeCall(full), writeCall("z")));
    }
}

TEST_P(WritingContract, ABulkWriteIsAllOrNothing) {
    const std::string data = pattern(2 * bufferSize() + 1);
    for (const int failingCall : {1, 2}) {
        SCOPED_TRACE(failingCall);
        RecordingDevice device;
        device.onCall(Operation::write, failingCall, Reply::with(0));
        const auto stream = open(outputOf(device));
        EXPECT_EQ(put(stream->buffer(), data), 0);
        EXPECT_EQ(device.takeCalls().size(), static_cast<std::size_t>(failingCall));
        EXPECT_EQ(stream->buffer().pubsync(), 0);
        EXPECT_THAT(device.calls(), IsEmpty()) << "nothing of it is pending";
    }
}

TEST_P(WritingContract, RandomBytesArriveUnchangedInChunksOfAnySize) {
    std::mt19937 random(19700101);
    std::string sent;
    RecordingDevice device;
    {
        const auto stream = open(outputOf(device));
        while (sent.size() < 30000) {
            std::string chunk(random() % 700 + 1, '\0');
            for (char& byte : chunk) {
                byte = static_cast<char>(random());
            }
            if (random() % 3 == 0) {
                chunk.resize(1);
                ASSERT_EQ(stream->buffer().sputc(chunk[0]), static_cast<unsigned char>(chunk[0]));
            } else {
                ASSERT_EQ(put(stream->buffer(), chunk), static_cast<std::streamsize>(chunk.size()));
            }
            sent += chunk;
        }
    }
    EXPECT_EQ(device.bytes(), sent);
}

TEST_P(WritingContract, AStandardStreamWritesItAll) {
    RecordingDevice device;
    {
        const auto stream = open(outputOf(device));
        std::ostream output(&stream->buffer());
        for (int line = 0; line < 1000; ++line) {
            output << "line " << line << '\n';
        }
        output.flush();
        EXPECT_TRUE(output.good());
    }
    std::string expected;
    for (int line = 0; line < 1000; ++line) {
        expected += "line " + std::to_string(line) + "\n";
    }
    EXPECT_EQ(device.bytes(), expected);
}

TEST_P(WritingContract, ADeviceWithoutWriteTakesNothing) {
    RecordingDevice device("data");
    const auto stream = open(inputOf(device));
    EXPECT_EQ(stream->buffer().sputc('x'), endOfFile);
    EXPECT_EQ(put(stream->buffer(), "xyz"), 0);
    EXPECT_EQ(stream->buffer().pubsync(), 0);
    EXPECT_THAT(device.calls(), IsEmpty());
}

TEST_P(WritingContract, ADeviceThatThrowsTakesNothing) {
    const std::string full = pattern(bufferSize());
    RecordingDevice device;
    device.onCall(Operation::write, 1, Reply::throwing(DeviceError("out of paper")));
    device.onCall(Operation::write, 2, Reply::throwing(42));
    const auto stream = open(outputOf(device));
    put(stream->buffer(), full);
    EXPECT_EQ(stream->buffer().sputc('z'), endOfFile);
    EXPECT_EQ(stream->buffer().pubsync(), -1);
    EXPECT_EQ(stream->buffer().pubsync(), 0);
    EXPECT_EQ(device.bytes(), full);
}

} // namespace
} // namespace agent::orvi::streambuf::test
