#include "allocations/ProcessAllocations.hpp"
#include "remoting/discovery/Sockets.hpp"
#include "remoting/safety/EndpointTest.hpp"
#include "remoting/safety/GatedDevice.hpp"

#include <limits>
#include <vector>

namespace agent::orvi::remoting::test {
namespace {

Outcome limitExceeded(const std::string& text) {
    return {"agent::orvi::remoting::LimitExceeded", text};
}

/// An endpoint with a small limit: what is at the limit works, what is beyond it is refused, and
/// there is room again afterwards.
class LimitsTest : public EndpointTest {
protected:
    void publish() {
        open();
        service = numberOf(published);
    }

    std::unique_ptr<RawStream> stream(const std::shared_ptr<grpc::Channel>& channel) const {
        auto stream = std::make_unique<RawStream>(channel, "Call");
        stream->send(greeting(service));
        return stream;
    }

    std::uint64_t numberOfGated() const {
        RawStream control(connect(), "Control");
        control.send(greeting());
        control.send(
            want(1, "(orvi.servicename=" + streambuf::test::serviceNameOf(gated.uuid) + ")"));
        return receiveA(control, v1::Frame::kOffer)->offer().service();
    }

    Published published{std::string(5000, 'p')};
    GatedDevice gated;
    std::uint64_t service = 0;
};

TEST_F(LimitsTest, RefusesToReadMoreBytesPerCall) {
    options.limits.bytesPerCall = 4000;
    publish();
    const auto calls = stream(connect());
    EXPECT_EQ(call(*calls, readRequest(4000)), (Outcome{"", std::string(4000, 'p')}));
    EXPECT_EQ(
        call(*calls, readRequest(4001)),
        limitExceeded("The call moves 4001 bytes; the endpoint allows 4000."));
    EXPECT_EQ(call(*calls, readRequest(1000)), (Outcome{"", std::string(1000, 'p')}));
    EXPECT_THAT(
        published.device.calls(),
        testing::ElementsAre(streambuf::test::readCall(4000), streambuf::test::readCall(1000)));
}

TEST_F(LimitsTest, RefusesToWriteMoreBytesPerCall) {
    options.limits.bytesPerCall = 4000;
    publish();
    const auto calls = stream(connect());
    EXPECT_EQ(call(*calls, writeRequest(std::string(4000, 'w'))), (Outcome{"", "4000"}));
    EXPECT_EQ(
        call(*calls, writeRequest(std::string(4001, 'w'))),
        limitExceeded("The call moves 4001 bytes; the endpoint allows 4000."));
    EXPECT_EQ(call(*calls, writeRequest("more")), (Outcome{"", "4"}));
    EXPECT_THAT(
        published.device.calls(), testing::ElementsAre(
                                      streambuf::test::writeCall(std::string(4000, 'w')),
                                      streambuf::test::writeCall("more")));
}

TEST_F(LimitsTest, AllocatesNothingForWhatIsRefused) {
    constexpr std::uint64_t much = std::uint64_t{3} << 30; // beyond the usual limit
    publish();
    const auto calls = stream(connect());
    EXPECT_EQ(call(*calls, readRequest(10)).text, "pppppppppp");
    const orvi::test::ProcessAllocations allocations;
    for (const std::uint64_t bytes : {much, std::uint64_t{1} << 62, ~std::uint64_t{0}}) {
        EXPECT_EQ(
            call(*calls, writeAnnouncement(bytes)), limitExceeded(
                                                        "The call moves " + std::to_string(bytes) +
                                                        " bytes; the endpoint allows 2147483648."));
        v1::Frame abandon;
        abandon.mutable_abandon();
        calls->send(abandon);
    }
    EXPECT_EQ(
        call(*calls, readRequest(static_cast<std::int64_t>(much))),
        limitExceeded("The call moves 3221225472 bytes; the endpoint allows 2147483648."));
    EXPECT_LT(allocations.largest(), 256U << 10);
}

TEST_F(LimitsTest, ReadsNothingWhereLessThanNothingIsAskedFor) {
    publish();
    const auto calls = stream(connect());
    const orvi::test::ProcessAllocations allocations;
    for (const std::int64_t count : {std::int64_t{-1}, std::numeric_limits<std::int64_t>::min()}) {
        EXPECT_EQ(call(*calls, readRequest(count)).text, "");
    }
    EXPECT_LT(allocations.largest(), 256U << 10);
}

TEST_F(LimitsTest, RefusesMoreBytesInFlight) {
    options.limits.bytesInFlight = 4000;
    publish();
    const std::uint64_t gatedService = numberOfGated();
    RawStream waiting(connect(), "Call");
    waiting.send(greeting(gatedService));
    waiting.send(readRequest(3000));
    gated.awaitReaders(1);
    const auto calls = stream(connect());
    EXPECT_EQ(call(*calls, readRequest(1000)), (Outcome{"", std::string(1000, 'p')}));
    EXPECT_EQ(
        call(*calls, readRequest(1001)),
        limitExceeded("The endpoint has no room for 1001 more bytes: of 4000, 3000 are in use."));
    gated.open();
    EXPECT_EQ(outcomeOf(waiting), (Outcome{"", std::string(3000, 'x')}));
    EXPECT_EQ(call(*calls, readRequest(4000)), (Outcome{"", std::string(4000, 'p')}));
}

TEST_F(LimitsTest, HasRoomAgainWhenRequestsAreGivenUpHalfSent) {
    options.limits.bytesInFlight = 4000;
    publish();
    const auto calls = stream(connect());
    for (int i = 0; i < 5; ++i) {
        v1::Frame announcement = writeAnnouncement(3000);
        announcement.set_data("the first bytes");
        std::unique_ptr<RawStream> half;
        // The call that shows whether it has arrived may be there first, which refuses it.
        ASSERT_TRUE(eventually([&] {
            half = stream(connect());
            half->send(announcement);
            return !call(*calls, readRequest(2000)).type.empty();
        }));
        half->cancel();
        half->end();
        ASSERT_TRUE(eventually([&] { return call(*calls, readRequest(4000)).type.empty(); }));
    }
}

TEST_F(LimitsTest, RefusesMoreCallsInFlight) {
    options.limits.callsInFlight = 3;
    options.callOrder = CallOrder::oneAtATime; // those that wait count, too
    publish();
    const std::uint64_t gatedService = numberOfGated();
    std::vector<std::unique_ptr<RawStream>> waiting;
    for (int i = 0; i < 3; ++i) {
        auto& added = waiting.emplace_back(std::make_unique<RawStream>(connect(), "Call"));
        added->send(greeting(gatedService));
        added->send(readRequest(1));
    }
    const auto calls = stream(connect());
    const Outcome refused =
        limitExceeded("The endpoint runs 3 calls already, which is all it runs at a time.");
    ASSERT_TRUE(eventually([&] { return call(*calls, readRequest(1)) == refused; }));
    EXPECT_EQ(call(*calls, writeRequest("bytes")), refused);
    gated.open();
    for (const auto& each : waiting) {
        EXPECT_EQ(outcomeOf(*each), (Outcome{"", "x"}));
    }
    EXPECT_EQ(call(*calls, writeRequest("bytes")), (Outcome{"", "5"}));
}

TEST_F(LimitsTest, RefusesMoreStreamsOverAllConnections) {
    options.limits.streams = 4;
    publish();
    std::vector<std::unique_ptr<RawStream>> open;
    ASSERT_TRUE(eventually([&] { // the one that looked for the service may not have ended yet
        auto added = stream(connect());
        if (call(*added, readRequest(1)).type.empty()) {
            open.push_back(std::move(added));
        }
        return open.size() == 4;
    }));
    for (const std::string& method : {std::string("Call"), std::string("Control")}) {
        RawStream refused(connect(), method);
        refused.send(greeting(service));
        EXPECT_THAT(
            refused.end(), endsWith(
                               grpc::StatusCode::RESOURCE_EXHAUSTED,
                               "The endpoint has no room for more streams."));
    }
    EXPECT_EQ(call(*open.front(), readRequest(1)), (Outcome{"", "p"}));
    open.clear();
    ASSERT_TRUE(eventually([&] { // whoever has gone is not missed at once
        return call(*stream(connect()), readRequest(1)) == Outcome{"", "p"};
    }));
    EXPECT_TRUE(eventually([&] { return isServed(); }));
}

TEST_F(LimitsTest, ClosesMoreConnectionsAtOnce) {
    options.limits.connections = 2;
    publish();
    // Whoever looked for the service may not have gone yet.
    ASSERT_TRUE(eventually([&] {
        const auto first = connect();
        const auto second = connect();
        return call(*stream(first), readRequest(1)).type.empty() &&
               call(*stream(second), readRequest(1)).type.empty();
    }));
    std::vector<std::shared_ptr<grpc::Channel>> open;
    ASSERT_TRUE(eventually([&] {
        auto added = connect();
        if (call(*stream(added), readRequest(0)).type.empty()) {
            open.push_back(std::move(added));
        }
        return open.size() == 2;
    }));
    RawStream refused(connect(), "Call");
    refused.send(greeting(service));
    EXPECT_EQ(refused.end().error_code(), grpc::StatusCode::UNAVAILABLE);
    const auto calls = stream(open.front());
    EXPECT_EQ(call(*calls, readRequest(0)), (Outcome{"", ""}));
    open.clear();
    calls->cancel();
    EXPECT_TRUE(eventually([&] { return isServed(); }));
}

TEST_F(LimitsTest, MayBeTheLargestNumbersThereAre) {
    options.limits.connections = std::numeric_limits<std::size_t>::max();
    options.limits.streams = std::numeric_limits<std::size_t>::max();
    options.limits.callsInFlight = std::numeric_limits<std::size_t>::max();
    options.limits.bytesPerCall = std::numeric_limits<std::uint64_t>::max();
    options.limits.bytesInFlight = std::numeric_limits<std::uint64_t>::max();
    options.limits.wantedFilters = std::numeric_limits<std::size_t>::max();
    options.threads = std::numeric_limits<std::size_t>::max();
    options.keepaliveTime = std::chrono::milliseconds::max();
    options.keepaliveTimeout = std::chrono::milliseconds::max();
    publish();
    RawStream waiting(connect(), "Call");
    waiting.send(greeting(numberOfGated()));
    waiting.send(readRequest(3000));
    gated.awaitReaders(1);
    EXPECT_TRUE(isServed()) << "beside one that waits";
    gated.open();
    EXPECT_EQ(outcomeOf(waiting), (Outcome{"", std::string(3000, 'x')}));
}

TEST_F(LimitsTest, LeaveRoomForLocalPeersWhenStrangersAreSilentOverTcp) {
    options.limits.connections = 2;
    options.listen = {"127.0.0.1:0"};
    options.plainLoopback = true;
    open();
    const std::string& address = endpoint->addresses().at(1);
    const auto port = static_cast<std::uint16_t>(std::stoi(address.substr(address.rfind(':') + 1)));
    std::vector<details::Descriptor> silent;
    for (int i = 0; i < 2; ++i) {
        silent.push_back(connectTcp(port));
        ASSERT_TRUE(silent.back());
    }
    const auto refused = connectTcp(port);
    EXPECT_THAT(readFrom(refused.get()), testing::AnyOf("end", "error")); // they have been taken
    EXPECT_TRUE(isServed());
}

TEST_F(LimitsTest, RefusesMoreLookUps) {
    options.limits.wantedFilters = 3;
    publish();
    const auto channel = connect();
    RawStream control(channel, "Control");
    control.send(greeting());
    for (std::uint64_t number = 1; number <= 3; ++number) {
        control.send(want(number, "(a=b)"));
        EXPECT_TRUE(receiveA(control, v1::Frame::kSettled).has_value());
    }
    control.send(unwant(2));
    control.send(want(4, published.filter()));
    EXPECT_TRUE(receiveA(control, v1::Frame::kOffer).has_value());
    RawStream other(channel, "Control");
    other.send(greeting());
    other.send(want(1, published.filter()));
    EXPECT_TRUE(receiveA(other, v1::Frame::kOffer).has_value());
    control.send(want(5, "(a=b)"));
    std::optional<v1::Frame> settled;
    do {
        settled = receiveA(control, v1::Frame::kSettled);
        ASSERT_TRUE(settled.has_value());
    } while (settled->settled().id() != 5);
    EXPECT_EQ(settled->settled().refusal(), "There are 3 look-ups already, which is the limit.");
    control.send(unwant(5)); // it is none of the three
    control.send(want(5, "(a=b)"));
    settled = receiveA(control, v1::Frame::kSettled);
    ASSERT_TRUE(settled.has_value());
    EXPECT_EQ(settled->settled().refusal(), "There are 3 look-ups already, which is the limit.");
    control.send(unwant(1));
    control.send(want(5, "(a=b)"));
    settled = receiveA(control, v1::Frame::kSettled);
    ASSERT_TRUE(settled.has_value());
    EXPECT_EQ(settled->settled().refusal(), "");
}

} // namespace
} // namespace agent::orvi::remoting::test
