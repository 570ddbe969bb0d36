#include "support/Characters.hpp"
#include "support/DeviceError.hpp"
#include "support/StreamBuffers.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace agent::orvi::streambuf::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::ThrowsMessage;

TEST(UnderflowTest, AsksForTheBufferSizeAndStaysAtTheFirstCharacter) {
    RecordingDevice device(pattern(5000));
    auto buffer = makeExposedBuffer(inputOf(device), 1024);

    EXPECT_EQ(buffer.underflow(), pattern(1)[0]);

    EXPECT_THAT(device.calls(), ElementsAre(readCall(1024)));
    EXPECT_EQ(buffer.getPosition(), 0);
    EXPECT_EQ(buffer.getEnd(), 1024);
    EXPECT_EQ(buffer.getCharacters(), pattern(1024));
}

TEST(UnderflowTest, MakesNoCallWhileCharactersRemain) {
    RecordingDevice device("abcd");
    auto buffer = makeExposedBuffer(inputOf(device), 4);
    buffer.sbumpc();
    device.takeCalls();

    EXPECT_EQ(buffer.underflow(), 'b');
    EXPECT_EQ(buffer.underflow(), 'b');

    EXPECT_EQ(buffer.getPosition(), 1);
    EXPECT_THAT(device.calls(), IsEmpty());
}

TEST(UnderflowTest, FetchesTheNextBlockOnceTheAreaIsUsedUp) {
    RecordingDevice device(pattern(7));
    auto buffer = makeExposedBuffer(inputOf(device), 3);
    std::string read;
    for (int character = buffer.sbumpc(); character != endOfFile; character = buffer.sbumpc()) {
        read += static_cast<char>(character);
    }

    EXPECT_EQ(read, pattern(7));
    EXPECT_THAT(device.calls(), ElementsAre(readCall(3), readCall(3), readCall(3), readCall(3)));
}

TEST(UnderflowTest, DeliversEveryByteAsItsUnsignedValue) {
    std::string bytes(256, '\0');
    for (int value = 0; value < 256; ++value) {
        bytes[static_cast<std::size_t>(value)] = static_cast<char>(value);
    }
    RecordingDevice device(bytes);
    auto buffer = makeBuffer(inputOf(device), 1);

    for (int value = 0; value < 256; ++value) {
        ASSERT_EQ(buffer.sgetc(), value);
        ASSERT_EQ(buffer.sbumpc(), value);
    }
    EXPECT_EQ(buffer.sbumpc(), endOfFile);
}

TEST(UnderflowTest, DeliversByte255FromTheAreaTooAndNotAsEndOfFile) {
    RecordingDevice device("\xff\xff");
    auto buffer = makeExposedBuffer(inputOf(device), 2);

    EXPECT_EQ(buffer.underflow(), 255);
    EXPECT_EQ(buffer.underflow(), 255);
}

TEST(UnderflowTest, EndsAtAnEmptyAnswerWithTheAreaAtTheStartOfTheBuffer) {
    RecordingDevice device;
    auto buffer = makeExposedBuffer(inputOf(device), 16);

    EXPECT_EQ(buffer.underflow(), endOfFile);

    EXPECT_EQ(buffer.getPosition(), 0);
    EXPECT_EQ(buffer.getEnd(), 0);
    EXPECT_THAT(device.calls(), ElementsAre(readCall(16)));
}

TEST(UnderflowTest, AsksAgainAfterAnEndOfFile) {
    RecordingDevice device("x");
    device.onCall(Operation::read, 1, Reply::with(0));
    auto buffer = makeBuffer(inputOf(device), 16);

    EXPECT_EQ(buffer.sgetc(), endOfFile);
    EXPECT_EQ(buffer.sgetc(), 'x');

    EXPECT_THAT(device.calls(), ElementsAre(readCall(16), readCall(16)));
}

TEST(UnderflowTest, EndsTheAreaAfterAShortAnswer) {
    RecordingDevice device(pattern(20));
    device.onCall(Operation::read, 1, Reply::with(5));
    auto buffer = makeExposedBuffer(inputOf(device), 16);

    EXPECT_EQ(buffer.underflow(), pattern(1)[0]);

    EXPECT_EQ(buffer.getPosition(), 0);
    EXPECT_EQ(buffer.getEnd(), 5);
    EXPECT_EQ(buffer.getCharacters(), pattern(5));
    EXPECT_EQ(buffer.in_avail(), 5);
}

TEST(UnderflowTest, IsEndOfFileWithoutAReadOperation) {
    RecordingDevice device("abc");
    auto buffer = makeExposedBuffer(outputOf(device), 16);

    EXPECT_EQ(buffer.underflow(), endOfFile);
    EXPECT_EQ(buffer.sbumpc(), endOfFile);
    EXPECT_EQ(buffer.in_avail(), 0);

    EXPECT_THAT(device.calls(), IsEmpty());
    EXPECT_FALSE(buffer.hasGetArea());
}

TEST(UnderflowTest, PassesAnExceptionOnAndLeavesTheAreaAsItWas) {
    RecordingDevice device(pattern(8));
    device.onCall(Operation::read, 2, Reply::throwing(DeviceError("out of paper")));
    auto buffer = makeExposedBuffer(inputOf(device), 4);
    take(buffer, 3);
    buffer.sbumpc();

    EXPECT_THAT([&] { buffer.sgetc(); }, ThrowsMessage<DeviceError>("out of paper"));

    EXPECT_EQ(buffer.getPosition(), 4);
    EXPECT_EQ(buffer.getEnd(), 4);
    EXPECT_EQ(buffer.getCharacters(), pattern(4));
    EXPECT_EQ(buffer.sungetc(), pattern(4)[3]);
    EXPECT_EQ(take(buffer, 5), pattern(5, 3));
}

TEST(UnderflowTest, PassesOnWhatIsNoStandardException) {
    RecordingDevice device;
    device.onCall(Operation::read, 1, Reply::throwing(42));
    auto buffer = makeBuffer(inputOf(device), 4);

    try {
        buffer.sgetc();
        ADD_FAILURE() << "nothing was thrown";
    } catch (int thrown) {
        EXPECT_EQ(thrown, 42);
    }
}

TEST(UnderflowTest, RefusesAnAnswerLongerThanAskedAndLeavesTheAreaAsItWas) {
    RecordingDevice device(pattern(30));
    device.onCall(Operation::read, 2, Reply::with(5));
    auto buffer = makeExposedBuffer(inputOf(device), 4);
    EXPECT_EQ(take(buffer, 2), pattern(2));
    EXPECT_EQ(take(buffer, 2), pattern(2, 2));

    EXPECT_THAT(
        [&] { buffer.sgetc(); },
        ThrowsMessage<std::length_error>(
            "The device answered a read of 4 characters with 5 characters."));

    EXPECT_EQ(buffer.getPosition(), 4);
    EXPECT_EQ(buffer.getEnd(), 4);
    EXPECT_EQ(buffer.getCharacters(), pattern(4));
}

// What surrounds the get area is the standard library's and stays so.

TEST(PutBackTest, ReturnsDeliveredCharactersOfTheSameBlock) {
    RecordingDevice device("abcdef");
    auto buffer = makeBuffer(inputOf(device), 3);
    EXPECT_EQ(take(buffer, 4), "abcd");

    EXPECT_EQ(buffer.sungetc(), 'd');
    EXPECT_EQ(buffer.sungetc(), endOfFile);
    EXPECT_EQ(take(buffer, 3), "def");
}

TEST(PutBackTest, RefusesACharacterThatWasNotThere) {
    RecordingDevice device("abc");
    auto buffer = makeExposedBuffer(inputOf(device), 3);
    EXPECT_EQ(take(buffer, 2), "ab");

    EXPECT_EQ(buffer.sputbackc('x'), endOfFile);
    EXPECT_EQ(buffer.getCharacters(), "abc");
    EXPECT_EQ(buffer.sputbackc('b'), 'b');
    EXPECT_EQ(take(buffer, 2), "bc");
}

TEST(PutBackTest, FailsWithoutAReadOperation) {
    RecordingDevice device;
    auto buffer = makeBuffer(outputOf(device), 3);

    EXPECT_EQ(buffer.sungetc(), endOfFile);
    EXPECT_EQ(buffer.sputbackc('a'), endOfFile);
}

} // namespace
} // namespace agent::orvi::streambuf::test
