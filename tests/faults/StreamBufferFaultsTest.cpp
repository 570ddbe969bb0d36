#include "streambuf/StreamBuffer.hpp"

#include "allocations/FailingAllocation.hpp"
#include "support/RecordingDevice.hpp"
#include "support/StreamBuffers.hpp"

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <ios>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace agent::orvi::streambuf {
namespace {

using orvi::test::failEachAllocation;
using orvi::test::FailingAllocation;
using test::ExposedStreamBuffer;
using test::pattern;

// Too long for a string to keep in itself, so that each operation allocates.
constexpr std::size_t bufferSize = 64;

/// A device in memory that allocates what it answers, and keeps what it takes without.
struct Device {
    std::string bytes = pattern(1000);
    std::size_t position = 0;
    std::string written;
    int moves = 0;

    test::Operations operations() {
        written.reserve(1000);
        return {
            [this](std::int64_t count) {
                std::string result = bytes.substr(position, static_cast<std::size_t>(count));
                position += result.size();
                return result;
            },
            [this](const std::string& data) {
                written += data;
                return static_cast<std::int64_t>(data.size());
            },
            [this](std::int64_t offset, int, int) -> std::streampos {
                ++moves;
                position = static_cast<std::size_t>(offset);
                return offset;
            },
            [this](std::streampos target, int) -> std::streampos {
                ++moves;
                position = static_cast<std::size_t>(std::streamoff(target));
                return target;
            },
            {}};
    }
};

TEST(StreamBufferFaults, ReadsEveryCharacterOnceWhereAReadHasFailed) {
    const std::size_t failures = failEachAllocation([](FailingAllocation& failure) {
        Device device;
        auto buffer = test::makeExposedBuffer(device.operations(), bufferSize);
        std::string got;
        const auto takeOne = [&] { got += static_cast<char>(buffer.sbumpc()); };
        got.reserve(1000);
        if (!failure.allows([&] {
                for (int count = 0; count < 200; ++count) {
                    takeOne();
                }
            })) {
            EXPECT_EQ(got, pattern(got.size())) << "up to the failure";
        }
        while (got.size() < 200) {
            takeOne();
        }
        EXPECT_EQ(got, pattern(200));
    });
    EXPECT_EQ(failures, 4u) << "one for each time that the get area was filled";
}

TEST(StreamBufferFaults, BulkReadDeliversNothingPastTheFailure) {
    const std::size_t failures = failEachAllocation([](FailingAllocation& failure) {
        Device device;
        auto buffer = test::makeExposedBuffer(device.operations(), bufferSize);
        std::string got(200, '\0');
        std::streamsize count = 0;
        const bool done = failure.allows([&] { count = buffer.sgetn(got.data(), 200); });
        EXPECT_EQ(done, !failure.happened());
        EXPECT_EQ(count, done ? 200 : 0);
        EXPECT_EQ(test::take(buffer, 50), pattern(50, done ? 200 : 0));
    });
    EXPECT_GT(failures, 0u);
}

TEST(StreamBufferFaults, WritesEveryCharacterOnceWhereASyncHasFailed) {
    const std::size_t failures = failEachAllocation([](FailingAllocation& failure) {
        Device device;
        auto buffer = test::makeExposedBuffer(device.operations(), bufferSize);
        test::put(buffer, pattern(50));
        int result = -1;
        const bool done = failure.allows([&] { result = buffer.pubsync(); });
        if (done) {
            EXPECT_EQ(result, 0);
        } else {
            EXPECT_EQ(device.written, "");
            EXPECT_EQ(buffer.pendingCharacters(), pattern(50));
            EXPECT_EQ(buffer.pubsync(), 0);
        }
        EXPECT_EQ(device.written, pattern(50));
    });
    EXPECT_EQ(failures, 1u);
}

TEST(StreamBufferFaults, BulkWriteThatFailsHasWrittenNothing) {
    const std::string text = pattern(300, 10);
    const std::size_t failures = failEachAllocation([&](FailingAllocation& failure) {
        Device device;
        auto buffer = test::makeExposedBuffer(device.operations(), bufferSize);
        test::put(buffer, pattern(10));
        std::streamsize count = 0;
        if (!failure.allows([&] { count = buffer.sputn(text.data(), 300); })) {
            EXPECT_EQ(device.written, "");
            EXPECT_EQ(buffer.pendingCharacters(), pattern(10));
            count = buffer.sputn(text.data(), 300);
        }
        EXPECT_EQ(count, 300);
        EXPECT_EQ(device.written, pattern(310));
    });
    EXPECT_EQ(failures, 1u);
}

TEST(StreamBufferFaults, ASingleCharacterIsWrittenWithoutAnAllocation) {
    const std::size_t failures = failEachAllocation([](FailingAllocation& failure) {
        Device device;
        auto buffer = test::makeExposedBuffer(device.operations(), bufferSize);
        EXPECT_TRUE(failure.allows([&] {
            for (const char character : "123") {
                buffer.sputc(character);
            }
        }));
    });
    EXPECT_EQ(failures, 0u);
}

TEST(StreamBufferFaults, AMoveOfThePositionThatFailsKeepsWhatIsPending) {
    const std::size_t failures = failEachAllocation([](FailingAllocation& failure) {
        Device device;
        auto buffer = test::makeExposedBuffer(device.operations(), bufferSize);
        test::put(buffer, pattern(50));
        const auto both = std::ios_base::in | std::ios_base::out;
        std::streampos position;
        if (!failure.allows([&] { position = buffer.pubseekpos(7, both); })) {
            EXPECT_EQ(device.moves, 0);
            EXPECT_EQ(device.written, "");
            EXPECT_EQ(buffer.pendingCharacters(), pattern(50));
            position = buffer.pubseekoff(7, std::ios_base::beg, both);
        }
        EXPECT_EQ(position, std::streampos(7));
        EXPECT_EQ(device.written, pattern(50));
        EXPECT_EQ(test::take(buffer, 10), pattern(10, 7));
    });
    EXPECT_EQ(failures, 1u);
}

TEST(StreamBufferFaults, ThatCannotBeMadeReleasesItsOperations) {
    const auto owned = std::make_shared<int>();
    const std::size_t failures = failEachAllocation([&](FailingAllocation& failure) {
        std::optional<StreamBuffer> buffer;
        test::Operations operations;
        operations.read = [owned](std::int64_t) { return std::string(); };
        operations.write = [owned](const std::string&) { return std::int64_t{0}; };
        const bool done = failure.allows(
            [&] { buffer.emplace(test::makeBuffer(std::move(operations), bufferSize)); });
        EXPECT_EQ(done, !failure.happened());
        EXPECT_EQ(buffer.has_value(), done);
        buffer.reset();
        operations = {};
        EXPECT_EQ(owned.use_count(), 1);
    });
    EXPECT_EQ(failures, 3u) << "the record and two buffers";
}

TEST(StreamBufferFaults, MovesWithoutAnAllocation) {
    const std::size_t failures = failEachAllocation([](FailingAllocation& failure) {
        Device device;
        StreamBuffer buffer = test::makeBuffer(device.operations(), bufferSize);
        StreamBuffer other = test::makeBuffer({}, 0);
        EXPECT_TRUE(failure.allows([&] {
            StreamBuffer moved(std::move(buffer));
            other = std::move(moved);
        }));
        EXPECT_EQ(test::take(other, 10), pattern(10));
    });
    EXPECT_EQ(failures, 0u);
}

TEST(StreamBufferFaults, DestructionLosesOnlyWhatItCannotWrite) {
    const std::size_t failures = failEachAllocation([](FailingAllocation& failure) {
        Device device;
        bool closed = false;
        {
            auto operations = device.operations();
            operations.close = [&](const boost::uuids::uuid&) { closed = true; };
            auto buffer =
                std::make_unique<StreamBuffer>(test::makeBuffer(std::move(operations), bufferSize));
            test::put(*buffer, pattern(50));
            EXPECT_TRUE(failure.allows([&] { buffer.reset(); }));
        }
        EXPECT_EQ(device.written, failure.happened() ? "" : pattern(50));
        EXPECT_TRUE(closed);
    });
    EXPECT_EQ(failures, 1u);
}

} // namespace
} // namespace agent::orvi::streambuf
