#include "discovery/HangUpWatch.hpp"
#include "discovery/ProcessWatch.hpp"

#include "discovery/LocalAddress.hpp"
#include "remoting/discovery/Fixture.hpp"
#include "remoting/discovery/PeerProcess.hpp"
#include "remoting/discovery/Sockets.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace agent::orvi::remoting::details {
namespace {

using test::EventLog;
using test::PeerProcess;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class ProcessWatchTest : public test::DirectoryFixture {
protected:
    std::function<void()> log() {
        return [this] { events.add(1); };
    }

    EventLog<int> events;
};

TEST_F(ProcessWatchTest, CallsBackOnceAtTheEndOfTheProcess) {
    PeerProcess peer({"listen", directoryPath(), "id"});
    peer.readLine();
    const ProcessWatch watch = watchProcess(housekeeper, peer.id(), log());
    EXPECT_TRUE(watch.isActive());
    drain();
    EXPECT_THAT(events.all(), IsEmpty());
    peer.kill();
    EXPECT_THAT(events.waitFor(1), ElementsAre(1));
    drain();
    EXPECT_THAT(events.all(), ElementsAre(1));
}

TEST_F(ProcessWatchTest, CallsBackForAProcessThatHasEndedBefore) {
    PeerProcess peer({"descriptors"});
    const pid_t process = peer.id();
    EXPECT_EQ(peer.wait(), 0);
    const ProcessWatch watch = watchProcess(housekeeper, process, log());
    EXPECT_TRUE(watch.isActive());
    EXPECT_THAT(events.waitFor(1), ElementsAre(1));
}

TEST_F(ProcessWatchTest, IsInactiveWithoutAProcess) {
    EXPECT_FALSE(ProcessWatch().isActive());
    EXPECT_FALSE(watchProcess(housekeeper, 0, log()).isActive());
    EXPECT_FALSE(watchProcess(housekeeper, -1, log()).isActive());
    drain();
    EXPECT_THAT(events.all(), IsEmpty());
}

TEST_F(ProcessWatchTest, DoesNotCallBackAfterItsEnd) {
    PeerProcess peer({"listen", directoryPath(), "id"});
    {
        const ProcessWatch watch = watchProcess(housekeeper, peer.id(), log());
        ProcessWatch replaced = watchProcess(housekeeper, peer.id(), log());
        replaced = ProcessWatch();
    }
    peer.kill();
    drain();
    EXPECT_THAT(events.all(), IsEmpty());
}

TEST_F(ProcessWatchTest, CanBeDestroyedByItsCallback) {
    PeerProcess peer({"listen", directoryPath(), "id"});
    std::optional<ProcessWatch> watch;
    housekeeper.runAndWait([&] {
        watch.emplace(watchProcess(housekeeper, peer.id(), [&] {
            watch.reset();
            events.add(1);
        }));
    });
    peer.kill();
    EXPECT_THAT(events.waitFor(1), ElementsAre(1));
}

TEST_F(ProcessWatchTest, WatchesThePeerOfAConnection) {
    PeerProcess peer({"listen-and-fork", directoryPath(), "id"});
    const Descriptor connected(connectLocal(peer.readLine()).descriptor);
    const pid_t child = std::stoi(peer.readLine());
    const ProcessWatch watch = watchPeerProcess(housekeeper, connected.get(), log());
    EXPECT_TRUE(watch.isActive());
    peer.kill(); // the child keeps the connection
    EXPECT_THAT(events.waitFor(1), ElementsAre(1));
    ::kill(child, SIGKILL);
}

TEST_F(ProcessWatchTest, WatchesThePeerOfAConnectionThatHasEndedBefore) {
    PeerProcess peer({"listen", directoryPath(), "id"});
    const Descriptor connected(connectLocal(peer.readLine()).descriptor);
    peer.kill();
    const ProcessWatch watch = watchPeerProcess(housekeeper, connected.get(), log());
    EXPECT_THAT(events.waitFor(1), ElementsAre(1));
}

TEST_F(ProcessWatchTest, IsInactiveForAConnectionWithoutAProcess) {
    const Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_FALSE(watchPeerProcess(housekeeper, socket.get(), log()).isActive());
}

/// Both ends of a connection.
struct Connection {
    Descriptor here;
    Descriptor there;
};

Connection localConnection() {
    std::array<int, 2> pair{};
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair.data()), 0);
    return {Descriptor(pair[0]), Descriptor(pair[1])};
}

Connection tcpConnection() {
    const Descriptor listening(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(::listen(listening.get(), 1), 0);
    sockaddr_in address{};
    socklen_t length = sizeof(address);
    EXPECT_EQ(::getsockname(listening.get(), reinterpret_cast<sockaddr*>(&address), &length), 0);
    Descriptor there = test::connectTcp(ntohs(address.sin_port));
    return {
        Descriptor(::accept4(listening.get(), nullptr, nullptr, SOCK_CLOEXEC)), std::move(there)};
}

/// Count the descriptors in all of this process's epoll sets.
int watchedDescriptors() {
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fdinfo")) {
        std::ifstream information(entry.path());
        for (std::string line; std::getline(information, line);) {
            count += line.starts_with("tfd:") ? 1 : 0;
        }
    }
    return count;
}

enum class Kind { local, tcp };

Connection connect(Kind kind) {
    return kind == Kind::local ? localConnection() : tcpConnection();
}

class HangUpWatchTest : public test::HousekeeperFixture, public testing::WithParamInterface<Kind> {
protected:
    HangUpWatch watchHere() {
        return watchHangUp(housekeeper, connection.here.get(), [this] { events.add(1); });
    }

    void expectHangUp() {
        EXPECT_THAT(events.waitFor(1), ElementsAre(1));
        drain();
        drain();
        EXPECT_THAT(events.all(), ElementsAre(1));
    }

    Connection connection = connect(GetParam());
    EventLog<int> events;
};

INSTANTIATE_TEST_SUITE_P(
    Connections, HangUpWatchTest, testing::Values(Kind::local, Kind::tcp),
    [](const auto& kind) { return kind.param == Kind::local ? "Local" : "Tcp"; });

TEST_P(HangUpWatchTest, CallsBackOnceWhenThePeerCloses) {
    const HangUpWatch watch = watchHere();
    drain();
    EXPECT_THAT(events.all(), IsEmpty());
    connection.there = {};
    expectHangUp();
}

TEST_P(HangUpWatchTest, CallsBackWhenThePeerWillSendNoMore) {
    const HangUpWatch watch = watchHere();
    EXPECT_EQ(::shutdown(connection.there.get(), SHUT_WR), 0);
    expectHangUp();
}

TEST_P(HangUpWatchTest, CallsBackWhenThePeerResets) {
    const HangUpWatch watch = watchHere();
    const linger atOnce{1, 0};
    ::setsockopt(connection.there.get(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof(atOnce));
    connection.there = {};
    expectHangUp();
}

TEST_P(HangUpWatchTest, CallsBackWhenThisSideShutsDown) {
    const HangUpWatch watch = watchHere();
    EXPECT_EQ(::shutdown(connection.here.get(), SHUT_RDWR), 0);
    expectHangUp();
}

TEST_P(HangUpWatchTest, CallsBackWhenThePeerHadGoneBefore) {
    connection.there = {};
    const HangUpWatch watch = watchHere();
    expectHangUp();
}

TEST_P(HangUpWatchTest, LetsDataPassAndLeavesThemToBeRead) {
    const HangUpWatch watch = watchHere();
    for (int i = 0; i < 10; ++i) {
        ASSERT_TRUE(test::writeTo(connection.there.get(), "data"));
        ASSERT_EQ(test::readFrom(connection.here.get()), "data");
    }
    drain();
    EXPECT_THAT(events.all(), IsEmpty());
    ASSERT_TRUE(test::writeTo(connection.there.get(), "last"));
    connection.there = {};
    expectHangUp();
    EXPECT_EQ(test::readFrom(connection.here.get()), "last");
    EXPECT_EQ(test::readFrom(connection.here.get()), "end");
}

TEST_P(HangUpWatchTest, LeavesTheSocketAsItIs) {
    const int flags = ::fcntl(connection.here.get(), F_GETFL);
    const HangUpWatch watch = watchHere();
    drain();
    EXPECT_EQ(::fcntl(connection.here.get(), F_GETFL), flags);
}

TEST_P(HangUpWatchTest, KeepsNoConnectionOpenOnceItHasCalledBack) {
    const HangUpWatch watch = watchHere();
    ::shutdown(connection.there.get(), SHUT_WR);
    expectHangUp();
    connection.here = {};
    EXPECT_EQ(test::readFrom(connection.there.get()), "end");
}

TEST_P(HangUpWatchTest, DoesNotCallBackAfterItsEnd) {
    {
        const HangUpWatch watch = watchHere();
        HangUpWatch replaced = watchHere();
        replaced = HangUpWatch();
    }
    connection.there = {};
    drain();
    EXPECT_THAT(events.all(), IsEmpty());
}

TEST_P(HangUpWatchTest, DoesNotCallBackAfterItsEndEvenIfTheSocketIsOpenElsewhere) {
    const Descriptor elsewhere(::dup(connection.here.get()));
    std::optional<HangUpWatch> watch(watchHere());
    watch.reset();
    connection.there = {};
    drain();
    EXPECT_THAT(events.all(), IsEmpty());
}

TEST_P(HangUpWatchTest, LeavesNothingInTheKernelEvenIfTheSocketIsOpenElsewhere) {
    drain();
    const auto before = watchedDescriptors();
    const Descriptor elsewhere(::dup(connection.here.get()));
    std::optional<HangUpWatch> watch(watchHere());
    const auto meanwhile = watchedDescriptors();
    EXPECT_GT(meanwhile, before);
    watch.reset();
    EXPECT_EQ(watchedDescriptors(), meanwhile - 1);
}

TEST_P(HangUpWatchTest, CanBeDestroyedByItsCallback) {
    std::optional<HangUpWatch> watch;
    housekeeper.runAndWait([&] {
        watch.emplace(watchHangUp(housekeeper, connection.here.get(), [&] {
            watch.reset();
            events.add(1);
        }));
    });
    connection.there = {};
    expectHangUp();
}

TEST_P(HangUpWatchTest, WatchesManyAtOnce) {
    std::vector<Connection> connections;
    std::vector<HangUpWatch> watches;
    for (int i = 0; i < 200; ++i) {
        connections.push_back(connect(GetParam()));
        watches.push_back(
            watchHangUp(housekeeper, connections.back().here.get(), [this, i] { events.add(i); }));
    }
    for (std::size_t i = 0; i < connections.size(); i += 2) {
        connections[i].there = {};
    }
    auto seen = events.waitFor(100);
    drain();
    seen = events.all();
    std::sort(seen.begin(), seen.end());
    std::vector<int> even(100);
    std::generate(even.begin(), even.end(), [i = -2]() mutable { return i += 2; });
    EXPECT_EQ(seen, even);
}

TEST_P(HangUpWatchTest, CanEndAfterTheHousekeeper) {
    std::optional<HangUpWatch> watch(watchHere());
    housekeeper.stop();
    connection.there = {};
    watch.reset();
    EXPECT_THAT(events.all(), IsEmpty());
}

TEST_P(HangUpWatchTest, RefusesWhatIsNotOpen) {
    EXPECT_THROW(watchHangUp(housekeeper, -1, [] {}), std::system_error);
}

} // namespace
} // namespace agent::orvi::remoting::details
