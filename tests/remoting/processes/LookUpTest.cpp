#include "remoting/processes/ProcessTest.hpp"

#include <cppmicroservices/ServiceException.h>

#include <memory>
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
