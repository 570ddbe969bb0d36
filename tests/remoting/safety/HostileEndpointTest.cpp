#include "allocations/ProcessAllocations.hpp"
#include "remoting/discovery/DescriptorGuard.hpp"
#include "remoting/discovery/TemporaryDirectory.hpp"
#include "remoting/discovery/Waiting.hpp"
#include "remoting/safety/RawEndpoint.hpp"

#include "streambuf/StreamBuffer.hpp"
#include "support/Registry.hpp"
#include "support/StreamBuffers.hpp"
#include "support/ThrowsExactly.hpp"

#include "exports/ExportedService.hpp"
#include "wire/InterfaceCodec.hpp"
#include "wire/PropertyCodec.hpp"

#include <orvi/core/InvocationErrors.hpp>
#include <orvi/remoting/Errors.hpp>
#include <orvi/remoting/Importer.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cppmicroservices/LDAPFilter.h>
#include <cppmicroservices/ServiceEvent.h>
#include <cppmicroservices/ServiceTracker.h>

#include <future>
#include <iostream>
#include <limits>
#include <mutex>
#include <utility>

namespace agent::orvi::remoting::test {
namespace {

using streambuf::test::take;
using streambuf::test::throwsExactly;
using Stream = RawEndpoint::Stream;
using Script = RawEndpoint::Script;

constexpr std::uint64_t serviceNumber = 17;

v1::Frame hello() {
    v1::Frame frame;
    frame.mutable_hello()->set_major(1);
    frame.mutable_hello()->set_framework("another framework");
    frame.mutable_hello()->set_endpoint("hostile");
    return frame;
}

/// Read until the importer ends the stream.
void readAll(Stream& stream) {
    v1::Frame frame;
    while (stream.Read(&frame)) {
    }
}

/// Return the offer of a stream as a process that publishes it would make it.
v1::Frame offerOf(const boost::uuids::uuid& uuid, std::uint64_t number = serviceNumber) {
    const auto published = streambuf::makeDevice(
        uuid, [](std::int64_t) { return std::string(); },
        [](const std::string& data) { return static_cast<std::int64_t>(data.size()); }, {}, {},
        100);
    const auto reference = streambuf::test::invokablesOf(uuid).at(0);
    v1::Frame frame;
    frame.mutable_offer()->set_service(number);
    details::Properties properties;
    for (const std::string& key : reference.GetPropertyKeys()) {
        if (!key.starts_with("service.exported.")) {
            properties.emplace_back(key, reference.GetProperty(key));
        }
    }
    details::encodeProperties(*frame.mutable_offer(), properties);
    *frame.mutable_offer()->mutable_interface() = details::encodeInterface(
        streambuf::test::registryContext().GetService(reference)->serviceInterface());
    return frame;
}

v1::Frame textAnswer(std::uint64_t length, const std::string& data) {
    v1::Frame frame;
    v1::Slot& slot = *frame.mutable_answer()->add_slots();
    slot.set_type(v1::TEXT);
    slot.set_length(length);
    frame.set_data(data);
    return frame;
}

v1::Frame failure(const std::string& type, const std::string& text, bool known) {
    v1::Frame frame;
    frame.mutable_failure()->set_type(type);
    frame.mutable_failure()->set_text(text);
    frame.mutable_failure()->set_known(known);
    return frame;
}

/// An importer that deals with an endpoint which breaks the protocol.
class HostileEndpointTest : public testing::Test {
protected:
    /// Import from an endpoint that offers the stream and then does on call streams what the
    /// script says, after the importer's greeting and request have come.
    void answerWith(const std::function<grpc::Status(Stream&)>& script) {
        start(offering(), [script](grpc::ServerContext&, Stream& stream) {
            v1::Frame frame;
            stream.Read(&frame);
            stream.Read(&frame);
            return script(stream);
        });
    }

    /// Greet, then send frames, then wait for the importer's end of the stream.
    void answerWith(const std::vector<v1::Frame>& frames) {
        answerWith([frames](Stream& stream) {
            stream.Write(hello());
            for (const v1::Frame& frame : frames) {
                stream.Write(frame);
            }
            readAll(stream);
            return grpc::Status::OK;
        });
    }

    void start(const Script& control, const Script& call) {
        endpoint.emplace(control, call);
        ImporterOptions options;
        options.local = false;
        options.targets = {address()};
        options.plainLoopback = true;
        options.limits = limits;
        importer.emplace(options);
    }

    std::string address() const { return "127.0.0.1:" + std::to_string(endpoint->port()); }

    /// Behave well on the control stream.
    Script offering() const { return offering({}); }

    /// The same after some other frames.
    Script offering(const std::vector<v1::Frame>& first) const {
        return [offer = offerOf(uuid), first](grpc::ServerContext&, Stream& stream) {
            stream.Write(hello());
            for (const v1::Frame& frame : first) {
                stream.Write(frame);
            }
            v1::Frame frame;
            while (stream.Read(&frame)) {
                if (frame.has_want()) {
                    v1::Frame settled;
                    settled.mutable_settled()->set_id(frame.want().id());
                    stream.Write(offer);
                    stream.Write(settled);
                }
            }
            return grpc::Status::OK;
        };
    }

    /// Read from the stream, and give the test up when that hangs.
    std::string read(std::size_t count = 5) {
        auto reading = std::async(std::launch::async, [&] {
            if (!connected) {
                connected.emplace(streambuf::makeDevice(uuid, streambuf::noCloseFunction()));
            }
            return take(*connected, count);
        });
        if (reading.wait_for(longTime) != std::future_status::ready) {
            std::cerr << "A call hangs." << std::endl;
            std::_Exit(1);
        }
        return reading.get();
    }

    template <class Error>
    void expectError(const std::string& text) {
        EXPECT_THAT([this] { read(); }, throwsExactly<Error>(text));
        // It stays lost.
        EXPECT_THAT([this] { read(); }, throwsExactly<Error>(text));
    }

    void expectProtocolError(const std::string& text) {
        expectError<ProtocolError>("Peer " + address() + ": " + text);
    }

    /// Return the state of the only peer once it has failed.
    PeerStatus failedPeer() const {
        PeerStatus status;
        EXPECT_TRUE(eventually([&] {
            const auto peers = importer->peers();
            for (const auto& peer : peers) {
                if (peer.state == PeerStatus::State::failed) {
                    status = peer;
                    return true;
                }
            }
            return false;
        }));
        return status;
    }

    const boost::uuids::uuid uuid = streambuf::test::newUuid();
    ImporterLimits limits;
    std::optional<RawEndpoint> endpoint;
    std::optional<Importer> importer;
    std::optional<streambuf::StreamBuffer> connected;
};

TEST_F(HostileEndpointTest, IsUsedAsLongAsItBehaves) {
    answerWith({textAnswer(5, "bytes")});
    EXPECT_EQ(read(), "bytes");
}

// Call streams.

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

// Control streams.

TEST_F(HostileEndpointTest, IsNotConnectedWhenItDoesNotGreetFirst) {
    start(
        [this](grpc::ServerContext&, Stream& stream) {
            stream.Write(offerOf(uuid));
            readAll(stream);
            return grpc::Status::OK;
        },
        {});
    EXPECT_EQ(failedPeer().error, "The endpoint does not greet first.");
    EXPECT_TRUE(streambuf::test::invokablesOf(uuid).empty());
}

TEST_F(HostileEndpointTest, IsNotConnectedInAnotherMajorVersion) {
    start(
        [](grpc::ServerContext&, Stream& stream) {
            v1::Frame other = hello();
            other.mutable_hello()->set_major(0);
            stream.Write(other);
            readAll(stream);
            return grpc::Status::OK;
        },
        {});
    EXPECT_EQ(
        failedPeer().error,
        "The endpoint speaks version 0 of the protocol, the importer version 1.");
}

TEST_F(HostileEndpointTest, IsDisconnectedWhenItGreetsTwiceOrSendsFramesOfCallStreams) {
    v1::Frame wanted;
    wanted.mutable_want()->set_id(1);
    for (const v1::Frame& wrong : {hello(), textAnswer(0, ""), wanted}) {
        start(offering({wrong}), {});
        EXPECT_EQ(
            failedPeer().error, wrong.has_hello()
                                    ? "The endpoint greets twice."
                                    : "A control stream carries nothing but offers to the "
                                      "importer.");
        importer.reset();
        endpoint.reset();
    }
}

TEST_F(HostileEndpointTest, IsDisconnectedWhenItsOffersAreMalformed) {
    const v1::Frame good = offerOf(uuid);
    std::vector<v1::Frame> bad(5, good);
    bad[0].mutable_offer()->clear_interface();
    bad[1].mutable_offer()->mutable_properties(0)->clear_key();
    *bad[2].mutable_offer()->add_properties() = good.offer().properties(0);
    bad[3].mutable_offer()->mutable_interface()->mutable_methods(0)->clear_name();
    *bad[4].mutable_offer()->mutable_interface()->add_methods() =
        good.offer().interface().methods(0);
    for (const v1::Frame& offer : bad) {
        start(
            [offer](grpc::ServerContext&, Stream& stream) {
                stream.Write(hello());
                v1::Frame frame;
                while (stream.Read(&frame)) {
                    stream.Write(offer);
                }
                return grpc::Status::OK;
            },
            {});
        cppmicroservices::ServiceTracker<core::Invokable> tracker(
            streambuf::test::registryContext(),
            cppmicroservices::LDAPFilter(
                "(orvi.servicename=" + streambuf::test::serviceNameOf(uuid) + ")"));
        tracker.Open();
        EXPECT_FALSE(failedPeer().error.empty());
        EXPECT_TRUE(tracker.IsEmpty()) << offer.DebugString();
        tracker.Close();
        importer.reset();
        endpoint.reset();
    }
}

/// Looks for all streams there are.
class BroadLookUp {
public:
    BroadLookUp()
        : tracker(
              streambuf::test::registryContext(),
              cppmicroservices::LDAPFilter("(&(orvi.servicename=*)(service.imported=true))")) {
        tracker.Open();
    }

    ~BroadLookUp() { tracker.Close(); }

    BroadLookUp(const BroadLookUp&) = delete;
    BroadLookUp& operator=(const BroadLookUp&) = delete;

    std::size_t found() const { return tracker.GetServiceReferences().size(); }

private:
    cppmicroservices::ServiceTracker<core::Invokable> tracker;
};

/// Offer a number of services to the first look-up, with a text of some bytes each; then replace
/// the first of them by itself with another text, as often as it is told.
Script offeringMany(std::uint64_t count, std::size_t bytes, int replacements = 0) {
    return [=, offer = offerOf(streambuf::test::newUuid())](
               grpc::ServerContext&, Stream& stream) mutable {
        v1::Property& text = *offer.mutable_offer()->add_properties();
        text.set_key("text");
        stream.Write(hello());
        v1::Frame frame;
        stream.Read(&frame);
        while (!frame.has_want()) {
            stream.Read(&frame);
        }
        const auto write = [&](std::uint64_t number, char letter) {
            offer.mutable_offer()->set_service(number);
            text.mutable_value()->set_text(std::string(bytes, letter));
            stream.Write(offer);
        };
        for (std::uint64_t number = 1; number <= count; ++number) {
            write(number, 'a');
        }
        for (int i = 0; i < replacements; ++i) {
            write(1, static_cast<char>('b' + i % 20));
        }
        v1::Frame settled;
        settled.mutable_settled()->set_id(frame.want().id());
        stream.Write(settled);
        readAll(stream);
        return grpc::Status::OK;
    };
}

TEST_F(HostileEndpointTest, MayOfferAsManyServicesAsTheImporterTakes) {
    limits.services = 5;
    const BroadLookUp lookUp;
    start(offeringMany(5, 10, 20), {});
    ASSERT_TRUE(eventually([&] { return lookUp.found() == 5; }));
    EXPECT_TRUE(importer->waitUntilSettled(longTime));
    EXPECT_EQ(importer->peers().at(0).state, PeerStatus::State::connected);
}

TEST_F(HostileEndpointTest, IsDisconnectedWhenItOffersMoreServices) {
    limits.services = 5;
    const BroadLookUp lookUp;
    start(offeringMany(6, 10), {});
    EXPECT_EQ(failedPeer().error, "The endpoint offers more than 5 services.");
    EXPECT_TRUE(eventually([&] { return lookUp.found() == 0; }));
}

TEST_F(HostileEndpointTest, MayOfferServicesOfAsManyBytesAsTheImporterTakes) {
    limits.serviceBytes = 500000;
    const BroadLookUp lookUp;
    start(offeringMany(4, 100000, 20), {});
    ASSERT_TRUE(eventually([&] { return lookUp.found() == 4; }));
    EXPECT_TRUE(importer->waitUntilSettled(longTime));
    EXPECT_EQ(importer->peers().at(0).state, PeerStatus::State::connected);
}

TEST_F(HostileEndpointTest, IsDisconnectedWhenItOffersServicesOfMoreBytes) {
    limits.serviceBytes = 500000;
    const BroadLookUp lookUp;
    start(offeringMany(5, 100000), {});
    EXPECT_EQ(failedPeer().error, "The endpoint offers services that take more than 500000 bytes.");
    EXPECT_TRUE(eventually([&] { return lookUp.found() == 0; }));
}

TEST_F(HostileEndpointTest, IsTriedEverMoreSlowlyWhenItGreetsAndHangsUp) {
    using Clock = std::chrono::steady_clock;
    std::mutex mutex;
    std::vector<Clock::time_point> times;
    start(
        [&](grpc::ServerContext&, Stream& stream) {
            stream.Write(hello());
            const std::lock_guard lock(mutex);
            times.push_back(Clock::now());
            return grpc::Status(grpc::StatusCode::RESOURCE_EXHAUSTED, "why");
        },
        {});
    constexpr std::size_t attempts = 4;
    ASSERT_TRUE(eventually([&] {
        const std::lock_guard lock(mutex);
        return times.size() >= attempts;
    }));
    const std::lock_guard lock(mutex);
    EXPECT_GT(times[attempts - 1] - times[0], std::chrono::milliseconds(1200));
}

TEST_F(HostileEndpointTest, MayRefuseWhatIsLookedForInManyWords) {
    start(
        [](grpc::ServerContext&, Stream& stream) {
            stream.Write(hello());
            v1::Frame frame;
            while (stream.Read(&frame)) {
                v1::Frame settled;
                settled.mutable_settled()->set_id(frame.want().id());
                settled.mutable_settled()->set_refusal(std::string(100000, 'x'));
                stream.Write(settled);
            }
            return grpc::Status::OK;
        },
        {});
    cppmicroservices::ServiceTracker<core::Invokable> tracker(
        streambuf::test::registryContext(), cppmicroservices::LDAPFilter("(orvi.servicename=a)"));
    tracker.Open();
    EXPECT_TRUE(eventually([&] { return !importer->peers().at(0).error.empty(); }));
    EXPECT_EQ(importer->peers().at(0).state, PeerStatus::State::connected);
    EXPECT_EQ(importer->peers().at(0).error, std::string(1024, 'x'));
    EXPECT_TRUE(importer->waitUntilSettled(longTime));
    tracker.Close();
}

TEST_F(HostileEndpointTest, MayWithdrawAndSettleWhatNeverWas) {
    std::vector<v1::Frame> nonsense;
    for (std::uint64_t number = 0; number < 1000; ++number) {
        nonsense.emplace_back().mutable_withdrawal()->set_service(number + 100);
        nonsense.emplace_back().mutable_settled()->set_id(~number);
    }
    start(offering(nonsense), [](grpc::ServerContext&, Stream& stream) {
        v1::Frame frame;
        stream.Read(&frame);
        stream.Write(hello());
        stream.Read(&frame);
        stream.Write(textAnswer(5, "bytes"));
        readAll(stream);
        return grpc::Status::OK;
    });
    EXPECT_EQ(read(), "bytes");
}

TEST_F(HostileEndpointTest, CannotMakeItsServicesLookLocal) {
    v1::Frame offer = offerOf(uuid);
    const auto set = [&](const std::string& key, const std::string& text) {
        v1::Property* property = nullptr;
        for (v1::Property& known : *offer.mutable_offer()->mutable_properties()) {
            if (known.key() == key) {
                property = &known;
            }
        }
        property = property == nullptr ? offer.mutable_offer()->add_properties() : property;
        property->set_key(key);
        property->mutable_value()->set_text(text);
    };
    set("service.imported", "no");
    set("endpoint.id", "somebody else's");
    set("endpoint.framework.uuid", "ours");
    set("service.id", "1");
    set("objectclass", "something else");
    start(
        [offer](grpc::ServerContext&, Stream& stream) {
            stream.Write(hello());
            v1::Frame frame;
            while (stream.Read(&frame)) {
                stream.Write(offer);
            }
            return grpc::Status::OK;
        },
        {});
    cppmicroservices::ServiceTracker<core::Invokable> tracker(
        streambuf::test::registryContext(),
        cppmicroservices::LDAPFilter(
            "(orvi.servicename=" + streambuf::test::serviceNameOf(uuid) + ")"));
    tracker.Open();
    ASSERT_NE(tracker.WaitForService(longTime), nullptr);
    const auto reference = tracker.GetServiceReference();
    EXPECT_EQ(cppmicroservices::any_cast<bool>(reference.GetProperty("service.imported")), true);
    EXPECT_EQ(reference.GetProperty("endpoint.id").ToStringNoExcept(), "hostile/17");
    EXPECT_EQ(
        reference.GetProperty("endpoint.framework.uuid").ToStringNoExcept(), "another framework");
    EXPECT_EQ(reference.GetProperty("service.id").Type(), typeid(long));
}

TEST_F(HostileEndpointTest, IsNotReadFasterThanItsOffersAreLookedAt) {
    const v1::Frame first = offerOf(uuid);
    v1::Frame unwanted = offerOf(streambuf::test::newUuid());
    v1::Property& large = *unwanted.mutable_offer()->add_properties();
    large.set_key("large");
    large.mutable_value()->set_text(std::string(100000, 'v'));

    // A listener of the program's own that takes its time.
    std::promise<void> listening;
    std::promise<void> released;
    auto context = streambuf::test::registryContext();
    auto token = context.AddServiceListener(
        [&, release = released.get_future().share()](const cppmicroservices::ServiceEvent& event) {
            if (event.GetType() == cppmicroservices::ServiceEvent::SERVICE_REGISTERED) {
                listening.set_value();
                release.wait();
            }
        },
        "(&(service.imported=*)(orvi.servicename=" + streambuf::test::serviceNameOf(uuid) + "))");

    std::promise<void> allSent;
    constexpr int count = 300;
    start(
        [&](grpc::ServerContext&, Stream& stream) {
            stream.Write(hello());
            v1::Frame frame;
            stream.Read(&frame);
            stream.Read(&frame);
            stream.Write(first);
            for (int i = 0; i < count; ++i) {
                stream.Write(unwanted);
            }
            allSent.set_value();
            readAll(stream);
            return grpc::Status::OK;
        },
        {});
    cppmicroservices::ServiceTracker<core::Invokable> tracker(
        context, cppmicroservices::LDAPFilter(
                     "(orvi.servicename=" + streambuf::test::serviceNameOf(uuid) + ")"));
    tracker.Open();
    listening.get_future().wait();
    auto sending = allSent.get_future();
    EXPECT_EQ(sending.wait_for(std::chrono::seconds(3)), std::future_status::timeout);
    released.set_value();
    EXPECT_EQ(sending.wait_for(longTime), std::future_status::ready);
    tracker.Close();
    context.RemoveListener(std::move(token));
}

} // namespace
} // namespace agent::orvi::remoting::test
