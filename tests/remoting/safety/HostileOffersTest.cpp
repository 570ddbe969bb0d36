#include "remoting/safety/HostileEndpointTest.hpp"

namespace agent::orvi::remoting::test {
namespace {

/// An importer whose endpoint does on its control stream what it must not do.
using HostileOffersTest = HostileEndpointTest;

TEST_F(HostileOffersTest, IsNotConnectedWhenItDoesNotGreetFirst) {
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

TEST_F(HostileOffersTest, IsNotConnectedInAnotherMajorVersion) {
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

TEST_F(HostileOffersTest, IsNotConnectedUnderANameThatIsTooLong) {
    for (const bool isFramework : {true, false}) {
        v1::Frame named = hello();
        std::string& name = isFramework ? *named.mutable_hello()->mutable_framework()
                                        : *named.mutable_hello()->mutable_endpoint();
        name.assign(257, 'n');
        start(
            [named](grpc::ServerContext&, Stream& stream) {
                stream.Write(named);
                readAll(stream);
                return grpc::Status::OK;
            },
            {});
        EXPECT_EQ(failedPeer().error, "The endpoint's names have more than 256 bytes.");
        importer.reset();
        endpoint.reset();
    }
}

TEST_F(HostileOffersTest, IsNotConnectedWhenItCompressesWhatItSends) {
    start(
        [](grpc::ServerContext& context, Stream& stream) {
            context.set_compression_algorithm(GRPC_COMPRESS_GZIP);
            v1::Frame named = hello();
            named.mutable_hello()->mutable_framework()->assign(std::size_t{64} << 20, 'n');
            stream.Write(named);
            readAll(stream);
            return grpc::Status::OK;
        },
        {});
    EXPECT_EQ(failedPeer().error, "Compression algorithm 'gzip' is disabled.");
}

TEST_F(HostileOffersTest, IsDisconnectedWhenItGreetsTwiceOrSendsFramesOfCallStreams) {
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

TEST_F(HostileOffersTest, IsDisconnectedWhenItsOffersAreMalformed) {
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

TEST_F(HostileOffersTest, MayOfferAsManyServicesAsTheImporterTakes) {
    limits.services = 5;
    const BroadLookUp lookUp;
    start(offeringMany(5, 10, 20), {});
    ASSERT_TRUE(eventually([&] { return lookUp.found() == 5; }));
    EXPECT_TRUE(importer->waitUntilSettled(longTime));
    EXPECT_EQ(importer->peers().at(0).state, PeerStatus::State::connected);
}

TEST_F(HostileOffersTest, IsDisconnectedWhenItOffersMoreServices) {
    limits.services = 5;
    const BroadLookUp lookUp;
    start(offeringMany(6, 10), {});
    EXPECT_EQ(failedPeer().error, "The endpoint offers more than 5 services.");
    EXPECT_TRUE(eventually([&] { return lookUp.found() == 0; }));
}

TEST_F(HostileOffersTest, MayOfferServicesOfAsManyBytesAsTheImporterTakes) {
    limits.serviceBytes = 500000;
    const BroadLookUp lookUp;
    start(offeringMany(4, 100000, 20), {});
    ASSERT_TRUE(eventually([&] { return lookUp.found() == 4; }));
    EXPECT_TRUE(importer->waitUntilSettled(longTime));
    EXPECT_EQ(importer->peers().at(0).state, PeerStatus::State::connected);
}

TEST_F(HostileOffersTest, IsDisconnectedWhenItOffersServicesOfMoreBytes) {
    limits.serviceBytes = 500000;
    const BroadLookUp lookUp;
    start(offeringMany(5, 100000), {});
    EXPECT_EQ(failedPeer().error, "The endpoint offers services that take more than 500000 bytes.");
    EXPECT_TRUE(eventually([&] { return lookUp.found() == 0; }));
}

TEST_F(HostileOffersTest, IsTriedEverMoreSlowlyWhenItGreetsAndHangsUp) {
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

TEST_F(HostileOffersTest, MayRefuseWhatIsLookedForInManyWords) {
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

TEST_F(HostileOffersTest, MayWithdrawAndSettleWhatNeverWas) {
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

TEST_F(HostileOffersTest, CannotMakeItsServicesLookLocal) {
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

TEST_F(HostileOffersTest, IsNotReadFasterThanItsOffersAreLookedAt) {
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
