#include "remoting/processes/ProcessTest.hpp"

#include <cppmicroservices/ServiceException.h>

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace agent::orvi::remoting::test {
namespace {

/// How long a connecting `makeDevice` waits.
constexpr std::chrono::seconds lookUpTime{20};

class RemoteLookUp : public ProcessTest {
protected:
    /// Connect, and once more where the stream was withdrawn between being found and being used.
    static StreamBuffer connectAtLast(const boost::uuids::uuid& uuid) {
        for (;;) {
            try {
                return connect(uuid);
            } catch (const cppmicroservices::ServiceException& error) {
                if (error.what() != std::string("No service is being tracked")) {
                    throw;
                }
            }
        }
    }

    const std::string stream = "kind=memory size=100 buffer=16";
};

TEST_F(RemoteLookUp, FindsAStreamThatWasPublishedBeforeTheEndpointWasOpened) {
    const auto uuid = publish(publisher, "device", stream);
    publisher.ask("open-endpoint" + where());
    const Importer importer(importing());
    StreamBuffer buffer = connect(uuid);
    EXPECT_EQ(take(buffer, 200), pattern(100));
}

TEST_F(RemoteLookUp, WaitsForAnEndpointThatIsOpenedLater) {
    const auto uuid = publish(publisher, "device", stream);
    const Importer importer(importing());
    Background connecting([&] { return connect(uuid); });
    publisher.ask("open-endpoint" + where());
    StreamBuffer buffer = connecting.get(lookUpTime);
    EXPECT_EQ(take(buffer, 200), pattern(100));
}

TEST_F(RemoteLookUp, WaitsForAProcessThatStartsLater) {
    const auto uuid = newUuid();
    const Importer importer(importing());
    Background connecting([&] { return connect(uuid); });
    RemoteComponent late;
    late.ask("open-endpoint" + where());
    publish(late, "device", uuid, stream);
    StreamBuffer buffer = connecting.get(lookUpTime);
    EXPECT_EQ(take(buffer, 200), pattern(100));
}

TEST_F(RemoteLookUp, WaitsForAnImporterThatIsOpenedLater) {
    publisher.ask("open-endpoint" + where());
    const auto uuid = publish(publisher, "device", stream);
    Background connecting([&] { return connect(uuid); });
    const Importer importer(importing());
    StreamBuffer buffer = connecting.get(lookUpTime);
    EXPECT_EQ(take(buffer, 200), pattern(100));
}

TEST_F(RemoteLookUp, WaitsForManyStreamsAtOnce) {
    publisher.ask("open-endpoint" + where());
    const Importer importer(importing());
    std::vector<boost::uuids::uuid> uuids;
    std::vector<std::unique_ptr<Background<StreamBuffer>>> connecting;
    for (int number = 0; number < 20; ++number) {
        const auto uuid = uuids.emplace_back(newUuid());
        connecting.push_back(
            std::make_unique<Background<StreamBuffer>>([uuid] { return connect(uuid); }));
    }
    for (std::size_t number = uuids.size(); number-- > 0;) {
        publish(publisher, "device" + std::to_string(number), uuids[number], stream);
    }
    for (const auto& each : connecting) {
        StreamBuffer buffer = each->get(lookUpTime);
        EXPECT_EQ(take(buffer, 200), pattern(100));
    }
}

TEST_F(RemoteLookUp, IsNotLostWhileTheStreamComesAndGoes) {
    publisher.ask("open-endpoint" + where());
    const Importer importer(importing());
    for (int round = 0; round < 30; ++round) {
        const auto uuid = newUuid();
        Background connecting([&] { return connectAtLast(uuid); });
        for (int times = 0; times < round % 7; ++times) {
            publish(publisher, "device", uuid, stream);
            publisher.ask("withdraw name=device");
        }
        publish(publisher, "device", uuid, stream);
        StreamBuffer buffer = connecting.get(lookUpTime);
        publisher.ask("withdraw name=device");
    }
}

TEST_F(RemoteLookUp, IsNotLostWhileTheEndpointComesAndGoes) {
    const auto uuid = publish(publisher, "device", stream);
    const Importer importer(importing());
    for (int round = 0; round < 5; ++round) {
        Background connecting([&] { return connectAtLast(uuid); });
        publisher.ask("open-endpoint" + where());
        StreamBuffer buffer = connecting.get(lookUpTime);
        EXPECT_EQ(buffer.pubseekpos(0, std::ios_base::in), std::streampos(0));
        publisher.ask("close-endpoint");
    }
}

TEST_F(RemoteLookUp, IsNotLostWhileProcessesDieAndComeBack) {
    const auto uuid = newUuid();
    const Importer importer(importing());
    for (int round = 0; round < 5; ++round) {
        Background connecting([&] { return connectAtLast(uuid); });
        RemoteComponent next;
        next.ask("open-endpoint" + where());
        publish(next, "device", uuid, stream);
        StreamBuffer buffer = connecting.get(lookUpTime);
        EXPECT_EQ(take(buffer, 200), pattern(100));
        next.kill();
        EXPECT_EQ(errorOf([&] { buffer.sgetc(); }), terminated);
        EXPECT_TRUE(eventually([&] { return importer.peers().empty(); }));
    }
}

/// Return a filter for one of many names, the given one among them.
std::string filterOfOneOf(std::size_t count, const boost::uuids::uuid& uuid) {
    std::string filter = "(|";
    for (std::size_t other = 1; other < count; ++other) {
        filter += "(orvi.servicename=" + streambuf::test::serviceNameOf(newUuid()) + ")";
    }
    return filter + "(orvi.servicename=" + streambuf::test::serviceNameOf(uuid) + "))";
}

TEST_F(RemoteLookUp, ForOneOfManyNamesFindsItAndLeavesTheOthersAlone) {
    publisher.ask("open-endpoint" + where());
    const auto used = publish(publisher, "used", stream);
    const auto found = publish(publisher, "found", stream);
    const Importer importer(importing());
    StreamBuffer buffer = connect(used);
    EXPECT_EQ(buffer.sgetc(), pattern(1)[0]);
    for (const std::size_t names :
         {std::size_t{50}, std::size_t{100}, std::size_t{3000}}) { // 3, 6 and 190 KiB
        cppmicroservices::ServiceTracker<core::Invokable> tracker(
            streambuf::test::registryContext(),
            cppmicroservices::LDAPFilter(filterOfOneOf(names, found)));
        tracker.Open();
        EXPECT_NE(tracker.WaitForService(errorTime), nullptr) << names;
        EXPECT_TRUE(importer.waitUntilSettled(errorTime)) << names;
        EXPECT_EQ(tracker.GetServiceReferences().size(), 1u) << names;
        EXPECT_EQ(errorOf([&] { buffer.pubseekpos(0, std::ios_base::in); }), "no error") << names;
        tracker.Close();
        EXPECT_TRUE(eventually([&] { return streambuf::test::invokablesOf(found).empty(); }));
    }
    EXPECT_EQ(take(buffer, 200), pattern(100));
}

TEST_F(RemoteLookUp, ThatNoEndpointTakesLeavesTheOthersAlone) {
    publisher.ask("open-endpoint" + where());
    const auto used = publish(publisher, "used", stream);
    const Importer importer(importing());
    StreamBuffer buffer = connect(used);
    for (const std::size_t length : {std::size_t{5000}, std::size_t{200000}}) {
        const LookUp lookUp(std::string(length, 'n'));
        EXPECT_TRUE(importer.waitUntilSettled(errorTime));
        StreamBuffer other = connect(publish(publisher, "other", stream));
        EXPECT_EQ(take(other, 200), pattern(100));
        publisher.ask("withdraw name=other");
    }
    EXPECT_EQ(take(buffer, 200), pattern(100));
}

TEST_F(RemoteLookUp, BeyondTheLimitOfTheEndpointIsMadeOnceThereIsRoom) {
    publisher.ask("open-endpoint" + where() + " look-ups=2");
    const auto uuid = publish(publisher, "device", stream);
    const Importer importer(importing());
    std::optional<LookUp> first(newUuid());
    std::optional<LookUp> second(newUuid());
    ASSERT_TRUE(importer.waitUntilSettled(errorTime));
    ASSERT_EQ(importer.peers().size(), 1u);
    EXPECT_EQ(importer.peers().at(0).error, "");
    LookUp third(uuid);
    ASSERT_TRUE(importer.waitUntilSettled(errorTime));
    EXPECT_TRUE(third.found().empty());
    EXPECT_EQ(importer.peers().at(0).state, PeerStatus::State::connected);
    EXPECT_EQ(importer.peers().at(0).error, "There are 2 look-ups already, which is the limit.");
    second.reset();
    EXPECT_NE(third.wait(), nullptr);
    EXPECT_TRUE(eventually([&] { return importer.peers().at(0).error.empty(); }));
    first.reset();
    ASSERT_TRUE(importer.waitUntilSettled(errorTime));
    EXPECT_EQ(third.found().size(), 1u);
}

TEST_F(RemoteLookUp, GoesOnWhileImportersComeAndGo) {
    publisher.ask("open-endpoint" + where());
    const auto uuid = publish(publisher, "device", stream);
    const Importer importer(importing());
    std::atomic<bool> ended = false;
    Background lookingUp([&] {
        int found = 0;
        for (; !ended; ++found) {
            StreamBuffer buffer = connectAtLast(uuid);
            const LookUp other(newUuid());
        }
        return found;
    });
    for (int round = 0; round < 200; ++round) {
        const Importer passing(importing());
    }
    ended = true;
    EXPECT_GT(lookingUp.get(), 0);
}

TEST_F(RemoteLookUp, KnowsWhoIsThereFromTheBeginning) {
    publisher.ask("open-endpoint" + where());
    for (int round = 0; round < 50; ++round) {
        Importer importer(importing());
        ASSERT_TRUE(importer.waitUntilSettled(errorTime));
        ASSERT_EQ(importer.peers().size(), 1u) << round;
        EXPECT_EQ(importer.peers().at(0).state, PeerStatus::State::connected);
    }
}

TEST_F(RemoteLookUp, LeavesEachEndpointToTheDirectoryItIsIn) {
    const TemporaryDirectory elsewhere;
    publisher.ask("open-endpoint directory=" + elsewhere.path.string());
    const auto uuid = publish(publisher, "device", stream);
    RemoteComponent here;
    here.ask("open-endpoint" + where());
    const auto found = publish(here, "device", stream);
    const Importer importer(importing());
    const StreamBuffer buffer = connect(found);
    EXPECT_TRUE(streambuf::test::invokablesOf(uuid).empty());
    EXPECT_EQ(importer.peers().size(), 1u);
}

} // namespace
} // namespace agent::orvi::remoting::test
