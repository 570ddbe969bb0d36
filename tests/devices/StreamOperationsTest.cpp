#include "FakePublication.hpp"
#include "RecordingStreambuf.hpp"

#include "support/DeviceError.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <istream>
#include <limits>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <utility>

namespace agent::orvi::streambuf::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::ThrowsMessage;

/// The operations that the adapters build over a stream's buffer, before any guard.
class StreamOperationsTest : public ::testing::Test {
protected:
    RecordingStreambuf buffer{"abcdefgh"};
    FakePublication publication;
    StreamBuffer input = makeDevice(exampleUuid(), std::make_shared<std::istream>(&buffer));
    StreamBuffer output = makeDevice(exampleUuid(), std::make_shared<std::ostream>(&buffer));
    Operations& reading = publication.calls.at(0).operations;
    Operations& writing = publication.calls.at(1).operations;
};

TEST_F(StreamOperationsTest, ReadOnceWhatIsAskedFor) {
    EXPECT_EQ(reading.read(5), "abcde");
    EXPECT_EQ(reading.read(5), "fgh");
    EXPECT_EQ(reading.read(5), "");

    EXPECT_THAT(buffer.calls, ElementsAre("xsgetn 5", "xsgetn 5", "xsgetn 5"));
}

TEST_F(StreamOperationsTest, ReadNothingForACountOfZero) {
    EXPECT_EQ(reading.read(0), "");
    EXPECT_THAT(buffer.calls, ElementsAre("xsgetn 0"));
}

TEST_F(StreamOperationsTest, ReadLongStringsToo) {
    buffer.bytes = pattern(100'000);
    EXPECT_EQ(reading.read(100'001), pattern(100'000));
    EXPECT_THAT(buffer.calls, ElementsAre("xsgetn 100001"));
}

TEST_F(StreamOperationsTest, RefuseToReadANegativeCount) {
    for (const std::int64_t count : {std::int64_t{-1}, std::numeric_limits<std::int64_t>::min()}) {
        SCOPED_TRACE(count);
        EXPECT_THAT(
            [&] { reading.read(count); }, ThrowsMessage<std::length_error>("string too long"));
    }
    EXPECT_THAT(buffer.calls, IsEmpty());
}

TEST_F(StreamOperationsTest, NeverReturnMoreThanWasAskedForOrLessThanNothing) {
    buffer.answer = 100;
    EXPECT_EQ(reading.read(3), "abc");
    buffer.answer = -1;
    EXPECT_EQ(reading.read(3), "");
}

TEST_F(StreamOperationsTest, PassAnExceptionInTheMiddleOfAReadOn) {
    buffer.failure = std::make_exception_ptr(DeviceError("torn tape"));
    EXPECT_THAT([&] { reading.read(3); }, ThrowsMessage<DeviceError>("torn tape"));

    buffer.failure = nullptr;
    EXPECT_EQ(reading.read(3), "def");
}

TEST_F(StreamOperationsTest, WriteOnceAndFlushNothing) {
    EXPECT_EQ(writing.write("12345"), 5);
    EXPECT_EQ(writing.write(""), 0);
    EXPECT_EQ(writing.write(std::string("\0\xff", 2)), 2);

    EXPECT_THAT(
        buffer.calls, ElementsAre("xsputn 12345", "xsputn ", std::string("xsputn \0\xff", 9)));
}

TEST_F(StreamOperationsTest, ReportTheBuffersCountUnchanged) {
    for (const std::int64_t answer :
         {std::int64_t{3}, std::int64_t{0}, std::int64_t{-1}, std::int64_t{99},
          std::int64_t{1} << 40}) {
        buffer.answer = answer;
        EXPECT_EQ(writing.write("12345"), answer);
    }
}

TEST_F(StreamOperationsTest, MoveWithTheValuesTheyAreGiven) {
    for (Operations* const operations : {&reading, &writing}) {
        buffer.calls.clear();
        buffer.answer = std::int64_t{1} << 40;
        EXPECT_EQ(operations->seekoff(-5, 0, 8), std::streampos(std::int64_t{1} << 40));
        EXPECT_EQ(operations->seekoff(std::int64_t{1} << 40, 2, 0), *buffer.answer);
        EXPECT_EQ(operations->seekpos(7, 24), *buffer.answer);
        EXPECT_EQ(operations->seekpos(-1, 5), *buffer.answer);
        buffer.answer.reset();
        EXPECT_EQ(operations->seekoff(0, 1, 16), std::streampos(std::streamoff(-1)));
        EXPECT_EQ(operations->seekpos(0, 16), std::streampos(std::streamoff(-1)));

        EXPECT_THAT(
            buffer.calls, ElementsAre(
                              "seekoff -5 0 8", "seekoff 1099511627776 2 0", "seekpos 7 24",
                              "seekpos -1 5", "seekoff 0 1 16", "seekpos 0 16"));
    }
}

TEST_F(StreamOperationsTest, KeepAPositionsConversionState) {
    std::mbstate_t state{};
    std::memset(&state, 0x5A, sizeof(state));
    std::streampos position(3);
    position.state(state);

    reading.seekpos(position, 8);

    EXPECT_EQ(std::memcmp(&buffer.state, &state, sizeof(state)), 0);
}

TEST_F(StreamOperationsTest, PassExceptionsOfWritesAndMovesOn) {
    buffer.failure = std::make_exception_ptr(DeviceError("stuck"));

    EXPECT_THAT([&] { writing.write("x"); }, ThrowsMessage<DeviceError>("stuck"));
    EXPECT_THAT([&] { writing.seekoff(0, 0, 16); }, ThrowsMessage<DeviceError>("stuck"));
    EXPECT_THAT([&] { writing.seekpos(0, 16); }, ThrowsMessage<DeviceError>("stuck"));
}

} // namespace
} // namespace agent::orvi::streambuf::test
