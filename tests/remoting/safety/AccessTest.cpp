#include "remoting/safety/EndpointTest.hpp"

#include <unistd.h>

namespace agent::orvi::remoting::test {
namespace {

using streambuf::test::readCall;
using streambuf::test::writeCall;
using testing::ElementsAre;
using testing::IsEmpty;

/// An endpoint on a local socket and on a loopback address, whose peers have different names.
class AccessTest : public EndpointTest {
protected:
    AccessTest() {
        options.listen = {"127.0.0.1:0"};
        options.plainLoopback = true;
    }

    ~AccessTest() override { endpoint.reset(); } // not everybody is served

    std::shared_ptr<grpc::Channel> connectTcp() const {
        return connect(endpoint->addresses().at(1), grpc::InsecureChannelCredentials());
    }

    static std::unique_ptr<RawStream>
    callStream(const std::shared_ptr<grpc::Channel>& channel, std::uint64_t service) {
        auto stream = std::make_unique<RawStream>(channel, "Call");
        stream->send(greeting(service));
        return stream;
    }

    Outcome denied(const std::string& method) const {
        return {
            "agent::orvi::remoting::AccessDenied", "The endpoint does not let this peer call \"" +
                                                       method + "\" of service \"" +
                                                       published.name() + "\"."};
    }

    static v1::Frame seekRequest() {
        v1::Frame frame = request("seekpos");
        v1::Slot& slot = *frame.mutable_request()->add_slots();
        slot.set_type(v1::INT64_INT32);
        slot.set_packed(true);
        slot.add_numbers(2);
        slot.add_numbers(1);
        return frame;
    }

    const std::string ownUid = "uid:" + std::to_string(::getuid());
    Published published{"bytes"};
};

TEST_F(AccessTest, AllowsEverythingWithoutRules) {
    open();
    for (const auto& channel : {connect(), connectTcp()}) {
        const auto offer = offerOf(published, channel);
        ASSERT_TRUE(offer.has_value());
        const auto stream = callStream(channel, offer->service());
        EXPECT_EQ(call(*stream, readRequest(1)).type, "");
        EXPECT_EQ(call(*stream, writeRequest("w")), (Outcome{"", "1"}));
    }
}

TEST_F(AccessTest, LetsReadOnlyPeersReadAndSeekAndNothingReachTheDeviceBesides) {
    options.access = readOnly();
    open();
    const auto channel = connect();
    const auto stream = callStream(channel, offerOf(published, channel)->service());
    EXPECT_EQ(call(*stream, readRequest(3)), (Outcome{"", "byt"}));
    EXPECT_EQ(call(*stream, seekRequest()), (Outcome{"", "2"}));
    published.device.takeCalls();
    EXPECT_EQ(call(*stream, writeRequest("mine")), denied("write"));
    EXPECT_EQ(call(*stream, writeAnnouncement(std::uint64_t{1} << 60)), denied("write"));
    v1::Frame abandon;
    abandon.mutable_abandon();
    stream->send(abandon);
    v1::Frame oneWay = writeRequest("mine");
    oneWay.mutable_request()->set_one_way(true);
    stream->send(oneWay);
    EXPECT_EQ(call(*stream, request("close")), denied("close"));
    EXPECT_THAT(published.device.calls(), IsEmpty());
    EXPECT_EQ(call(*stream, readRequest(3)), (Outcome{"", "tes"}));
    EXPECT_EQ(published.device.bytes(), "bytes");
}

TEST_F(AccessTest, TellsPeersApartByTheirIdentity) {
    options.access = {{.identity = ownUid}, {.method = "write", .allow = false}};
    open();
    const auto local = connect();
    const std::uint64_t service = offerOf(published, local)->service();
    EXPECT_EQ(call(*callStream(local, service), writeRequest("w")), (Outcome{"", "1"}));
    EXPECT_EQ(call(*callStream(connectTcp(), service), writeRequest("w")), denied("write"));
    EXPECT_EQ(call(*callStream(connectTcp(), service), readRequest(5)), (Outcome{"", "wytes"}));
}

TEST_F(AccessTest, LetsNobodyBeSomebodyElse) {
    const auto outcome = [this](const std::shared_ptr<grpc::Channel>& channel) {
        return call(*callStream(channel, offerOf(published, channel)->service()), seekRequest());
    };
    const Outcome allowed{"", "2"};
    options.access = {{.identity = "uid:*"}, {.allow = false}};
    open();
    EXPECT_EQ(outcome(connect()), allowed);
    EXPECT_EQ(outcome(connectTcp()), denied("seekpos"));
    options.access = {{.identity = "loopback"}, {.allow = false}};
    open();
    EXPECT_EQ(outcome(connect()), denied("seekpos"));
    EXPECT_EQ(outcome(connectTcp()), allowed);
    options.access = {{.identity = "uid:" + std::to_string(::getuid() + 1)}, {.allow = false}};
    open();
    EXPECT_EQ(outcome(connect()), denied("seekpos"));
}

TEST_F(AccessTest, TellsServicesApart) {
    const Published other("other bytes");
    options.access = {{.service = other.name(), .method = "read", .allow = false}};
    open();
    const auto channel = connect();
    const auto one = callStream(channel, offerOf(published, channel)->service());
    const auto two = callStream(channel, offerOf(other, channel)->service());
    EXPECT_EQ(call(*one, readRequest(5)), (Outcome{"", "bytes"}));
    EXPECT_EQ(call(*two, readRequest(5)).type, "agent::orvi::remoting::AccessDenied");
    EXPECT_EQ(call(*two, writeRequest("w")), (Outcome{"", "1"}));
    EXPECT_THAT(other.device.calls(), ElementsAre(writeCall("w")));
}

TEST_F(AccessTest, IsDecidedByTheFirstRuleThatFits) {
    options.access = {
        {.service = "orviStreambuf_*", .method = "re*d"},
        {.method = "read", .allow = false},
        {.method = "w*", .allow = false},
        {.method = "write"}};
    open();
    const auto channel = connect();
    const auto stream = callStream(channel, offerOf(published, channel)->service());
    EXPECT_EQ(call(*stream, readRequest(5)), (Outcome{"", "bytes"}));
    EXPECT_EQ(call(*stream, writeRequest("w")), denied("write"));
    EXPECT_EQ(call(*stream, seekRequest()), (Outcome{"", "2"}));
}

TEST_F(AccessTest, ShowsWhatAPeerMayNotUseAtAllSoThatItHearsWhy) {
    options.access = {{.identity = "loopback", .service = published.name(), .allow = false}};
    open();
    const auto stranger = connectTcp();
    const auto offer = offerOf(published, stranger);
    ASSERT_TRUE(offer.has_value());
    const auto stream = callStream(stranger, offer->service());
    EXPECT_EQ(call(*stream, readRequest(1)), denied("read"));
    EXPECT_EQ(call(*stream, writeRequest("w")), denied("write"));
    EXPECT_THAT(published.device.calls(), IsEmpty());
}

TEST_F(AccessTest, IsAskedForMethodsThatThereAreNot) {
    options.access = {{.method = "read"}, {.allow = false}};
    open();
    const auto channel = connect();
    const auto stream = callStream(channel, offerOf(published, channel)->service());
    EXPECT_EQ(call(*stream, request("")), denied(""));
    EXPECT_EQ(call(*stream, request("read ")), denied("read "));
    EXPECT_EQ(
        call(*stream, request(std::string("read\0", 5))).type,
        "agent::orvi::remoting::AccessDenied");
    EXPECT_EQ(call(*stream, readRequest(5)), (Outcome{"", "bytes"}));
    EXPECT_THAT(published.device.calls(), ElementsAre(readCall(5)));
}

} // namespace
} // namespace agent::orvi::remoting::test
