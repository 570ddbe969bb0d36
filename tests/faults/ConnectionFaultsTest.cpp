#include "streambuf/StreamBuffer.hpp"

#include "allocations/FailingAllocation.hpp"
#include "support/RecordingDevice.hpp"
#include "support/Registry.hpp"
#include "support/StreamBuffers.hpp"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <ios>
#include <optional>
#include <string>
#include <vector>

namespace agent::orvi::streambuf {
namespace {

using orvi::test::failEachAllocation;
using orvi::test::FailingAllocation;
using test::pattern;

constexpr std::size_t bufferSize = 64;

/// Fails each allocation of what a connected stream buffer does, publisher and registry included.
class ConnectionFaults : public testing::Test {
protected:
    ConnectionFaults() { const StreamBuffer first = connect(); }

    StreamBuffer connect() const { return makeDevice(uuid, noCloseFunction()); }

    const boost::uuids::uuid uuid = test::newUuid();
    const test::RecordingDevice device{pattern(1000)};
    const StreamBuffer published = makeDevice(
        uuid, device.read(), device.write(), device.seekoff(), device.seekpos(), bufferSize);
};

TEST_F(ConnectionFaults, IsMadeWholeOrNotAtAll) {
    const std::size_t failures = failEachAllocation([&](FailingAllocation& failure) {
        std::optional<StreamBuffer> connected;
        if (!failure.allows([&] { connected.emplace(connect()); })) {
            EXPECT_FALSE(connected.has_value());
            connected.emplace(connect());
        }
        EXPECT_EQ(connected->pubseekpos(0, std::ios_base::in), std::streampos(0));
        EXPECT_EQ(test::take(*connected, 100), pattern(100));
        EXPECT_EQ(test::invokablesOf(uuid).size(), 1u);
    });
    EXPECT_GT(failures, 50u);
}

TEST_F(ConnectionFaults, MovesThePositionOrSaysThatItHasNot) {
    const std::size_t failures = failEachAllocation([&](FailingAllocation& failure) {
        StreamBuffer connected = connect();
        std::streampos position = -1;
        const auto move = [&] { position = connected.pubseekpos(7, std::ios_base::in); };
        if (!failure.allows(move) || position == std::streampos(-1)) {
            EXPECT_TRUE(failure.happened());
            move();
        }
        EXPECT_EQ(position, std::streampos(7));
        EXPECT_EQ(test::take(connected, 10), pattern(10, 7));
    });
    EXPECT_GT(failures, 5u);
}

TEST_F(ConnectionFaults, WritesWhatItSaysItHasWritten) {
    const std::size_t failures = failEachAllocation([&](FailingAllocation& failure) {
        StreamBuffer connected = connect();
        connected.pubseekpos(0, std::ios_base::out);
        test::put(connected, pattern(50));
        int result = -1;
        if (failure.allows([&] { result = connected.pubsync(); }) && result == 0) {
            EXPECT_EQ(device.bytes().substr(0, 50), pattern(50));
        } else {
            EXPECT_TRUE(failure.happened());
        }
    });
    EXPECT_GT(failures, 5u);
}

/// The device has moved on when there is no memory for what it has given: whoever has got the
/// exception seeks.
TEST_F(ConnectionFaults, ReadsAllOrNothingAndLosesNothingWithoutAnException) {
    const std::size_t failures = failEachAllocation([&](FailingAllocation& failure) {
        StreamBuffer connected = connect();
        EXPECT_EQ(connected.pubseekpos(0, std::ios_base::in), std::streampos(0));
        std::string bytes(200, '-');
        std::streamsize taken = 0;
        const auto read = [&] { taken = connected.sgetn(bytes.data(), 200); };
        if (!failure.allows(read)) {
            EXPECT_EQ(connected.pubseekpos(0, std::ios_base::in), std::streampos(0));
            read();
        } else if (taken == 0) {
            EXPECT_TRUE(failure.happened());
            read();
        }
        EXPECT_EQ(taken, 200);
        EXPECT_EQ(bytes, pattern(200));
        EXPECT_EQ(test::take(connected, 100), pattern(100, 200));
    });
    EXPECT_GT(failures, 5u);
}

TEST_F(ConnectionFaults, EndWithoutMemoryAndWriteWhatIsPendingOrLoseIt) {
    char next = 'a';
    const std::size_t failures = failEachAllocation([&](FailingAllocation& failure) {
        const std::string before = device.bytes().substr(0, 50);
        const std::string after(50, next++);
        std::optional<StreamBuffer> connected(connect());
        connected->pubseekpos(0, std::ios_base::out);
        test::put(*connected, after);
        EXPECT_TRUE(failure.allows([&] { connected.reset(); }));
        EXPECT_EQ(device.bytes().substr(0, 50), failure.happened() ? before : after);
        EXPECT_EQ(test::invokablesOf(uuid).size(), 1u);
        StreamBuffer another = connect();
        EXPECT_EQ(another.pubseekpos(100, std::ios_base::in), std::streampos(100));
        EXPECT_EQ(test::take(another, 10), pattern(10, 100));
    });
    EXPECT_GT(failures, 5u);
}

TEST_F(ConnectionFaults, LeaveTheBytesOfAUuidWholeOrAbsent) {
    const StreamBuffer connected = connect();
    const std::size_t failures = failEachAllocation([&](FailingAllocation& failure) {
        std::vector<std::uint8_t> bytes;
        const bool made = failure.allows([&] { bytes = connected.toBytes(); });
        EXPECT_EQ(bytes.size(), made ? uuid.size() : 0u);
    });
    EXPECT_EQ(failures, 1u);
}

} // namespace
} // namespace agent::orvi::streambuf
