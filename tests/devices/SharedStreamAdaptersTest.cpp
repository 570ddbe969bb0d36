#include "FakePublication.hpp"
#include "RecordingStreambuf.hpp"

#include "support/DeviceError.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>

namespace agent::orvi::streambuf::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::ThrowsMessage;

constexpr int in = static_cast<int>(std::ios_base::in);
constexpr int out = static_cast<int>(std::ios_base::out);
constexpr int end = static_cast<int>(std::ios_base::end);

TEST(SharedStreamAdapterTest, PublishesAnInputStreamOnceWithoutAWriteOperation) {
    FakePublication publication;
    const auto buffer = makeDevice(
        exampleUuid(), std::shared_ptr<std::istream>(std::make_shared<std::istringstream>("abc")));

    ASSERT_EQ(publication.calls.size(), 1U);
    const Published& published = publication.calls[0];
    EXPECT_EQ(published.uuid, exampleUuid());
    EXPECT_EQ(published.bufferSize, 4096U);
    EXPECT_FALSE(published.operations.write);
    EXPECT_EQ(published.operations.seekoff(0, end, in), std::streampos(3));
    EXPECT_EQ(published.operations.seekpos(1, in), std::streampos(1));
    EXPECT_EQ(published.operations.read(10), "bc");
    EXPECT_EQ(buffer.toBytes().front(), 0x00);
}

TEST(SharedStreamAdapterTest, PublishesAnOutputStreamOnceWithoutAReadOperation) {
    FakePublication publication;
    const auto stream = std::make_shared<std::ostringstream>();
    const auto buffer = makeDevice(exampleUuid(), std::shared_ptr<std::ostream>(stream));

    ASSERT_EQ(publication.calls.size(), 1U);
    const Published& published = publication.calls[0];
    EXPECT_EQ(published.uuid, exampleUuid());
    EXPECT_EQ(published.bufferSize, 4096U);
    EXPECT_FALSE(published.operations.read);
    EXPECT_EQ(published.operations.write("abc"), 3);
    EXPECT_EQ(published.operations.seekoff(-1, end, out), std::streampos(2));
    EXPECT_EQ(published.operations.write("X"), 1);
    EXPECT_EQ(published.operations.seekpos(0, out), std::streampos(0));
    EXPECT_EQ(published.operations.write("Y"), 1);
    EXPECT_EQ(stream->str(), "YbX");
}

TEST(SharedStreamAdapterTest, RefusesANullPointerBeforePublishing) {
    FakePublication publication;

    EXPECT_THAT(
        [] { makeDevice(exampleUuid(), std::shared_ptr<std::istream>()); },
        ThrowsMessage<std::runtime_error>(
            "makeDevice - The istream is ill-formed, so cannot create streambuf."));
    EXPECT_THAT(
        [] { makeDevice(exampleUuid(), std::shared_ptr<std::ostream>()); },
        ThrowsMessage<std::runtime_error>(
            "makeDevice - The ostream is ill-formed, so cannot create streambuf."));

    EXPECT_THAT(publication.calls, IsEmpty());
}

TEST(SharedStreamAdapterTest, FollowsTheInstalledBufferFromCallToCall) {
    FakePublication publication;
    RecordingStreambuf first("first");
    RecordingStreambuf second("second");
    const auto input = std::make_shared<std::istream>(&first);
    const auto output = std::make_shared<std::ostream>(&first);
    const auto reader = makeDevice(exampleUuid(), input);
    const auto writer = makeDevice(exampleUuid(), output);
    const Operations& reading = publication.calls.at(0).operations;
    const Operations& writing = publication.calls.at(1).operations;
    reading.read(5);
    writing.write("1");

    input->rdbuf(&second);
    output->rdbuf(&second);
    EXPECT_EQ(reading.read(5), "secon");
    reading.seekoff(1, 0, in);
    reading.seekpos(2, in);
    writing.write("2");
    writing.seekoff(3, 0, out);
    writing.seekpos(4, out);
    input->rdbuf(&first);
    EXPECT_EQ(reading.read(5), "");

    EXPECT_THAT(first.calls, ElementsAre("xsgetn 5", "xsputn 1", "xsgetn 5"));
    EXPECT_THAT(
        second.calls, ElementsAre(
                          "xsgetn 5", "seekoff 1 0 8", "seekpos 2 8", "xsputn 2", "seekoff 3 0 16",
                          "seekpos 4 16"));
}

TEST(SharedStreamAdapterTest, UsesTheBufferInstalledInAFileStreamsBase) {
    FakePublication publication;
    RecordingStreambuf installed("installed");
    const auto file = std::make_shared<std::ifstream>();
    file->std::ios::rdbuf(&installed);
    const auto device = makeDevice(exampleUuid(), std::shared_ptr<std::istream>(file));

    EXPECT_EQ(publication.calls.at(0).operations.read(4), "inst");
    file->std::ios::rdbuf(nullptr); // the stream is destroyed after what it points to
}

TEST(SharedStreamAdapterTest, FailsWhileNoBufferIsInstalled) {
    FakePublication publication;
    RecordingStreambuf installed("abc");
    const auto input = std::make_shared<std::istream>(nullptr);
    const auto output = std::make_shared<std::ostream>(nullptr);
    const auto reader = makeDevice(exampleUuid(), input);
    const auto writer = makeDevice(exampleUuid(), output);
    const Operations& reading = publication.calls.at(0).operations;
    const Operations& writing = publication.calls.at(1).operations;
    const auto failure = ThrowsMessage<std::runtime_error>("The stream has no buffer installed.");

    EXPECT_THAT([&] { reading.read(1); }, failure);
    EXPECT_THAT([&] { reading.seekoff(0, 0, in); }, failure);
    EXPECT_THAT([&] { reading.seekpos(0, in); }, failure);
    EXPECT_THAT([&] { writing.write("x"); }, failure);

    input->rdbuf(&installed);
    EXPECT_EQ(reading.read(3), "abc");
}

TEST(SharedStreamAdapterTest, NeitherReadsNorChangesTheStreamsState) {
    FakePublication publication;
    const auto input = std::make_shared<std::istringstream>("abcdef");
    const auto output = std::make_shared<std::ostringstream>();
    char skipped[2];
    input->read(skipped, 2);
    input->setstate(std::ios_base::failbit | std::ios_base::badbit | std::ios_base::eofbit);
    output->setstate(std::ios_base::badbit);
    const auto reader = makeDevice(exampleUuid(), std::shared_ptr<std::istream>(input));
    const auto writer = makeDevice(exampleUuid(), std::shared_ptr<std::ostream>(output));
    const Operations& reading = publication.calls.at(0).operations;
    const Operations& writing = publication.calls.at(1).operations;
    const auto inputState = input->rdstate();

    EXPECT_EQ(reading.read(3), "cde");
    EXPECT_EQ(reading.read(3), "f");
    EXPECT_EQ(reading.read(3), "");
    EXPECT_EQ(reading.seekoff(100, 0, in), std::streampos(std::streamoff(-1)));
    EXPECT_EQ(writing.write("abc"), 3);
    EXPECT_EQ(writing.seekpos(100, out), std::streampos(std::streamoff(-1)));

    EXPECT_EQ(input->rdstate(), inputState);
    EXPECT_EQ(input->gcount(), 2);
    EXPECT_EQ(output->rdstate(), std::ios_base::badbit);
    EXPECT_EQ(output->str(), "abc");
}

TEST(SharedStreamAdapterTest, ThrowsNothingForTheStreamsExceptionMask) {
    FakePublication publication;
    const auto input = std::make_shared<std::istringstream>("abc");
    input->exceptions(std::ios_base::eofbit | std::ios_base::failbit | std::ios_base::badbit);
    const auto device = makeDevice(exampleUuid(), std::shared_ptr<std::istream>(input));
    const Operations& reading = publication.calls.at(0).operations;

    EXPECT_EQ(reading.read(10), "abc");
    EXPECT_EQ(reading.read(10), "");
    EXPECT_EQ(reading.seekpos(100, in), std::streampos(std::streamoff(-1)));

    EXPECT_TRUE(input->good());
}

TEST(SharedStreamAdapterTest, HoldsTheStreamOncePerOperation) {
    FakePublication publication;
    auto input = std::make_shared<std::istringstream>("abc");
    auto output = std::make_shared<std::ostringstream>();
    const auto reader = makeDevice(exampleUuid(), std::shared_ptr<std::istream>(input));
    const auto writer = makeDevice(exampleUuid(), std::shared_ptr<std::ostream>(output));
    EXPECT_EQ(input.use_count(), 1 + 3);
    EXPECT_EQ(output.use_count(), 1 + 3);

    const std::weak_ptr<std::istringstream> watch = input;
    input.reset();
    EXPECT_EQ(publication.calls[0].operations.read(3), "abc");
    publication.calls[0].operations.read = nullptr;
    publication.calls[0].operations.seekoff = nullptr;
    EXPECT_EQ(watch.use_count(), 1);
    EXPECT_EQ(publication.calls[0].operations.seekpos(1, in), std::streampos(1));
    publication.calls[0].operations.seekpos = nullptr;
    EXPECT_TRUE(watch.expired());
}

TEST(SharedStreamAdapterTest, LetsGoOfTheStreamWhenPublishingFails) {
    FakePublication publication;
    publication.refusal = std::make_exception_ptr(DeviceError("refused"));
    const auto input = std::make_shared<std::istringstream>("abc");
    const auto output = std::make_shared<std::ostringstream>();

    EXPECT_THAT(
        [&] { makeDevice(exampleUuid(), std::shared_ptr<std::istream>(input)); },
        ThrowsMessage<DeviceError>("refused"));
    EXPECT_THAT(
        [&] { makeDevice(exampleUuid(), std::shared_ptr<std::ostream>(output)); },
        ThrowsMessage<DeviceError>("refused"));

    EXPECT_EQ(input.use_count(), 1);
    EXPECT_EQ(output.use_count(), 1);
}

} // namespace
} // namespace agent::orvi::streambuf::test
