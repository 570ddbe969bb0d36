#include "discovery/TcpListener.hpp"

#include "discovery/HostPort.hpp"
#include "discovery/NameResolution.hpp"
#include "remoting/discovery/Fixture.hpp"
#include "remoting/discovery/Sockets.hpp"
#include "support/ThrowsExactly.hpp"

#include <gmock/gmock.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include <netinet/tcp.h>

namespace agent::orvi::remoting::details {
namespace {

using streambuf::test::throwsExactly;
using testing::Each;
using testing::ElementsAre;
using testing::SizeIs;

struct Accepted {
    std::shared_ptr<Descriptor> socket;
    std::string peer;
};

class TcpListenerTest : public test::HousekeeperFixture {
protected:
    std::unique_ptr<TcpListener>
    listen(const std::string& address, TcpListener::Reach reach = TcpListener::Reach::anywhere) {
        return std::make_unique<TcpListener>(
            housekeeper, address,
            [this](int socket, std::string peer) {
                accepted.add({std::make_shared<Descriptor>(socket), std::move(peer)});
            },
            reach);
    }

    static std::uint16_t portOf(const TcpListener& listener) {
        return parseHostPort(listener.addresses().at(0)).port;
    }

    test::EventLog<Accepted> accepted;
};

TEST_F(TcpListenerTest, ListensOnAFreePortAndSaysWhich) {
    const auto listener = listen("127.0.0.1:0");
    EXPECT_THAT(
        listener->addresses(), ElementsAre("127.0.0.1:" + std::to_string(portOf(*listener))));
    EXPECT_GT(portOf(*listener), 0);
    EXPECT_TRUE(test::connectTcp(portOf(*listener)));
    EXPECT_THAT(accepted.waitFor(1), SizeIs(1));
}

TEST_F(TcpListenerTest, ListensAgainOnAPortThatWasInUseJustNow) {
    auto first = listen("127.0.0.1:0");
    const std::string address = first->addresses().at(0);
    const Descriptor client = test::connectTcp(portOf(*first));
    accepted.waitFor(1).at(0).socket.reset();
    first.reset();
    const auto second = listen(address);
    EXPECT_THAT(second->addresses(), ElementsAre(address));
}

TEST_F(TcpListenerTest, HandsOutTheSocketWithThePeersAddress) {
    const auto listener = listen("127.0.0.1:0");
    const Descriptor client = test::connectTcp(portOf(*listener));
    sockaddr_in address{};
    socklen_t length = sizeof(address);
    ::getsockname(client.get(), reinterpret_cast<sockaddr*>(&address), &length);
    const auto all = accepted.waitFor(1);
    ASSERT_THAT(all, SizeIs(1));
    EXPECT_EQ(all[0].peer, "127.0.0.1:" + std::to_string(ntohs(address.sin_port)));
    const int socket = all[0].socket->get();
    EXPECT_TRUE(test::isClosedOnExec(socket));
    EXPECT_TRUE(test::isNonBlocking(socket));
    int noDelay = 0;
    length = sizeof(noDelay);
    ::getsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &noDelay, &length);
    EXPECT_NE(noDelay, 0);
    EXPECT_TRUE(test::writeTo(client.get(), "data"));
    EXPECT_EQ(test::readFrom(socket), "data");
}

TEST_F(TcpListenerTest, ListensOnAllAddressesOfANameWithOnePort) {
    const auto resolved = resolve({"localhost", 0}, Resolution::listen);
    const auto listener = listen("localhost:0");
    EXPECT_LE(listener->addresses().size(), resolved.size());
    for (const std::string& address : listener->addresses()) {
        EXPECT_EQ(parseHostPort(address).port, portOf(*listener));
    }
    EXPECT_TRUE(test::connectTcp(portOf(*listener)));
    EXPECT_TRUE(listener->isLoopback());
}

TEST_F(TcpListenerTest, ListensForBothKindsOfAddressesWhereNoneIsNamed) {
    const auto listener = listen("[::]:0");
    EXPECT_TRUE(test::connectTcp(portOf(*listener)));
    EXPECT_FALSE(listener->isLoopback());
}

TEST_F(TcpListenerTest, KnowsWhetherOnlyThisMachineCanReachIt) {
    EXPECT_TRUE(listen("127.0.0.2:0")->isLoopback());
    EXPECT_TRUE(listen("[::1]:0")->isLoopback());
    EXPECT_FALSE(listen("0.0.0.0:0")->isLoopback());
}

TEST_F(TcpListenerTest, ListensNowhereElseWhenItIsForThisMachineOnly) {
    EXPECT_TRUE(listen("127.0.0.1:0", TcpListener::Reach::loopback)->isLoopback());
    EXPECT_THAT(
        [&] { listen("0.0.0.0:0", TcpListener::Reach::loopback); },
        throwsExactly<std::invalid_argument>("\"0.0.0.0:0\" is no loopback address"));
}

TEST_F(TcpListenerTest, LetsNobodyConnectAfterItsEnd) {
    auto listener = listen("127.0.0.1:0");
    const std::uint16_t port = portOf(*listener);
    listener.reset();
    EXPECT_FALSE(test::connectTcp(port));
}

TEST_F(TcpListenerTest, SaysWhichAddressCannotBeUsed) {
    const auto listener = listen("127.0.0.1:0");
    const std::string used = listener->addresses().at(0);
    EXPECT_THAT(
        [&] { listen(used); },
        throwsExactly<std::system_error>(
            "Listen on " + used + ": " + std::generic_category().message(EADDRINUSE)));
    EXPECT_THAT(
        [&] { listen("192.0.2.1:0"); },
        throwsExactly<std::system_error>(
            "Listen on 192.0.2.1:0: " + std::generic_category().message(EADDRNOTAVAIL)));
    EXPECT_THROW(listen("no port"), std::invalid_argument);
}

TEST_F(TcpListenerTest, SurvivesPeersThatGoBeforeTheyAreAccepted) {
    const auto listener = listen("127.0.0.1:0");
    const linger atOnce{1, 0};
    housekeeper.runAndWait([&] {
        for (int i = 0; i < 10; ++i) {
            const Descriptor client = test::connectTcp(portOf(*listener));
            ::setsockopt(client.get(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof(atOnce));
        }
    });
    const Descriptor client = test::connectTcp(portOf(*listener));
    ASSERT_TRUE(test::writeTo(client.get(), "still there"));
    EXPECT_TRUE(test::eventually([&] {
        const auto all = accepted.all();
        return std::any_of(all.begin(), all.end(), [](const Accepted& one) {
            return test::readFrom(one.socket->get()) == "still there";
        });
    }));
}

TEST_F(TcpListenerTest, AcceptsManyAtOnce) {
    const auto listener = listen("127.0.0.1:0");
    std::vector<Descriptor> clients;
    for (int i = 0; i < 200; ++i) {
        clients.push_back(test::connectTcp(portOf(*listener)));
    }
    EXPECT_THAT(accepted.waitFor(200), SizeIs(200));
}

} // namespace
} // namespace agent::orvi::remoting::details
