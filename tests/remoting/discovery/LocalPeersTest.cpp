#include "discovery/LocalPeers.hpp"

#include "discovery/LocalAddress.hpp"
#include "remoting/discovery/Fixture.hpp"
#include "remoting/discovery/PeerProcess.hpp"
#include "remoting/discovery/Sockets.hpp"
#include "support/ThrowsExactly.hpp"

#include <gmock/gmock.h>

#include <cerrno>
#include <csignal>
#include <fstream>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include <sys/inotify.h>
#include <sys/stat.h>

namespace agent::orvi::remoting::details {
namespace {

using test::EventLog;
using test::PeerProcess;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

/// Take all of the user's inotify instances, or all descriptors but a few.
std::vector<Descriptor> everyInotify() {
    std::vector<Descriptor> all;
    do {
        all.emplace_back(::inotify_init1(IN_CLOEXEC));
    } while (all.back());
    constexpr std::size_t few = 50;
    const Descriptor another(::dup(STDIN_FILENO));
    for (std::size_t i = 0; !another && i < few && !all.empty(); ++i) {
        all.pop_back();
    }
    return all;
}

class LocalPeersTest : public test::DirectoryFixture {
protected:
    std::unique_ptr<LocalPeers> follow() { return follow(LocalPeers::OwnEndpoints::leaveOut); }

    std::unique_ptr<LocalPeers> follow(LocalPeers::OwnEndpoints own) {
        return std::make_unique<LocalPeers>(
            housekeeper, directory,
            [this](const auto& socket) { events.add("+" + socket.string()); },
            [this](const auto& socket) { events.add("-" + socket.string()); }, own);
    }

    std::unique_ptr<LocalListener> listen() {
        return std::make_unique<LocalListener>(
            housekeeper, directory, "own", [](int accepted) { ::close(accepted); });
    }

    bool isEmpty() const { return std::filesystem::is_empty(directory.path()); }

    EventLog<std::string> events;
};

TEST_F(LocalPeersTest, FindsWhatIsThereAndWhatComesAndSeesItGo) {
    PeerProcess first({"listen", directoryPath(), "first"});
    const std::string firstSocket = first.readLine();
    const auto peers = follow();
    EXPECT_THAT(events.waitFor(1), ElementsAre("+" + firstSocket));
    PeerProcess second({"listen", directoryPath(), "second"});
    const std::string secondSocket = second.readLine();
    EXPECT_THAT(events.waitFor(2), ElementsAre("+" + firstSocket, "+" + secondSocket));
    first.closeInput();
    EXPECT_EQ(first.wait(), 0);
    EXPECT_THAT(
        events.waitFor(3), ElementsAre("+" + firstSocket, "+" + secondSocket, "-" + firstSocket));
}

TEST_F(LocalPeersTest, ReportsOnlySocketsThatCanBeConnectedTo) {
    EventLog<bool> connected;
    const LocalPeers peers(
        housekeeper, directory,
        [&](const auto& socket) {
            ::close(connectLocal(socket).descriptor);
            connected.add(true);
        },
        [](const auto&) {});
    for (std::size_t count = 1; count <= 20; ++count) {
        PeerProcess peer({"listen", directoryPath(), "id"});
        peer.readLine();
        ASSERT_EQ(connected.waitFor(count).size(), count);
    }
}

TEST_F(LocalPeersTest, RemovesWhatTheDeadHaveLeftAndReportsOnlyTheLiving) {
    PeerProcess living({"listen", directoryPath(), "living"});
    const std::string socket = living.readLine();
    for (int i = 0; i < 5; ++i) {
        PeerProcess dead({"listen", directoryPath(), "dead"});
        dead.readLine();
        dead.kill();
    }
    std::ofstream(directory.path() / "early.1.a.lock") << "";
    const auto peers = follow();
    EXPECT_THAT(events.waitFor(1), ElementsAre("+" + socket));
    drain();
    EXPECT_THAT(events.all(), ElementsAre("+" + socket));
    const Descriptor opened = directory.open();
    EXPECT_EQ(endpointFiles::namesIn(opened).size(), 1U);
}

TEST_F(LocalPeersTest, NoticesThatAProcessWasKilledAndRemovesItsFiles) {
    const auto peers = follow();
    PeerProcess peer({"listen", directoryPath(), "id"});
    const std::string socket = peer.readLine();
    ASSERT_TRUE(events.waitForEvent("+" + socket));
    peer.kill();
    EXPECT_THAT(events.waitFor(2), ElementsAre("+" + socket, "-" + socket));
    EXPECT_TRUE(isEmpty());
}

TEST_F(LocalPeersTest, FindsOutWhenAskedThatOnlyAForkedChildIsLeft) {
    const auto peers = follow();
    PeerProcess peer({"listen-and-fork", directoryPath(), "id"});
    const std::string socket = peer.readLine();
    const pid_t child = std::stoi(peer.readLine());
    ASSERT_TRUE(events.waitForEvent("+" + socket));
    peers->check(socket);
    drain();
    EXPECT_THAT(events.all(), ElementsAre("+" + socket));
    peer.kill();
    peers->check(socket);
    EXPECT_THAT(events.waitFor(2), ElementsAre("+" + socket, "-" + socket));
    EXPECT_TRUE(isEmpty());
    ::kill(child, SIGKILL);
}

TEST_F(LocalPeersTest, LeavesOutThisProcess) {
    const auto before = listen();
    const auto peers = follow();
    const auto after = listen();
    drain();
    PeerProcess other({"listen", directoryPath(), "id"});
    EXPECT_THAT(events.waitFor(1), ElementsAre("+" + other.readLine()));
}

TEST_F(LocalPeersTest, ReportsThisProcessWhenAskedTo) {
    auto before = listen();
    const auto peers = follow(LocalPeers::OwnEndpoints::report);
    ASSERT_TRUE(events.waitForEvent("+" + before->path().string()));
    const auto after = listen();
    ASSERT_TRUE(events.waitForEvent("+" + after->path().string()));
    const std::string socket = before->path();
    before.reset();
    EXPECT_TRUE(events.waitForEvent("-" + socket));
}

TEST_F(LocalPeersTest, LeavesTheLockOfThisProcessAlone) {
    const auto listener = listen();
    const auto peers = follow(LocalPeers::OwnEndpoints::report);
    ASSERT_TRUE(events.waitForEvent("+" + listener->path().string()));
    peers->check(listener->path());
    drain();
    PeerProcess other({"owner", directoryPath(), listener->name()});
    EXPECT_EQ(other.readLine(), "alive");
}

TEST_F(LocalPeersTest, TouchesNothingThatIsNoEndpoints) {
    const auto socketOnly = directory.path() / "socket.1.a.sock";
    const Descriptor socket = test::newLocalSocket();
    ASSERT_EQ(test::withPath(::bind, socket.get(), socketOnly), 0);
    std::ofstream(directory.path() / "file.1.a.sock") << "";
    std::ofstream(directory.path() / "other.lock") << "";
    std::filesystem::create_directory(directory.path() / "directory.1.a.lock");
    std::filesystem::create_directory(directory.path() / "directory.1.a.sock");
    const auto peers = follow();
    std::ofstream(directory.path() / "later.txt") << "";
    PeerProcess other({"listen", directoryPath(), "id"});
    EXPECT_THAT(events.waitFor(1), ElementsAre("+" + other.readLine()));
    for (const char* const name :
         {"socket.1.a.sock", "file.1.a.sock", "other.lock", "directory.1.a.lock",
          "directory.1.a.sock", "later.txt"}) {
        EXPECT_TRUE(exists(directory.path() / name)) << name;
    }
}

TEST_F(LocalPeersTest, FollowsADirectoryThatIsRemovedAndMadeAgain) {
    const auto peers = follow();
    for (int round = 0; round < 3; ++round) {
        PeerProcess peer({"listen", directoryPath(), "id"});
        const std::string socket = peer.readLine();
        ASSERT_TRUE(events.waitForEvent("+" + socket));
        std::filesystem::remove_all(directory.path());
        ASSERT_TRUE(events.waitForEvent("-" + socket));
        ASSERT_TRUE(test::eventually([&] { return exists(directory.path()); }));
    }
}

TEST_F(LocalPeersTest, FollowsADirectoryThatIsMovedAway) {
    const auto peers = follow();
    PeerProcess peer({"listen", directoryPath(), "id"});
    const std::string socket = peer.readLine();
    ASSERT_TRUE(events.waitForEvent("+" + socket));
    std::filesystem::rename(directory.path(), parent.path / "away");
    ASSERT_TRUE(events.waitForEvent("-" + socket));
    PeerProcess next({"listen", directoryPath(), "id"});
    EXPECT_TRUE(events.waitForEvent("+" + next.readLine()));
}

TEST_F(LocalPeersTest, WaitsForADirectoryThatCannotBeMade) {
    const auto peers = follow();
    PeerProcess first({"listen", directoryPath(), "id"});
    const std::string socket = first.readLine();
    ASSERT_TRUE(events.waitForEvent("+" + socket));
    std::filesystem::remove_all(parent.path);
    ASSERT_TRUE(events.waitForEvent("-" + socket));
    std::filesystem::create_directory(parent.path);
    PeerProcess second({"listen", directoryPath(), "id"});
    EXPECT_TRUE(events.waitForEvent("+" + second.readLine()));
}

TEST_F(LocalPeersTest, LooksAgainAfterMoreEventsThanAreKept) {
    std::size_t kept = 0;
    ASSERT_TRUE(std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> kept);
    const auto peers = follow();
    drain();
    std::promise<void> enough;
    post([&] { enough.get_future().wait(); });
    for (std::size_t i = 0; i <= kept; ++i) {
        const auto file = directory.path() / std::to_string(i);
        ASSERT_EQ(::mknod(file.c_str(), S_IFREG | 0600, 0), 0);
        ASSERT_EQ(::unlink(file.c_str()), 0);
    }
    PeerProcess peer({"listen", directoryPath(), "id"});
    const std::string socket = peer.readLine();
    enough.set_value();
    EXPECT_THAT(events.waitFor(1), ElementsAre("+" + socket));
}

TEST_F(LocalPeersTest, LooksNowAndThenWhereNothingCanBeWatched) {
    const auto all = everyInotify();
    const auto peers = follow();
    drain();
    PeerProcess peer({"listen", directoryPath(), "id"});
    const std::string socket = peer.readLine();
    EXPECT_TRUE(events.waitForEvent("+" + socket));
    peer.kill();
    EXPECT_TRUE(events.waitForEvent("-" + socket));
}

TEST_F(LocalPeersTest, CanBeDestroyedByItsReport) {
    PeerProcess first({"listen", directoryPath(), "first"});
    PeerProcess second({"listen", directoryPath(), "second"});
    first.readLine();
    second.readLine();
    std::optional<LocalPeers> peers;
    housekeeper.runAndWait([&] {
        peers.emplace(
            housekeeper, directory,
            [&](const auto&) {
                peers.reset();
                events.add("+");
            },
            [&](const auto&) { events.add("-"); });
    });
    events.waitFor(1);
    drain();
    EXPECT_THAT(events.all(), ElementsAre("+"));
}

TEST_F(LocalPeersTest, ReportsNothingAfterItsEnd) {
    auto peers = follow();
    peers.reset();
    PeerProcess peer({"listen", directoryPath(), "id"});
    peer.readLine();
    drain();
    EXPECT_THAT(events.all(), IsEmpty());
}

TEST_F(LocalPeersTest, GoesOnAfterAReportThatThrows) {
    const LocalPeers peers(
        housekeeper, directory,
        [&](const auto& socket) {
            events.add(socket.string());
            throw std::runtime_error("the report's own");
        },
        [](const auto&) {});
    PeerProcess first({"listen", directoryPath(), "first"});
    const std::string firstSocket = first.readLine();
    ASSERT_TRUE(events.waitForEvent(firstSocket));
    PeerProcess second({"listen", directoryPath(), "second"});
    EXPECT_TRUE(events.waitForEvent(second.readLine()));
}

TEST_F(LocalPeersTest, RefusesADirectoryThatCannotBeUsed) {
    ASSERT_EQ(::chmod(directoryPath().c_str(), 0755), 0);
    EXPECT_THAT(
        [&] { follow(); }, streambuf::test::throwsExactly<std::system_error>(
                               "Runtime directory " + directoryPath() +
                               " is open to other users; its mode should be 0700: " +
                               std::generic_category().message(EPERM)));
}

} // namespace
} // namespace agent::orvi::remoting::details
