#include "streambuf/StreamBuffer.hpp"

#include "connect/RegisteredService.hpp"
#include "streambuf/StreamBufferImpl.hpp"
#include "support/Characters.hpp"
#include "support/DeviceError.hpp"
#include "support/RecordingDevice.hpp"
#include "support/Registry.hpp"
#include "support/StreamBuffers.hpp"
#include "support/ThrowsExactly.hpp"

#include <orvi/core/InvocationErrors.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <exception>
#include <functional>
#include <ios>
#include <istream>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace agent::orvi::streambuf {
namespace {

using core::ServiceUnavailable;
using std::ios_base;
using test::endOfFile;
using test::Operation;
using test::Reply;
using test::throwsExactly;
using testing::ElementsAre;
using testing::IsEmpty;

class ConnectionTest : public testing::Test {
protected:
    StreamBuffer publish(std::size_t bufferSize = 4) const {
        return makeDevice(
            uuid, device.read(), device.write(), device.seekoff(), device.seekpos(), bufferSize);
    }

    StreamBuffer connect() const { return makeDevice(uuid, closeLog.close()); }

    const boost::uuids::uuid uuid = test::newUuid();
    test::RecordingDevice device{"0123456789"};
    test::RecordingDevice closeLog;
};

TEST_F(ConnectionTest, ReadsWritesAndSeeksAtThePublisher) {
    const StreamBuffer published = publish();
    StreamBuffer connected = connect();
    EXPECT_EQ(test::take(connected, 3), "012");
    EXPECT_EQ(connected.pubseekoff(-2, ios_base::end, ios_base::in), std::streampos(8));
    EXPECT_EQ(test::take(connected, 10), "89");
    EXPECT_EQ(connected.pubseekpos(10, ios_base::out), std::streampos(10));
    EXPECT_EQ(test::put(connected, "abcdefghij"), 10);
    EXPECT_EQ(connected.pubsync(), 0);
    EXPECT_THAT(
        device.calls(), ElementsAre(
                            test::readCall(4), test::seekOffCall(-2, ios_base::end, ios_base::in),
                            test::readCall(12), test::seekPosCall(10, ios_base::out),
                            test::writeCall("abcd"), test::writeCall("efghij")));
    EXPECT_EQ(device.bytes(), "0123456789abcdefghij");
}

TEST_F(ConnectionTest, HasTheUuidAndTheBufferSizeOfThePublisher) {
    const StreamBuffer published = publish(7);
    const StreamBuffer connected = connect();
    EXPECT_EQ(connected.toBytes(), published.toBytes());
    const auto& record = details::StreamBufferAccess::record(connected);
    EXPECT_EQ(record->uuid, uuid);
    EXPECT_EQ(record->getBuffer.size(), 7u);
    EXPECT_EQ(record->putBuffer.size(), 7u);
}

TEST_F(ConnectionTest, RegistersNothing) {
    const StreamBuffer published = publish();
    const StreamBuffer connected = connect();
    EXPECT_EQ(test::providers().size(), 1u);
    EXPECT_EQ(test::invokablesOf(uuid).size(), 1u);
    EXPECT_FALSE(details::StreamBufferAccess::record(connected)->registration);
}

TEST_F(ConnectionTest, LacksWhatThePublisherDoesNotOffer) {
    const StreamBuffer published = makeDevice(uuid, device.read(), {}, {}, {}, 4);
    StreamBuffer connected = connect();
    EXPECT_EQ(connected.sbumpc(), '0');
    EXPECT_EQ(connected.sputc('x'), endOfFile);
    EXPECT_EQ(connected.sputn("x", 1), 0);
    EXPECT_THROW(connected.pubseekoff(0, ios_base::beg, ios_base::in), std::bad_function_call);
    EXPECT_THROW(connected.pubseekpos(0, ios_base::in), std::bad_function_call);
    EXPECT_EQ(connected.pubseekoff(0, ios_base::beg, ios_base::out), std::streampos(-1));

    std::iostream stream(&connected);
    stream.exceptions(ios_base::badbit);
    EXPECT_THROW(stream.seekg(0), std::bad_function_call);
    stream.exceptions(ios_base::goodbit);
    stream.clear();
    stream.seekp(0);
    EXPECT_TRUE(stream.fail());
    EXPECT_FALSE(stream.bad());
    EXPECT_THAT(device.calls(), ElementsAre(test::readCall(4)));
}

TEST_F(ConnectionTest, SeesAFailingDeviceAsItsNeutralResults) {
    const StreamBuffer published = publish();
    StreamBuffer connected = connect();
    for (const Operation operation :
         {Operation::read, Operation::write, Operation::seekoff, Operation::seekpos}) {
        device.always(operation, Reply::throwing(test::DeviceError("out of paper")));
    }
    EXPECT_EQ(connected.sgetc(), endOfFile);
    EXPECT_EQ(test::put(connected, "longer than the buffer"), 0);
    EXPECT_EQ(connected.pubseekoff(0, ios_base::beg, ios_base::in), std::streampos(-1));
    EXPECT_EQ(connected.pubseekpos(0, ios_base::in), std::streampos(-1));
}

TEST_F(ConnectionTest, IsIndependentOfAnotherToTheSameDevice) {
    const StreamBuffer published = publish();
    auto first = std::make_optional(connect());
    auto second = std::make_optional(connect());
    EXPECT_EQ(first->sbumpc(), '0');
    EXPECT_EQ(second->sbumpc(), '4') << "the device's position is shared, the buffers are not";
    EXPECT_EQ(first->sbumpc(), '1');
    EXPECT_EQ(second->sbumpc(), '5');
    first.reset();
    EXPECT_THAT(closeLog.calls(), ElementsAre(test::closeCall(uuid)));
    EXPECT_EQ(test::take(*second, 4), "6789");
    second.reset();
    EXPECT_THAT(closeLog.calls(), ElementsAre(test::closeCall(uuid), test::closeCall(uuid)));
}

TEST_F(ConnectionTest, TellsThePublisherNothingOfItsEnd) {
    const StreamBuffer published = publish();
    { const StreamBuffer connected = connect(); }
    EXPECT_THAT(device.calls(), IsEmpty());
    EXPECT_EQ(test::invokablesOf(uuid).size(), 1u);
    EXPECT_NO_THROW(connect());
}

TEST_F(ConnectionTest, KeepsTheServiceAliveOnlyWhileItLasts) {
    test::RegisteredService service(
        test::completeProperties(uuid), test::answeringWith(std::string("data")));
    std::weak_ptr<test::FakeInvokable> observer;
    {
        StreamBuffer connected = connect();
        observer = service.release();
        EXPECT_EQ(connected.sgetc(), 'd');
    }
    EXPECT_TRUE(observer.expired());
}

TEST_F(ConnectionTest, CallsItsCloseFunctionOnceAtTheEnd) {
    const StreamBuffer published = publish();
    {
        auto connected = std::make_optional(connect());
        StreamBuffer moved = std::move(*connected);
        connected.reset();
        EXPECT_THAT(closeLog.calls(), IsEmpty());
    }
    EXPECT_THAT(closeLog.calls(), ElementsAre(test::closeCall(uuid)));
}

TEST_F(ConnectionTest, WritesPendingOutputBeforeItCallsItsCloseFunction) {
    const StreamBuffer published = publish(16);
    std::vector<test::Call> callsBeforeClose;
    {
        StreamBuffer connected =
            makeDevice(uuid, [&](const boost::uuids::uuid&) { callsBeforeClose = device.calls(); });
        test::put(connected, "pending");
    }
    EXPECT_THAT(callsBeforeClose, ElementsAre(test::writeCall("pending")));
}

TEST_F(ConnectionTest, EndsWithoutACloseFunctionAsWell) {
    const StreamBuffer published = publish();
    EXPECT_NO_THROW(makeDevice(uuid, noCloseFunction()));
}

TEST_F(ConnectionTest, DropsWhatItsCloseFunctionThrows) {
    const StreamBuffer published = publish();
    closeLog.always(Operation::close, Reply::throwing(test::DeviceError("cannot close")));
    EXPECT_NO_THROW(connect());
    EXPECT_THAT(closeLog.calls(), ElementsAre(test::closeCall(uuid)));
}

class OrphanedConnectionTest : public ConnectionTest {
protected:
    /// Connect to a device whose publisher goes away.
    StreamBuffer connectToVanished() const {
        const StreamBuffer published = publish();
        return connect();
    }
};

TEST_F(OrphanedConnectionTest, FailsWithAClearErrorNotWithAnEndOfData) {
    StreamBuffer connected = connectToVanished();
    const std::string text =
        "Service \"" + test::serviceNameOf(uuid) + "\" is not available any more.";
    EXPECT_THAT([&] { connected.sgetc(); }, throwsExactly<ServiceUnavailable>(text));
    EXPECT_THAT([&] { test::take(connected, 10); }, throwsExactly<ServiceUnavailable>(text));
    EXPECT_THAT(
        [&] { test::put(connected, "longer than the buffer"); },
        throwsExactly<ServiceUnavailable>(text));
    EXPECT_THAT(
        [&] { connected.pubseekoff(0, ios_base::beg, ios_base::in); },
        throwsExactly<ServiceUnavailable>(text));
    EXPECT_THAT(
        [&] { connected.pubseekpos(0, ios_base::in); }, throwsExactly<ServiceUnavailable>(text));
    test::put(connected, "abc");
    EXPECT_THAT([&] { connected.pubsync(); }, throwsExactly<ServiceUnavailable>(text));
    EXPECT_THAT(device.calls(), IsEmpty());
}

TEST_F(OrphanedConnectionTest, IsABadStreamNotOneAtItsEnd) {
    StreamBuffer connected = connectToVanished();
    std::istream input(&connected);
    EXPECT_EQ(input.get(), endOfFile);
    EXPECT_TRUE(input.bad());
    EXPECT_FALSE(input.eof());

    std::ostream output(&connected);
    output << "abc" << std::flush;
    EXPECT_TRUE(output.bad());
    EXPECT_FALSE(output.eof());

    std::istream throwing(&connected);
    throwing.exceptions(ios_base::badbit);
    EXPECT_THROW(throwing.get(), ServiceUnavailable);
}

TEST_F(OrphanedConnectionTest, StillDeliversWhatItHasReadAhead) {
    auto published = std::make_optional(publish());
    StreamBuffer connected = connect();
    EXPECT_EQ(connected.sbumpc(), '0');
    published.reset();
    EXPECT_EQ(test::take(connected, 3), "123");
    EXPECT_THROW(connected.sgetc(), ServiceUnavailable);
}

TEST_F(OrphanedConnectionTest, EndsQuietlyWithPendingOutput) {
    {
        StreamBuffer connected = connectToVanished();
        test::put(connected, "abc");
    }
    EXPECT_THAT(closeLog.calls(), ElementsAre(test::closeCall(uuid)));
    EXPECT_THAT(device.calls(), IsEmpty());
}

TEST_F(OrphanedConnectionTest, StaysOrphanedWhenTheUuidIsPublishedAgain) {
    StreamBuffer orphaned = connectToVanished();
    const StreamBuffer again = publish();
    EXPECT_THROW(orphaned.sgetc(), ServiceUnavailable);
    StreamBuffer connected = connect();
    EXPECT_EQ(connected.sgetc(), '0');
}

} // namespace
} // namespace agent::orvi::streambuf
