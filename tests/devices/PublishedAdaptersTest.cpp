#include "RecordingStreambuf.hpp"

#include "support/DeviceError.hpp"
#include "support/StreamBuffers.hpp"
#include "support/TemporaryFile.hpp"

#include <foundation/cppmicroservices/getFramework.hpp>
#include <orvi/core/Invokable.hpp>

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Framework.h>

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iostream>
#include <limits>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace agent::orvi::streambuf::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr auto binary = std::ios_base::binary;
constexpr int in = static_cast<int>(std::ios_base::in);
constexpr int out = static_cast<int>(std::ios_base::out);

/// Adapters as their users meet them: published, behind the guard.
class PublishedAdapterTest : public ::testing::Test {
protected:
    /// Return the service's properties hasRead, hasWrite, hasSeekOff, hasSeekPos and bufferSize,
    /// or nothing when none is published.
    std::vector<std::string> published() const {
        auto context = foundation::cppmicroservices::getFramework()->GetBundleContext();
        const auto references = context.GetServiceReferences<core::Invokable>(
            "(orvi.servicename=orviStreambuf_" + boost::uuids::to_string(uuid) + ")");
        std::vector<std::string> properties;
        for (const auto& reference : references) {
            for (const char* const key :
                 {"hasRead", "hasWrite", "hasSeekOff", "hasSeekPos", "bufferSize"}) {
                properties.push_back(
                    reference.GetProperty(std::string("orvi.serviceproperty.") + key).ToString());
            }
        }
        return properties;
    }

    static Operations operationsOf(const StreamBuffer& buffer) {
        const auto& record = details::StreamBufferAccess::record(buffer);
        return {record->read, record->write, record->seekoff, record->seekpos, record->close};
    }

    const boost::uuids::uuid uuid = boost::uuids::random_generator()();
};

TEST_F(PublishedAdapterTest, OffersAFileAsLongAsItsStreamBufferLives) {
    const TemporaryFile temporary(pattern(1000));
    std::fstream file(temporary.path, std::ios_base::in | std::ios_base::out | binary);
    {
        auto buffer = makeDevice(uuid, file, 64);
        EXPECT_THAT(published(), ElementsAre("true", "true", "true", "true", "64"));
        EXPECT_FALSE(operationsOf(buffer).close);

        EXPECT_EQ(take(buffer, 200), pattern(200));
        EXPECT_EQ(buffer.pubseekpos(10, std::ios_base::in | std::ios_base::out), 10);
        EXPECT_EQ(put(buffer, "written"), 7);
    }
    EXPECT_THAT(published(), IsEmpty());
    file.close();
    EXPECT_EQ(temporary.content().substr(0, 20), pattern(10) + "written" + pattern(3, 17));
}

TEST_F(PublishedAdapterTest, OffersWhatEachKindOfStreamHas) {
    const TemporaryFile temporary("abc");
    std::ifstream input(temporary.path, binary);
    std::ofstream output(temporary.path, std::ios_base::in | binary);
    const std::vector<std::string> readable{"true", "false", "true", "true"};
    const std::vector<std::string> writable{"false", "true", "true", "true"};
    const auto with = [](std::vector<std::string> properties, const std::string& bufferSize) {
        properties.push_back(bufferSize);
        return properties;
    };
    {
        const auto buffer = makeDevice(uuid, input, 0);
        EXPECT_EQ(published(), with(readable, "0"));
    }
    {
        const auto buffer = makeDevice(uuid, output, 1);
        EXPECT_EQ(published(), with(writable, "1"));
    }
    {
        const auto buffer =
            makeDevice(uuid, std::shared_ptr<std::istream>(std::make_shared<std::istringstream>()));
        EXPECT_EQ(published(), with(readable, "4096"));
    }
    {
        const auto buffer =
            makeDevice(uuid, std::shared_ptr<std::ostream>(std::make_shared<std::ostringstream>()));
        EXPECT_EQ(published(), with(writable, "4096"));
    }
}

TEST_F(PublishedAdapterTest, PublishesNothingOverAFileThatIsNotOpen) {
    std::fstream both;
    std::ifstream input;
    std::ofstream output;

    EXPECT_THROW(makeDevice(uuid, both, 16), std::runtime_error);
    EXPECT_THROW(makeDevice(uuid, input, 16), std::runtime_error);
    EXPECT_THROW(makeDevice(uuid, output, 16), std::runtime_error);
    EXPECT_THROW(makeDevice(uuid, std::shared_ptr<std::istream>()), std::runtime_error);
    EXPECT_THROW(makeDevice(uuid, std::shared_ptr<std::ostream>()), std::runtime_error);

    EXPECT_THAT(published(), IsEmpty());
}

TEST_F(PublishedAdapterTest, WithdrawsAFileWhoseBufferCannotBeMade) {
    const TemporaryFile temporary("abc");
    std::ifstream file(temporary.path, binary);

    EXPECT_THROW(
        makeDevice(uuid, file, std::numeric_limits<std::size_t>::max()), std::length_error);

    EXPECT_THAT(published(), IsEmpty());
}

TEST_F(PublishedAdapterTest, ReadsAndWritesWithoutABuffer) {
    const TemporaryFile temporary("abcdef");
    std::fstream file(temporary.path, std::ios_base::in | std::ios_base::out | binary);
    auto buffer = makeDevice(uuid, file, 0);

    EXPECT_EQ(take(buffer, 2), "ab");
    EXPECT_EQ(buffer.sbumpc(), 'c');
    EXPECT_EQ(buffer.pubseekpos(1, std::ios_base::in | std::ios_base::out), 1);
    EXPECT_EQ(put(buffer, "XY"), 2);
    EXPECT_EQ(buffer.pubsync(), 0);
    file.flush();
    EXPECT_EQ(temporary.content(), "aXYdef");
}

TEST_F(PublishedAdapterTest, RefusesTheDirectionThatTheStreamLacksWithoutACall) {
    RecordingStreambuf stream("abc");
    auto input = makeDevice(uuid, std::make_shared<std::istream>(&stream));
    auto output = makeDevice(uuid, std::make_shared<std::ostream>(&stream));

    EXPECT_EQ(input.sputc('x'), std::char_traits<char>::eof());
    EXPECT_EQ(put(input, "x"), 0);
    EXPECT_EQ(output.sgetc(), std::char_traits<char>::eof());
    EXPECT_EQ(take(output, 1), "");

    EXPECT_THAT(stream.calls, IsEmpty());
}

TEST_F(PublishedAdapterTest, TurnsExceptionsOfACustomBufferIntoNeutralResults) {
    for (const auto& failure :
         {std::make_exception_ptr(DeviceError("torn tape")), std::make_exception_ptr(42)}) {
        RecordingStreambuf stream("abcdef");
        const auto input = std::make_shared<std::istream>(&stream);
        auto reader = makeDevice(uuid, input);
        auto writer = makeDevice(uuid, std::make_shared<std::ostream>(&stream));
        stream.failure = failure;

        EXPECT_EQ(operationsOf(reader).read(3), "");
        EXPECT_EQ(operationsOf(reader).seekoff(0, 0, in), std::streampos(std::streamoff(-1)));
        EXPECT_EQ(operationsOf(reader).seekpos(0, in), std::streampos(std::streamoff(-1)));
        EXPECT_EQ(operationsOf(writer).write("x"), 0);
        EXPECT_EQ(operationsOf(writer).seekoff(0, 0, out), std::streampos(std::streamoff(-1)));
        EXPECT_EQ(take(reader, 1), "");
        put(writer, "x");
        EXPECT_EQ(writer.pubsync(), -1);

        EXPECT_TRUE(input->good());
        stream.failure = nullptr;
    }
}

TEST_F(PublishedAdapterTest, AnswersANegativeCountWithNothing) {
    RecordingStreambuf stream("abc");
    const auto buffer = makeDevice(uuid, std::make_shared<std::istream>(&stream));

    for (const std::int64_t count : {std::int64_t{-1}, std::numeric_limits<std::int64_t>::min()}) {
        EXPECT_EQ(operationsOf(buffer).read(count), "");
    }

    EXPECT_THAT(stream.calls, IsEmpty());
}

TEST_F(PublishedAdapterTest, KeepsASharedStreamUntilTheDeviceIsGone) {
    auto stream = std::make_shared<std::istringstream>("abc");
    const std::weak_ptr<std::istringstream> watch = stream;
    std::optional<StreamBuffer> buffer(makeDevice(uuid, std::shared_ptr<std::istream>(stream)));
    stream.reset();

    EXPECT_FALSE(watch.expired());
    EXPECT_EQ(take(*buffer, 3), "abc");

    buffer.reset();
    EXPECT_TRUE(watch.expired());
}

TEST_F(PublishedAdapterTest, LetsGoOfASharedStreamThatIsNotPublished) {
    EXPECT_THAT(published(), IsEmpty());
    const auto stream = std::make_shared<std::ostringstream>();
    {
        auto buffer = makeDevice(uuid, std::shared_ptr<std::ostream>(stream));
        EXPECT_GT(stream.use_count(), 1);
        put(buffer, "pending");
    }
    EXPECT_EQ(stream.use_count(), 1);
    EXPECT_EQ(stream->str(), "pending");
}

TEST_F(PublishedAdapterTest, EndsWithTheFileThatTheCallerHasClosed) {
    const TemporaryFile temporary("abc");
    std::fstream file(temporary.path, std::ios_base::in | std::ios_base::out | binary);
    auto buffer = makeDevice(uuid, file, 16);
    std::iostream stream(&buffer);

    file.close();

    EXPECT_EQ(stream.get(), std::char_traits<char>::eof());
    EXPECT_TRUE(stream.eof());
    stream.clear();
    EXPECT_EQ(stream.tellg(), std::streampos(std::streamoff(-1)));
    stream << "x" << std::flush;
    EXPECT_TRUE(stream.bad());
}

} // namespace
} // namespace agent::orvi::streambuf::test
