#include "remoting/safety/EndpointTest.hpp"

#include <limits>

namespace agent::orvi::remoting::test {
namespace {

using testing::IsEmpty;
using testing::StartsWith;

/// A call stream on which its importer does what it must not do.
class HostileCallTest : public EndpointTest {
protected:
    void SetUp() override {
        open();
        service = numberOf(published);
    }

    void TearDown() override { EXPECT_EQ(published.device.calls(), calls); }

    /// Open a stream and greet on it.
    std::unique_ptr<RawStream> greeted() const { return greeted(service); }

    std::unique_ptr<RawStream> greeted(std::uint64_t number) const {
        auto stream = std::make_unique<RawStream>(connect(), "Call");
        stream->send(greeting(number));
        return stream;
    }

    Published published{"a secret"};
    std::uint64_t service = 0;
    std::vector<streambuf::test::Call> calls; ///< What may reach the device.
};

TEST_F(HostileCallTest, IsEndedWhenItDoesNotBeginWithAGreeting) {
    RawStream stream(connect(), "Call");
    stream.send(readRequest(4));
    EXPECT_THAT(stream.end(), endsWith(invalidArgument, "A call stream begins with a greeting."));
}

TEST_F(HostileCallTest, IsEndedByASecondGreeting) {
    const auto stream = greeted();
    stream->send(greeting(service));
    EXPECT_THAT(
        stream->end(),
        endsWith(invalidArgument, "A call stream carries nothing but requests to the endpoint."));
}

TEST_F(HostileCallTest, IsEndedForAnotherMajorVersion) {
    RawStream stream(connect(), "Call");
    v1::Frame hello = greeting(service);
    hello.mutable_hello()->set_major(2);
    stream.send(hello);
    EXPECT_THAT(
        stream.end(), endsWith(
                          grpc::StatusCode::FAILED_PRECONDITION,
                          "The endpoint speaks version 1 of the protocol, the importer version "
                          "2."));
}

TEST_F(HostileCallTest, IsEndedByBytesThatAreNoFrame) {
    const std::string truncated = readRequest(4).SerializeAsString();
    const std::string dataFirst =
        dataFrame("data").SerializeAsString() + readRequest(4).SerializeAsString();
    for (const std::string& bytes :
         {std::string("\xff\xff\xff\xff"), truncated.substr(0, truncated.size() - 1), dataFirst}) {
        const auto stream = greeted();
        stream->send(bytes);
        EXPECT_THAT(stream->end(), endsWith(invalidArgument, "A frame is malformed."));
    }
}

TEST_F(HostileCallTest, IsEndedByFramesOfTheOtherDirectionAndOfControlStreams) {
    std::vector<v1::Frame> frames(7);
    frames[0].mutable_answer();
    frames[1].mutable_failure();
    frames[2].mutable_offer();
    frames[3].mutable_settled();
    frames[4].mutable_withdrawal();
    frames[5] = want(1, "(a=b)");
    frames[6] = unwant(1);
    for (const v1::Frame& frame : frames) {
        const auto stream = greeted();
        stream->send(frame);
        EXPECT_THAT(
            stream->end(),
            endsWith(
                invalidArgument, "A call stream carries nothing but requests to the endpoint."))
            << frame.DebugString();
    }
}

TEST_F(HostileCallTest, IsEndedByDataThatBelongToNothing) {
    const auto stream = greeted();
    stream->send(dataFrame("data"));
    EXPECT_THAT(
        stream->end(),
        endsWith(invalidArgument, "A call stream carries nothing but requests to the endpoint."));
}

TEST_F(HostileCallTest, GoesOnAfterFramesOfALaterVersion) {
    const auto stream = greeted();
    stream->send(std::string("\x62\x03new", 5)); // field 12
    EXPECT_EQ(call(*stream, readRequest(8)), (Outcome{"", "a secret"}));
    calls = {streambuf::test::readCall(8)};
}

TEST_F(HostileCallTest, IsEndedByAFrameBeyondTheLimit) {
    const auto stream = greeted();
    stream->send(writeRequest(std::string(131072, 'x')));
    const grpc::Status status = stream->end();
    EXPECT_EQ(status.error_code(), grpc::StatusCode::RESOURCE_EXHAUSTED);
    EXPECT_THAT(status.error_message(), testing::HasSubstr("131072"));
}

TEST_F(HostileCallTest, IsEndedWhenItCompressesWhatItSends) {
    RawStream stream(connect(), "Call", GRPC_COMPRESS_GZIP);
    stream.send(greeting(service));
    stream.send(writeRequest(std::string(std::size_t{64} << 20, 'x')));
    EXPECT_EQ(stream.end().error_code(), grpc::StatusCode::UNIMPLEMENTED);
}

TEST_F(HostileCallTest, TakesAFrameAtTheLimit) {
    const auto stream = greeted();
    v1::Frame frame = writeRequest(std::string(131072, 'x'));
    const std::size_t excess = frame.ByteSizeLong() - 131072;
    frame = writeRequest(std::string(131072 - excess, 'x'));
    ASSERT_EQ(frame.ByteSizeLong(), 131072U);
    EXPECT_EQ(call(*stream, frame), (Outcome{"", std::to_string(131072 - excess)}));
    calls = {streambuf::test::writeCall(frame.data())};
}

TEST_F(HostileCallTest, IsEndedByMoreDataThanWereAnnounced) {
    const auto atOnce = greeted();
    v1::Frame tooMuch = writeAnnouncement(3);
    tooMuch.set_data("four");
    atOnce->send(tooMuch);
    EXPECT_THAT(
        atOnce->end(), endsWith(invalidArgument, "A message has more data than it announced."));

    const auto later = greeted();
    later->send(writeAnnouncement(6));
    later->send(dataFrame("four"));
    later->send(dataFrame("four"));
    EXPECT_THAT(
        later->end(), endsWith(invalidArgument, "A message has more data than it announced."));
}

TEST_F(HostileCallTest, RunsNothingWhenDataAreMissingAtTheEndOfTheStream) {
    const auto stream = greeted();
    stream->send(writeAnnouncement(6));
    stream->send(dataFrame("four"));
    stream->halfClose();
    EXPECT_TRUE(stream->end().ok());
}

TEST_F(HostileCallTest, RunsNothingWhenItIsCancelledInTheMiddleOfData) {
    const auto stream = greeted();
    stream->send(writeAnnouncement(6));
    stream->send(dataFrame("four"));
    stream->cancel();
    EXPECT_EQ(stream->end().error_code(), grpc::StatusCode::CANCELLED);
}

TEST_F(HostileCallTest, IsEndedByARequestInTheMiddleOfAnother) {
    for (const v1::Frame& next : {readRequest(4), greeting(service), [] {
                                      v1::Frame frame;
                                      frame.mutable_abandon();
                                      return frame;
                                  }()}) {
        const auto stream = greeted();
        stream->send(writeAnnouncement(6));
        stream->send(next);
        EXPECT_THAT(stream->end(), endsWith(invalidArgument, "A request's data are interrupted."));
    }
}

TEST_F(HostileCallTest, IsEndedByTooManySlots) {
    const auto stream = greeted();
    v1::Frame frame = request("read");
    for (int slot = 0; slot < 65; ++slot) {
        frame.mutable_request()->add_slots()->set_type(v1::TEXT);
    }
    stream->send(frame);
    EXPECT_THAT(stream->end(), endsWith(invalidArgument, "A message has too many slots."));
}

TEST_F(HostileCallTest, IsEndedByLengthsWhoseSumOverflows) {
    const auto stream = greeted();
    v1::Frame frame = writeAnnouncement(std::numeric_limits<std::uint64_t>::max());
    *frame.mutable_request()->add_slots() = frame.request().slots(0);
    stream->send(frame);
    EXPECT_THAT(stream->end(), endsWith(invalidArgument, "The texts of a message are too long."));
}

TEST_F(HostileCallTest, IsEndedByNumbersThatDoNotFitTheirType) {
    const auto stream = greeted();
    v1::Frame frame = readRequest(1);
    frame.mutable_request()->mutable_slots(0)->set_type(v1::INT32);
    frame.mutable_request()->mutable_slots(0)->set_numbers(0, std::int64_t{1} << 40);
    stream->send(frame);
    EXPECT_THAT(
        stream->end(), endsWith(
                           invalidArgument,
                           "A slot of a message does not fit its type: a number is out of range."));
}

TEST_F(HostileCallTest, IsToldThatThereIsNoSuchService) {
    for (const std::uint64_t number : {std::uint64_t{0}, ~std::uint64_t{0}}) {
        const auto stream = greeted(number);
        const Outcome expected{
            "agent::orvi::core::ServiceUnavailable",
            "The endpoint has no service of the number " + std::to_string(number) + " any more."};
        EXPECT_EQ(call(*stream, readRequest(4)), expected);
        EXPECT_EQ(call(*stream, readRequest(4)), expected);
    }
}

TEST_F(HostileCallTest, IsToldThatThereIsNoSuchMethod) {
    const auto stream = greeted();
    for (const std::string& method :
         {std::string(), std::string("close"), std::string("READ"), std::string("read\0", 5),
          std::string(60000, 'r')}) {
        EXPECT_EQ(call(*stream, request(method)).type, "agent::orvi::core::UnknownMethod")
            << method.size();
    }
    EXPECT_EQ(call(*stream, readRequest(8)), (Outcome{"", "a secret"}));
    calls = {streambuf::test::readCall(8)};
}

TEST_F(HostileCallTest, IsToldThatArgumentsAreOfTheWrongType) {
    const auto stream = greeted();
    std::vector<v1::Frame> wrong;
    wrong.push_back(request("read"));      // none
    wrong.push_back(writeAnnouncement(0)); // a text …
    wrong.back().mutable_request()->set_method("read");
    wrong.push_back(readRequest(4)); // a type of a later version
    wrong.back().mutable_request()->mutable_slots(0)->set_type(static_cast<v1::Type>(77));
    wrong.push_back(readRequest(4)); // a state of a later version
    wrong.back().mutable_request()->mutable_slots(0)->set_state(static_cast<v1::Slot::State>(77));
    wrong.push_back(readRequest(4)); // a future that nobody fulfils
    wrong.back().mutable_request()->mutable_slots(0)->set_state(v1::Slot::FUTURE);
    wrong.push_back(readRequest(4)); // a value that was taken
    wrong.back().mutable_request()->mutable_slots(0)->set_state(v1::Slot::EMPTY);
    wrong.push_back(request("write"));
    wrong.push_back(readRequest(4)); // a number for a text
    wrong.back().mutable_request()->set_method("write");
    for (const v1::Frame& frame : wrong) {
        const Outcome outcome = call(*stream, frame);
        EXPECT_THAT(outcome.type, testing::Not(testing::AnyOf("", "end of stream")))
            << frame.DebugString();
        EXPECT_THAT(outcome.text, testing::Not(IsEmpty()));
    }
    EXPECT_EQ(call(*stream, readRequest(8)), (Outcome{"", "a secret"}));
    calls = {streambuf::test::readCall(8)};
}

TEST_F(HostileCallTest, IsNotListenedToBeforeTheAnswerBefore) {
    const auto stream = greeted();
    stream->send(readRequest(2));
    stream->send(readRequest(6));
    EXPECT_EQ(outcomeOf(*stream), (Outcome{"", "a "}));
    EXPECT_EQ(outcomeOf(*stream), (Outcome{"", "secret"}));
    calls = {streambuf::test::readCall(2), streambuf::test::readCall(6)};
}

TEST_F(HostileCallTest, IsAnsweredAfterItHasHalfClosed) {
    const auto stream = greeted();
    stream->send(readRequest(8));
    stream->halfClose();
    EXPECT_EQ(outcomeOf(*stream), (Outcome{"", "a secret"}));
    EXPECT_TRUE(stream->end().ok());
    calls = {streambuf::test::readCall(8)};
}

TEST_F(HostileCallTest, EndsInOrderWhenItHalfClosesBeforeAnything) {
    RawStream stream(connect(), "Call");
    stream.halfClose();
    EXPECT_TRUE(stream.end().ok());
}

TEST_F(HostileCallTest, GoesOnAfterAnAbandonThatAbandonsNothing) {
    const auto stream = greeted();
    v1::Frame abandon;
    abandon.mutable_abandon();
    for (int i = 0; i < 100; ++i) {
        stream->send(abandon);
    }
    EXPECT_EQ(call(*stream, readRequest(8)), (Outcome{"", "a secret"}));
    calls = {streambuf::test::readCall(8)};
}

TEST_F(HostileCallTest, GoesOnWhenTheDataOfARefusedRequestAreAbandoned) {
    const auto stream = greeted();
    v1::Frame huge = writeAnnouncement(std::uint64_t{1} << 62);
    huge.set_data("the first bytes");
    EXPECT_EQ(call(*stream, huge).type, "agent::orvi::remoting::LimitExceeded");
    stream->send(dataFrame("some more"));
    v1::Frame abandon;
    abandon.mutable_abandon();
    stream->send(abandon);
    EXPECT_EQ(call(*stream, readRequest(8)), (Outcome{"", "a secret"}));
    calls = {streambuf::test::readCall(8)};
}

TEST_F(HostileCallTest, IsEndedByMoreDataThanWereAnnouncedOfARefusedRequest) {
    const auto unknown = greeted(service + 1000000);
    v1::Frame first = writeAnnouncement(10);
    first.set_data("12345");
    EXPECT_EQ(call(*unknown, first).type, "agent::orvi::core::ServiceUnavailable");
    unknown->send(dataFrame("123456"));
    EXPECT_THAT(
        unknown->end(),
        endsWith(invalidArgument, "A request has more data than it has announced."));
}

TEST_F(HostileCallTest, IsToldOfNothingThatOneWayRequestsEndWith) {
    const auto stream = greeted();
    for (v1::Frame frame :
         {request("nothing"), readRequest(std::int64_t{1} << 62), writeRequest("")}) {
        frame.mutable_request()->set_one_way(true);
        stream->send(frame);
    }
    EXPECT_EQ(call(*stream, readRequest(8)), (Outcome{"", "a secret"}));
    calls = {streambuf::test::writeCall(""), streambuf::test::readCall(8)};
}

} // namespace
} // namespace agent::orvi::remoting::test
