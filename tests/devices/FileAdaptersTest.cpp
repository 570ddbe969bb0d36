#include "FakePublication.hpp"
#include "RecordingStreambuf.hpp"

#include "support/DeviceError.hpp"
#include "support/TemporaryFile.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <limits>
#include <stdexcept>
#include <string>

namespace agent::orvi::streambuf::test {
namespace {

using ::testing::IsEmpty;
using ::testing::ThrowsMessage;

constexpr auto binary = std::ios_base::binary;
constexpr int in = static_cast<int>(std::ios_base::in);
constexpr int out = static_cast<int>(std::ios_base::out);
constexpr int beginning = static_cast<int>(std::ios_base::beg);
constexpr int end = static_cast<int>(std::ios_base::end);

std::streampos invalid() {
    return std::streamoff(-1);
}

TEST(FileAdapterTest, PublishesAFileForReadingAndWritingWithAllOperations) {
    const TemporaryFile temporary("abcdef");
    std::fstream file(temporary.path, std::ios_base::in | std::ios_base::out | binary);
    FakePublication publication;
    const auto buffer = makeDevice(exampleUuid(), file, 77);

    ASSERT_EQ(publication.calls.size(), 1U);
    const auto& [uuid, operations, bufferSize] = publication.calls[0];
    EXPECT_EQ(uuid, exampleUuid());
    EXPECT_EQ(bufferSize, 77U);
    EXPECT_EQ(operations.read(3), "abc");
    EXPECT_EQ(operations.seekoff(-2, end, in | out), std::streampos(4));
    EXPECT_EQ(operations.write("XYZ"), 3);
    EXPECT_EQ(operations.seekpos(3, in | out), std::streampos(3));
    EXPECT_EQ(operations.read(10), "dXYZ");
}

TEST(FileAdapterTest, PublishesAFileForReadingWithoutAWriteOperation) {
    const TemporaryFile temporary("abcdef");
    std::ifstream file(temporary.path, binary);
    FakePublication publication;
    const auto buffer = makeDevice(exampleUuid(), file, 5);

    ASSERT_EQ(publication.calls.size(), 1U);
    const auto& [uuid, operations, bufferSize] = publication.calls[0];
    EXPECT_EQ(uuid, exampleUuid());
    EXPECT_EQ(bufferSize, 5U);
    EXPECT_FALSE(operations.write);
    EXPECT_EQ(operations.seekoff(0, end, in), std::streampos(6));
    EXPECT_EQ(operations.seekpos(2, in), std::streampos(2));
    EXPECT_EQ(operations.read(10), "cdef");
}

TEST(FileAdapterTest, PublishesAFileForWritingWithoutAReadOperation) {
    const TemporaryFile temporary;
    std::ofstream file(temporary.path, binary);
    FakePublication publication;
    const auto buffer = makeDevice(exampleUuid(), file, 6);

    ASSERT_EQ(publication.calls.size(), 1U);
    const auto& [uuid, operations, bufferSize] = publication.calls[0];
    EXPECT_EQ(uuid, exampleUuid());
    EXPECT_EQ(bufferSize, 6U);
    EXPECT_FALSE(operations.read);
    EXPECT_EQ(operations.write("abcdef"), 6);
    EXPECT_EQ(operations.seekoff(1, beginning, out), std::streampos(1));
    EXPECT_EQ(operations.write("X"), 1);
    EXPECT_EQ(operations.seekpos(4, out), std::streampos(4));
    EXPECT_EQ(operations.write("Y"), 1);
    file.close();
    EXPECT_EQ(temporary.content(), "aXcdYf");
}

TEST(FileAdapterTest, PassesAnyBufferSizeOn) {
    const TemporaryFile temporary;
    std::ifstream file(temporary.path, binary);
    FakePublication publication;

    const auto none = makeDevice(exampleUuid(), file, 0);
    const auto most = makeDevice(exampleUuid(), file, std::numeric_limits<std::size_t>::max());

    EXPECT_EQ(publication.calls.at(0).bufferSize, 0U);
    EXPECT_EQ(publication.calls.at(1).bufferSize, std::numeric_limits<std::size_t>::max());
}

TEST(FileAdapterTest, RefusesAFileThatIsNotOpenBeforePublishing) {
    const TemporaryFile temporary;
    FakePublication publication;
    std::fstream both;
    std::ifstream input;
    std::ofstream output;
    for (const bool closedAgain : {false, true}) {
        if (closedAgain) {
            both.open(temporary.path);
            both.close();
            input.open(temporary.path);
            input.close();
            output.open(temporary.path);
            output.close();
        }
        EXPECT_THAT(
            [&] { makeDevice(exampleUuid(), both, 16); },
            ThrowsMessage<std::runtime_error>(
                "makeDevice - File object is invalid. Cannot create streambuf."));
        EXPECT_THAT(
            [&] { makeDevice(exampleUuid(), input, 16); },
            ThrowsMessage<std::runtime_error>(
                "makeDevice - Ifstream file object is invalid. Cannot create streambuf."));
        EXPECT_THAT(
            [&] { makeDevice(exampleUuid(), output, 16); },
            ThrowsMessage<std::runtime_error>(
                "makeDevice - Ofstream file object is invalid. Cannot create streambuf."));
    }
    EXPECT_THAT(publication.calls, IsEmpty());
}

TEST(FileAdapterTest, AcceptsAnOpenFileInAnyStateAndLeavesThatAlone) {
    const TemporaryFile temporary("abc");
    std::ifstream file(temporary.path, binary);
    file.setstate(std::ios_base::failbit | std::ios_base::badbit);
    FakePublication publication;
    const auto buffer = makeDevice(exampleUuid(), file, 16);

    EXPECT_EQ(publication.calls.at(0).operations.read(10), "abc");
    EXPECT_EQ(publication.calls.at(0).operations.read(10), "");

    EXPECT_EQ(file.rdstate(), std::ios_base::failbit | std::ios_base::badbit);
    EXPECT_EQ(file.gcount(), 0);
}

TEST(FileAdapterTest, LeavesTheEndOfFileFlagUnsetAtTheEnd) {
    const TemporaryFile temporary("abc");
    std::ifstream file(temporary.path, binary);
    FakePublication publication;
    const auto buffer = makeDevice(exampleUuid(), file, 16);
    const Operations& operations = publication.calls.at(0).operations;

    EXPECT_EQ(operations.read(5), "abc");
    for (int call = 0; call < 3; ++call) {
        EXPECT_EQ(operations.read(10), "");
        EXPECT_FALSE(file.eof());
        EXPECT_TRUE(file.good());
    }
}

TEST(FileAdapterTest, IgnoresABufferInstalledInTheStreamsBase) {
    const TemporaryFile temporary("own buffer");
    RecordingStreambuf installed("installed");
    std::fstream both(temporary.path, std::ios_base::in | std::ios_base::out | binary);
    std::ifstream input(temporary.path, binary);
    std::ofstream output(temporary.path, std::ios_base::in | binary);
    both.std::ios::rdbuf(&installed);
    FakePublication publication;
    const auto first = makeDevice(exampleUuid(), both, 16);
    const auto second = makeDevice(exampleUuid(), input, 16);
    const auto third = makeDevice(exampleUuid(), output, 16);
    input.std::ios::rdbuf(&installed);
    output.std::ios::rdbuf(&installed);

    EXPECT_EQ(publication.calls.at(0).operations.read(3), "own");
    EXPECT_EQ(publication.calls.at(0).operations.seekpos(0, in | out), std::streampos(0));
    EXPECT_EQ(publication.calls.at(1).operations.seekoff(4, beginning, in), std::streampos(4));
    EXPECT_EQ(publication.calls.at(1).operations.read(3), "buf");
    EXPECT_EQ(publication.calls.at(2).operations.write("OWN"), 3);
    EXPECT_EQ(publication.calls.at(2).operations.seekpos(0, out), std::streampos(0));

    EXPECT_THAT(installed.calls, IsEmpty());
    EXPECT_EQ(temporary.content(), "OWN buffer");
}

TEST(FileAdapterTest, FailsAsTheClosedFileDoesOnceTheCallerHasClosedIt) {
    const TemporaryFile temporary("abc");
    std::fstream file(temporary.path, std::ios_base::in | std::ios_base::out | binary);
    FakePublication publication;
    const auto buffer = makeDevice(exampleUuid(), file, 16);
    const Operations& operations = publication.calls.at(0).operations;

    file.close();

    EXPECT_EQ(operations.read(3), "");
    EXPECT_EQ(operations.write("x"), 0);
    EXPECT_EQ(operations.seekoff(0, beginning, in), invalid());
    EXPECT_EQ(operations.seekpos(0, out), invalid());
    EXPECT_EQ(temporary.content(), "abc");
}

TEST(FileAdapterTest, LeavesTheMissingDirectionOfAnOpenFileToItsBuffer) {
    const TemporaryFile temporary("abc");
    std::fstream readable(temporary.path, std::ios_base::in | binary);
    std::fstream writable(temporary.path, std::ios_base::out | std::ios_base::app | binary);
    FakePublication publication;
    const auto first = makeDevice(exampleUuid(), readable, 16);
    const auto second = makeDevice(exampleUuid(), writable, 16);

    EXPECT_EQ(publication.calls.at(0).operations.write("x"), 0);
    EXPECT_EQ(publication.calls.at(0).operations.read(3), "abc");
    EXPECT_EQ(publication.calls.at(1).operations.read(3), "");
    EXPECT_EQ(publication.calls.at(1).operations.write("x"), 1);
}

TEST(FileAdapterTest, WritesReachTheFileWhenItsBufferIsFlushed) {
    const TemporaryFile temporary;
    std::ofstream file(temporary.path, binary);
    FakePublication publication;
    const auto buffer = makeDevice(exampleUuid(), file, 16);

    EXPECT_EQ(publication.calls.at(0).operations.write("12345"), 5);
    EXPECT_EQ(temporary.content(), "");
    file.flush();
    EXPECT_EQ(temporary.content(), "12345");
}

TEST(FileAdapterTest, PassesAnExceptionOfThePublicationOn) {
    const TemporaryFile temporary;
    std::ifstream file(temporary.path, binary);
    FakePublication publication;
    publication.refusal = std::make_exception_ptr(DeviceError("refused"));

    EXPECT_THAT(
        [&] { makeDevice(exampleUuid(), file, 16); }, ThrowsMessage<DeviceError>("refused"));
}

} // namespace
} // namespace agent::orvi::streambuf::test
