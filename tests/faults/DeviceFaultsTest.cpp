#include "devices/FailingOperation.hpp"
#include "streambuf/StreamBuffer.hpp"
#include "streambuf/StreamBufferImpl.hpp"

#include "allocations/FailingAllocation.hpp"
#include "support/Registry.hpp"
#include "support/StreamBuffers.hpp"

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>

namespace agent::orvi::streambuf {
namespace {

using orvi::test::failEachAllocation;
using orvi::test::FailingAllocation;
using test::pattern;

TEST(DeviceFaults, AFailedFactoryLeavesTheSharedStreamToItsOwner) {
    const auto stream = std::make_shared<std::istringstream>(pattern(100));
    const std::size_t failures = failEachAllocation([&](FailingAllocation& failure) {
        const auto uuid = test::newUuid();
        std::optional<StreamBuffer> device;
        const bool done = failure.allows([&] { device.emplace(makeDevice(uuid, stream)); });
        EXPECT_EQ(test::invokablesOf(uuid).size(), done ? 1u : 0u);
        device.reset();
        EXPECT_EQ(stream.use_count(), 1);
        EXPECT_TRUE(stream->good());
        EXPECT_EQ(stream->tellg(), std::streampos(0));
    });
    EXPECT_GT(failures, 100u);
}

TEST(DeviceFaults, AWriteReachesTheStreamOnceWhereverItFails) {
    const std::size_t failures = failEachAllocation([](FailingAllocation& failure) {
        const auto stream = std::make_shared<std::ostringstream>();
        stream->str(std::string(10'000, '-')); // so that it has room
        StreamBuffer device =
            makeDevice(test::newUuid(), std::static_pointer_cast<std::ostream>(stream));
        test::put(device, pattern(100));
        int result = -1;
        if (!failure.allows([&] { result = device.pubsync(); })) {
            EXPECT_EQ(stream->str().substr(0, 3), "---");
            result = device.pubsync();
        }
        EXPECT_EQ(result, 0);
        EXPECT_EQ(stream->str().substr(0, 101), pattern(100) + "-");
    });
    EXPECT_GT(failures, 0u);
}

TEST(DeviceFaults, AnExplainedRefusalNeedsMemoryOnlyForItsText) {
    const std::size_t failures = failEachAllocation([](FailingAllocation& failure) {
        ReadFunction read;
        const bool made = failure.allows([&] { read = details::failingReadFunction(); });
        EXPECT_EQ(made, !failure.happened());
        EXPECT_EQ(static_cast<bool>(read), made);
    });
    EXPECT_GT(failures, 0u);
}

} // namespace
} // namespace agent::orvi::streambuf
