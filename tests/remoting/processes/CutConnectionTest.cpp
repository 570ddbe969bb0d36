#include "remoting/processes/ProcessTest.hpp"
#include "remoting/processes/TcpRelay.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace agent::orvi::remoting::test {
namespace {

/// Two processes that live on when the connection between them is cut.
class CutConnection : public ProcessTest {
protected:
    CutConnection() {
        const std::string endpoint =
            publisher.ask("open-endpoint" + where() + " listen=127.0.0.1:0");
        port = static_cast<std::uint16_t>(std::stoi(endpoint.substr(endpoint.rfind(':') + 1)));
        uuid = publish(publisher, "device", "kind=memory size=1000 buffer=16");
    }

    /// Return how to reach the publisher over relays only.
    static ImporterOptions importingFrom(const std::vector<std::string>& targets) {
        ImporterOptions options;
        options.local = false;
        options.targets = targets;
        options.plainLoopback = true;
        return options;
    }

    static std::size_t connectedPeers(const Importer& importer) {
        const auto peers = importer.peers();
        return static_cast<std::size_t>(
            std::count_if(peers.begin(), peers.end(), [](const PeerStatus& peer) {
                return peer.state == PeerStatus::State::connected;
            }));
    }

    std::uint16_t port = 0;
    boost::uuids::uuid uuid{};
};

TEST_F(CutConnection, EndsTheWaitingCallAndAllLaterOnesOfAnImporter) {
    TcpRelay relay(port);
    const Importer importer(importingFrom({relay.address()}));
    StreamBuffer buffer = connect(uuid);
    StreamBuffer idle = connect(uuid);
    EXPECT_EQ(idle.pubseekpos(0, std::ios_base::in), std::streampos(0));
    publisher.ask("stop-next name=device operation=read point=entry");
    Background reading([&] { return errorOf([&] { buffer.sgetc(); }); });
    publisher.ask("await-stopped name=device");
    relay.cut();
    EXPECT_EQ(reading.get(errorTime), disconnected);
    for (int again = 0; again < 3; ++again) {
        EXPECT_EQ(errorOf([&] { buffer.sgetc(); }), disconnected);
        EXPECT_EQ(errorOf([&] { put(buffer, pattern(33)); }), disconnected);
        EXPECT_EQ(errorOf([&] { idle.pubseekpos(0, std::ios_base::in); }), disconnected);
    }
    EXPECT_THAT(
        [&] { buffer.sgetc(); }, testing::ThrowsMessage<PeerLost>(testing::StartsWith(
                                     "Peer " + relay.address() + " is disconnected: ")));
    publisher.ask("release name=device");
}

TEST_F(CutConnection, LeavesThePublisherToItsOtherImporters) {
    TcpRelay relay(port);
    TcpRelay other(port);
    const Importer importer(importingFrom({other.address()}));
    StreamBuffer survivor = connect(uuid);
    EXPECT_EQ(survivor.pubseekpos(0, std::ios_base::in), std::streampos(0));
    const ProcessFigures before = figuresOf(publisher.id());
    RemoteComponent client;
    client.ask("open-importer" + where() + " target=" + relay.address());
    connect(client, "stream", uuid);
    publisher.ask("stop-next name=device operation=read point=entry");
    client.tell("read name=stream count=1");
    publisher.ask("await-stopped name=device");
    relay.cut();
    const auto lost = testing::StartsWith(
        "agent::orvi::remoting::PeerLost: Peer " + relay.address() + " is disconnected: ");
    EXPECT_THAT(errorOf([&] { client.reply(); }), lost);
    for (int again = 0; again < 3; ++again) {
        EXPECT_THAT(errorOf([&] { client.ask("read name=stream count=1"); }), lost);
    }
    publisher.ask("release name=device");
    EXPECT_TRUE(
        eventually([&] { return figuresOf(publisher.id()).descriptors == before.descriptors; }));
    EXPECT_EQ(survivor.pubseekpos(0, std::ios_base::in), std::streampos(0));
    EXPECT_EQ(take(survivor, 10), pattern(10));
    EXPECT_EQ(publisher.ask("calls name=device"), "seekpos(0) read(16) seekpos(0) read(16)");
}

TEST_F(CutConnection, IsReplacedByAnotherOneToTheSameEndpoint) {
    TcpRelay first(port);
    TcpRelay second(port, TcpRelay::Start::closed);
    const Importer importer(importingFrom({first.address(), second.address()}));
    StreamBuffer buffer = connect(uuid);
    const LookUp lookUp(uuid);
    second.open();
    ASSERT_TRUE(eventually([&] { return connectedPeers(importer) == 2; }));
    ASSERT_TRUE(importer.waitUntilSettled(errorTime));
    const auto peers = importer.peers();
    EXPECT_EQ(peers.at(0).endpoint, peers.at(1).endpoint);
    EXPECT_EQ(streambuf::test::invokablesOf(uuid).size(), 1u) << "one endpoint, one service";
    EXPECT_EQ(lookUp.found().size(), 1u);

    first.cut();
    EXPECT_EQ(errorOf([&] { buffer.sgetc(); }), disconnected);
    ASSERT_TRUE(eventually([&] { return connectedPeers(importer) == 1; }));
    ASSERT_TRUE(eventually([&] { return lookUp.found().size() == 1; }));
    StreamBuffer again = connect(uuid);
    EXPECT_EQ(again.pubseekpos(0, std::ios_base::in), std::streampos(0));
    EXPECT_EQ(take(again, 10), pattern(10));
}

/// The same between processes of one machine, where an end might be that of the process.
using CutLocalConnection = ProcessTest;

TEST_F(CutLocalConnection, EndsManyWaitingCallsAtOnce) {
    publisher.ask("open-endpoint" + where());
    const auto uuid = publish(publisher, "device", "kind=memory size=1000 buffer=1");
    const Importer importer(importing());
    constexpr std::size_t count = 100;
    std::vector<StreamBuffer> buffers;
    for (std::size_t number = 0; number < count; ++number) {
        buffers.push_back(connect(uuid));
        ASSERT_EQ(buffers.back().pubseekpos(0, std::ios_base::in), std::streampos(0));
    }
    publisher.ask("stop-next name=device operation=read point=entry");
    std::vector<std::unique_ptr<Background<std::string>>> readers;
    for (StreamBuffer& buffer : buffers) {
        readers.push_back(std::make_unique<Background<std::string>>(
            [&buffer] { return errorOf([&] { buffer.sgetc(); }); }));
    }
    publisher.ask("await-stopped name=device");
    const auto time = timeOf([&] {
        EXPECT_NE(publisher.ask("cut-local-connections"), "0");
        for (const auto& reader : readers) {
            EXPECT_EQ(reader->get(errorTime), disconnected);
        }
    });
    EXPECT_LT(time, std::chrono::seconds(sanitized ? 4 : 2));
    publisher.ask("release name=device");
}

} // namespace
} // namespace agent::orvi::remoting::test
