#include "devices/FailingOperation.hpp"
#include "streambuf/StreamBuffer.hpp"
#include "streambuf/StreamBufferImpl.hpp"

#include "allocations/FailingAllocation.hpp"
#include "support/Registry.hpp"
#include "support/StreamBuffers.hpp"
#include "support/TemporaryFile.hpp"

#include <gtest/gtest.h>

#include <cstddef>
#include <fstream>
#include <functional>
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

/// Read all of a device while an allocation fails, and again from where that has ended.
void expectAllInTheEnd(const std::function<StreamBuffer()>& open) {
    std::size_t falseEnds = 0;
    const std::size_t failures = failEachAllocation([&](FailingAllocation& failure) {
        StreamBuffer device = open();
        std::string bytes(100, '-');
        std::streamsize taken = 0;
        const auto read = [&] { taken = device.sgetn(bytes.data(), 100); };
        EXPECT_TRUE(failure.allows(read)); // an operation without memory has no data
        EXPECT_EQ(taken, failure.happened() ? 0 : 100);
        falseEnds += taken == 0 ? 1 : 0;
        if (taken == 0) {
            read();
        }
        EXPECT_EQ(taken, 100);
        EXPECT_EQ(bytes, pattern(100));
    });
    EXPECT_EQ(falseEnds, failures);
    EXPECT_GT(failures, 0u);
}

TEST(DeviceFaults, AReadOfASharedStreamThatFindsNoMemoryLooksLikeTheEndAndLosesNothing) {
    expectAllInTheEnd([] {
        const auto stream = std::make_shared<std::istringstream>(pattern(100));
        return makeDevice(test::newUuid(), std::static_pointer_cast<std::istream>(stream));
    });
}

TEST(DeviceFaults, AReadOfAFileThatFindsNoMemoryLooksLikeTheEndAndLosesNothing) {
    const test::TemporaryFile content(pattern(100));
    std::ifstream file;
    expectAllInTheEnd([&] {
        file.close();
        file.open(content.path, std::ios_base::binary);
        file.peek(); // so that it has its own buffer
        return makeDevice(test::newUuid(), file, 4096);
    });
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
