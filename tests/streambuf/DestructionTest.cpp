#include "support/DeviceError.hpp"
#include "support/StreamBuffers.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace agent::orvi::streambuf::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(DestructionTest, WritesPendingOutputWithOneCallAndThenCloses) {
    RecordingDevice device;
    {
        Operations operations = outputOf(device);
        operations.close = device.close();
        auto buffer = makeBuffer(operations, 16);
        put(buffer, "abc");
    }
    EXPECT_THAT(device.calls(), ElementsAre(writeCall("abc"), closeCall(exampleUuid())));
}

TEST(DestructionTest, MakesNoCallWhenNothingIsPending) {
    RecordingDevice device;
    {
        auto buffer = makeBuffer(bothOf(device), 16);
        put(buffer, "abc");
        buffer.pubsync();
        device.takeCalls();
    }
    EXPECT_THAT(device.calls(), IsEmpty());
}

TEST(DestructionTest, DoesNotRetryWhatTheDeviceDidNotTake) {
    for (const std::int64_t answer : {2, 0, -1, 4}) {
        SCOPED_TRACE(answer);
        RecordingDevice device;
        device.onCall(Operation::write, 1, Reply::with(answer));
        {
            Operations operations = outputOf(device);
            operations.close = device.close();
            auto buffer = makeBuffer(operations, 16);
            put(buffer, "abc");
        }
        EXPECT_THAT(device.calls(), ElementsAre(writeCall("abc"), closeCall(exampleUuid())));
    }
}

TEST(DestructionTest, DropsAnExceptionOfTheFlushAndStillCloses) {
    for (const auto& reply : {Reply::throwing(DeviceError("disk full")), Reply::throwing(42)}) {
        RecordingDevice device;
        device.onCall(Operation::write, 1, reply);
        {
            Operations operations = outputOf(device);
            operations.close = device.close();
            auto buffer = makeBuffer(operations, 16);
            put(buffer, "abc");
        }
        EXPECT_THAT(device.calls(), ElementsAre(writeCall("abc"), closeCall(exampleUuid())));
    }
}

TEST(DestructionTest, DropsAnExceptionOfTheCloseOperation) {
    for (const auto& reply : {Reply::throwing(DeviceError("door stuck")), Reply::throwing(42)}) {
        RecordingDevice device;
        device.onCall(Operation::close, 1, reply);
        {
            Operations operations;
            operations.close = device.close();
            const auto buffer = makeBuffer(operations, 16);
        }
        EXPECT_THAT(device.calls(), ElementsAre(closeCall(exampleUuid())));
    }
}

TEST(DestructionTest, FlushesWithTheLibrarysOwnSync) {
    class Overriding : public ExposedStreamBuffer {
    public:
        using ExposedStreamBuffer::ExposedStreamBuffer;

    protected:
        int sync() override { throw DeviceError("must not be called"); }
    };

    RecordingDevice device;
    {
        Overriding buffer(makeBuffer(outputOf(device), 16));
        put(buffer, "abc");
    }
    EXPECT_THAT(device.calls(), ElementsAre(writeCall("abc")));
}

TEST(DestructionTest, WritesAFullBufferOnce) {
    RecordingDevice device;
    {
        auto buffer = makeBuffer(outputOf(device), 4);
        put(buffer, "abcd");
    }
    EXPECT_THAT(device.calls(), ElementsAre(writeCall("abcd")));
}

} // namespace
} // namespace agent::orvi::streambuf::test
