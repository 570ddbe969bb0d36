#include "remoting/safety/EndpointTest.hpp"

namespace agent::orvi::remoting::test {
namespace {

/// A control stream on which its importer does what it must not do.
class HostileControlTest : public EndpointTest {
protected:
    void SetUp() override { open(); }

    std::unique_ptr<RawStream> greeted() const {
        auto stream = std::make_unique<RawStream>(connect(), "Control");
        stream->send(greeting());
        return stream;
    }
};

TEST_F(HostileControlTest, IsEndedWhenItDoesNotBeginWithAGreeting) {
    RawStream stream(connect(), "Control");
    stream.send(want(1, "(a=b)"));
    EXPECT_THAT(
        stream.end(), endsWith(invalidArgument, "A control stream begins with a greeting."));
}

TEST_F(HostileControlTest, IsEndedByASecondGreeting) {
    const auto stream = greeted();
    stream->send(greeting());
    EXPECT_THAT(
        stream->end(),
        endsWith(
            invalidArgument, "A control stream carries nothing but look-ups to the endpoint."));
}

TEST_F(HostileControlTest, IsEndedForAnotherMajorVersion) {
    for (const std::uint32_t version : {0U, 2U, ~0U}) {
        RawStream stream(connect(), "Control");
        v1::Frame hello = greeting();
        hello.mutable_hello()->set_major(version);
        stream.send(hello);
        EXPECT_THAT(
            stream.end(),
            endsWith(
                grpc::StatusCode::FAILED_PRECONDITION,
                "The endpoint speaks version 1 of the protocol, the importer version " +
                    std::to_string(version) + "."));
    }
}

TEST_F(HostileControlTest, IsServedInALaterMinorVersion) {
    const Published published("bytes");
    RawStream stream(connect(), "Control");
    v1::Frame hello = greeting();
    hello.mutable_hello()->set_minor(99);
    stream.send(hello);
    stream.send(std::string("\x62\x03new", 5)); // a frame that this version does not know
    stream.send(want(1, published.filter()));
    EXPECT_TRUE(receiveA(stream, v1::Frame::kOffer).has_value());
}

TEST_F(HostileControlTest, IsEndedByFramesOfTheOtherDirectionAndOfCallStreams) {
    std::vector<v1::Frame> frames{readRequest(1)};
    frames.emplace_back().mutable_offer();
    frames.emplace_back().mutable_withdrawal();
    frames.emplace_back().mutable_settled();
    frames.emplace_back().mutable_answer();
    frames.emplace_back().mutable_failure();
    frames.emplace_back().mutable_abandon();
    for (const v1::Frame& frame : frames) {
        const auto stream = greeted();
        stream->send(frame);
        EXPECT_THAT(
            stream->end(),
            endsWith(
                invalidArgument, "A control stream carries nothing but look-ups to the endpoint."))
            << frame.DebugString();
    }
}

TEST_F(HostileControlTest, IsEndedByBytesThatAreNoFrame) {
    const auto stream = greeted();
    stream->send(std::string("\xff\xff\xff"));
    EXPECT_THAT(stream->end(), endsWith(invalidArgument, "A frame is malformed."));
}

TEST_F(HostileControlTest, IsEndedByTwoLookUpsOfOneNumber) {
    const auto stream = greeted();
    stream->send(want(7, "(a=b)"));
    stream->send(want(7, "(a=c)"));
    EXPECT_THAT(stream->end(), endsWith(invalidArgument, "Two look-ups have the same number."));
}

TEST_F(HostileControlTest, MayUseANumberAgain) {
    const auto stream = greeted();
    for (int i = 0; i < 3; ++i) {
        stream->send(want(7, "(a=b)"));
        stream->send(unwant(7));
        EXPECT_TRUE(receiveA(*stream, v1::Frame::kSettled).has_value());
    }
}

TEST_F(HostileControlTest, IsNotDisturbedByTheEndOfLookUpsThatNeverWere) {
    const Published published("bytes");
    const auto stream = greeted();
    stream->send(unwant(1));
    stream->send(unwant(~std::uint64_t{0}));
    stream->send(want(1, published.filter()));
    EXPECT_TRUE(receiveA(*stream, v1::Frame::kOffer).has_value());
}

TEST_F(HostileControlTest, IsToldThatAFilterIsTooLong) {
    const auto stream = greeted();
    stream->send(want(1, "(a=" + std::string(4092, 'b') + ")")); // 4096
    auto settled = receiveA(*stream, v1::Frame::kSettled);
    ASSERT_TRUE(settled.has_value());
    EXPECT_EQ(settled->settled().refusal(), "");
    for (int i = 0; i < 2; ++i) { // the number is free again
        stream->send(want(2, "(a=" + std::string(4093, 'b') + ")"));
        settled = receiveA(*stream, v1::Frame::kSettled);
        ASSERT_TRUE(settled.has_value());
        EXPECT_EQ(settled->settled().id(), 2U);
        EXPECT_EQ(settled->settled().refusal(), "A filter has 4097 bytes; 4096 are allowed.");
    }
    const Published published("bytes");
    stream->send(want(2, published.filter()));
    EXPECT_TRUE(receiveA(*stream, v1::Frame::kOffer).has_value());
}

TEST_F(HostileControlTest, IsEndedByFiltersThatAreNone) {
    for (const std::string& filter :
         {std::string(), std::string("("), std::string("(a=b"), std::string("(&)"),
          std::string("(a=\\"), std::string("\0\xff\n", 3), std::string(4096, '('),
          std::string(4095, '\xff') + "(", std::string(4096, '\n')}) {
        const auto stream = greeted();
        stream->send(want(1, filter));
        const grpc::Status status = stream->end();
        EXPECT_EQ(status.error_code(), invalidArgument)
            << filter.size() << " bytes: " << status.error_message().substr(0, 200);
        EXPECT_FALSE(status.error_message().empty());
        EXPECT_LE(status.error_message().size(), 1024U);
    }
}

TEST_F(HostileControlTest, IsAnsweredSoonWhateverItsFiltersAre) {
    const Published published("bytes");
    std::string stars = "(orvi.servicename=*";
    while (stars.size() < 4090) {
        stars += "0*";
    }
    std::string nested;
    for (int depth = 0; depth < 400; ++depth) {
        nested += "(!";
    }
    nested += published.filter() + std::string(400, ')');
    std::string many = "(|";
    while (many.size() < 4080) {
        many += "(a=*b*)";
    }
    const auto stream = greeted();
    stream->send(want(1, stars + ")"));
    stream->send(want(2, nested));
    stream->send(want(3, many + ")"));
    for (std::uint64_t number = 1; number <= 3; ++number) {
        const auto settled = receiveA(*stream, v1::Frame::kSettled);
        ASSERT_TRUE(settled.has_value());
        EXPECT_EQ(settled->settled().id(), number);
    }
}

TEST_F(HostileControlTest, EndsInOrderWhenItHalfCloses) {
    const auto stream = greeted();
    stream->halfClose();
    EXPECT_TRUE(stream->end().ok());
}

} // namespace
} // namespace agent::orvi::remoting::test
