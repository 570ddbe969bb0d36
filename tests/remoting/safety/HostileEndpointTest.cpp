#include "remoting/safety/HostileEndpointTest.hpp"

namespace agent::orvi::remoting::test {
namespace {

v1::Frame failure(const std::string& type, const std::string& text, bool known) {
    v1::Frame frame;
    frame.mutable_failure()->set_type(type);
    frame.mutable_failure()->set_text(text);
    frame.mutable_failure()->set_known(known);
    return frame;
}

TEST_F(HostileEndpointTest, IsUsedAsLongAsItBehaves) {
    answerWith({textAnswer(5, "bytes")});
    EXPECT_EQ(read(), "bytes");
}

TEST_F(HostileEndpointTest, IsRefusedWhenItAnswersWithoutAGreeting) {
    answerWith([](Stream& stream) {
        stream.Write(textAnswer(5, "bytes"));
        readAll(stream);
        return grpc::Status::OK;
    });
    expectProtocolError("The endpoint answers a call that was not made.");
}

TEST_F(HostileEndpointTest, IsRefusedWhenItGreetsTwice) {
    answerWith({hello(), textAnswer(5, "bytes")});
    expectProtocolError("The endpoint greets twice.");
}

TEST_F(HostileEndpointTest, IsRefusedInAnotherMajorVersion) {
    v1::Frame other = hello();
    other.mutable_hello()->set_major(3);
    answerWith([other](Stream& stream) {
        stream.Write(other);
        readAll(stream);
        return grpc::Status::OK;
    });
    expectError<VersionMismatch>(
        "Peer " + address() +
        ": The endpoint speaks version 3 of the protocol, the importer version 1.");
}

TEST_F(HostileEndpointTest, IsRefusedWhenItSendsFramesOfTheOtherDirection) {
    v1::Frame request;
    request.mutable_request()->set_method("read");
    answerWith({request});
    expectProtocolError("A call stream carries nothing but answers to the importer.");
}

TEST_F(HostileEndpointTest, IsRefusedWhenItSendsDataThatBelongToNothing) {
    v1::Frame data;
    data.set_data("bytes");
    answerWith({data});
    expectProtocolError("The endpoint sends data that belong to nothing.");
}

TEST_F(HostileEndpointTest, IsRefusedWhenItSendsMoreDataThanItHasAnnounced) {
    answerWith({textAnswer(4, "bytes")});
    expectProtocolError("A message has more data than it announced.");
}

TEST_F(HostileEndpointTest, IsRefusedWhenItAnnouncesFarMoreThanWasAskedFor) {
    const std::uint64_t huge = std::uint64_t{1} << 50;
    answerWith({textAnswer(huge, "bytes")});
    const orvi::test::ProcessAllocations allocations;
    expectProtocolError(
        "The endpoint announces an answer of " + std::to_string(huge) +
        " bytes, of which 100 were asked for.");
    EXPECT_LT(allocations.largest(), std::size_t{1} << 20);
}

TEST_F(HostileEndpointTest, IsRefusedWhenItsLengthsOverflow) {
    v1::Frame answer = textAnswer(std::numeric_limits<std::uint64_t>::max(), "");
    *answer.mutable_answer()->add_slots() = answer.answer().slots(0);
    answerWith({answer});
    expectProtocolError("The texts of a message are too long.");
}

TEST_F(HostileEndpointTest, GivesNobodyMoreThanWasAskedFor) {
    answerWith({textAnswer(101, std::string(101, 'x'))});
    EXPECT_THROW(read(), std::exception);
}

TEST_F(HostileEndpointTest, IsAnErrorWhenItAnswersWithAnotherType) {
    for (const v1::Type type :
         {v1::INT64, v1::INT32, v1::OTHER, static_cast<v1::Type>(77), v1::INT64_INT32}) {
        v1::Frame answer;
        v1::Slot& slot = *answer.mutable_answer()->add_slots();
        slot.set_type(type);
        slot.add_numbers(0);
        if (type == v1::INT64_INT32) {
            slot.add_numbers(0);
        }
        answerWith({answer});
        EXPECT_THROW(read(), std::exception) << type;
        connected.reset();
        importer.reset();
        endpoint.reset();
    }
    answerWith({[] {
        v1::Frame answer;
        answer.mutable_answer();
        return answer;
    }()});
    EXPECT_THROW(read(), std::exception);
}

TEST_F(HostileEndpointTest, EndsNoDataByEndingItsStreamInTheMiddle) {
    answerWith([](Stream& stream) {
        stream.Write(hello());
        stream.Write(textAnswer(90, "the first bytes"));
        return grpc::Status::OK;
    });
    expectError<core::ServiceUnavailable>("Peer " + address() + " has closed its endpoint.");
}

TEST_F(HostileEndpointTest, EndsNoDataByEndingItsStreamAtOnce) {
    answerWith([](Stream& stream) {
        stream.Write(hello());
        return grpc::Status::OK;
    });
    expectError<core::ServiceUnavailable>("Peer " + address() + " has closed its endpoint.");
}

TEST_F(HostileEndpointTest, EndsCallsWithTheErrorOfItsStatus) {
    const auto end = [this](grpc::StatusCode code) {
        answerWith([code](Stream&) { return grpc::Status(code, "why"); });
    };
    const auto next = [this] {
        connected.reset();
        importer.reset();
        endpoint.reset();
    };
    end(grpc::StatusCode::INVALID_ARGUMENT);
    expectError<ProtocolError>("Peer " + address() + ": why");
    next();
    end(grpc::StatusCode::FAILED_PRECONDITION);
    expectError<VersionMismatch>("Peer " + address() + ": why");
    next();
    end(grpc::StatusCode::PERMISSION_DENIED);
    expectError<AccessDenied>("Peer " + address() + ": why");
    next();
    end(grpc::StatusCode::RESOURCE_EXHAUSTED);
    expectError<LimitExceeded>("Peer " + address() + ": why");
    next();
    end(grpc::StatusCode::ABORTED);
    expectError<PeerLost>("Peer " + address() + " is disconnected: why");
}

TEST_F(HostileEndpointTest, FailsWithErrorsThatTravel) {
    answerWith({failure("std::out_of_range", "why", true)});
    EXPECT_THAT([this] { read(); }, throwsExactly<std::out_of_range>("why"));
}

TEST_F(HostileEndpointTest, FailsWithErrorsOfTypesThatNobodyKnows) {
    struct Case {
        std::string type;
        bool known;
    };

    for (const Case& each :
         {Case{"their::Error", false}, Case{"their::Error", true}, Case{"", true},
          Case{"std::out_of_range", false}, Case{std::string("\xff\0", 2), true},
          Case{"agent::orvi::remoting::PeerLost", false}}) {
        answerWith({failure(each.type, "their text", each.known)});
        EXPECT_THAT([this] { read(); }, throwsExactly<RemoteError>("their text"));
        try {
            connected.reset();
            read();
        } catch (const RemoteError& error) {
            EXPECT_EQ(error.typeName(), each.type);
        }
        connected.reset();
        importer.reset();
        endpoint.reset();
    }
}

TEST_F(HostileEndpointTest, FailsWithRemoteErrorsWhereDetailsDoNotFit) {
    v1::Frame odd = failure("agent::orvi::remoting::PeerLost", "text", true);
    odd.mutable_failure()->set_code(99);
    answerWith({odd});
    EXPECT_THAT([this] { read(); }, throwsExactly<RemoteError>("text"));
}

TEST_F(HostileEndpointTest, MaySendFramesOfLaterVersions) {
    v1::Frame later;
    later.GetReflection()->MutableUnknownFields(&later)->AddLengthDelimited(12, "new");
    v1::Frame answer = textAnswer(5, "bytes");
    answer.GetReflection()->MutableUnknownFields(&answer)->AddVarint(13, 7);
    answerWith({later, textAnswer(5, "bytes"), later});
    EXPECT_EQ(read(), "bytes");
}

} // namespace
} // namespace agent::orvi::remoting::test
