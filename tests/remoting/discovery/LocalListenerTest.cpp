#include "discovery/LocalAddress.hpp"

#include "remoting/discovery/Fixture.hpp"
#include "remoting/discovery/PeerProcess.hpp"
#include "remoting/discovery/Sockets.hpp"
#include "support/ThrowsExactly.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <vector>

#include <sys/stat.h>

namespace agent::orvi::remoting::details {
namespace {

using streambuf::test::throwsExactly;
using test::EventLog;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class LocalListenerTest : public test::DirectoryFixture {
protected:
    std::unique_ptr<LocalListener> listen(const std::string& id = "id") {
        return std::make_unique<LocalListener>(housekeeper, directory, id, [this](int accepted) {
            sockets.add(std::make_shared<Descriptor>(accepted));
        });
    }

    std::vector<std::string> files() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(directory.path())) {
            names.push_back(entry.path().filename());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    /// The text of an error about a socket's path.
    static std::string textOf(const std::filesystem::path& socket, int error) {
        return "Socket " + socket.string() + ": " + std::generic_category().message(error);
    }

    EventLog<std::shared_ptr<Descriptor>> sockets; // that were accepted
};

TEST_F(LocalListenerTest, HasASocketAndALockInTheDirectory) {
    const auto listener = listen();
    EXPECT_THAT(files(), ElementsAre(listener->name() + ".lock", listener->name() + ".sock"));
    EXPECT_EQ(listener->path(), directory.path() / (listener->name() + ".sock"));
    EXPECT_EQ(endpointFiles::endpointIdOf(listener->name()), "id");
}

TEST_F(LocalListenerTest, LetsNobodyElseConnectWhateverTheModeMask) {
    for (const mode_t mask : {0000U, 0022U, 0777U}) {
        const mode_t previous = ::umask(mask);
        const auto listener = listen();
        ::umask(previous);

        struct stat status {};

        ASSERT_EQ(::lstat(listener->path().c_str(), &status), 0);
        EXPECT_TRUE(S_ISSOCK(status.st_mode));
        EXPECT_EQ(status.st_mode & 07777, 0600U);
    }
}

TEST_F(LocalListenerTest, CarriesBytesBothWays) {
    const auto listener = listen();
    const LocalPeer peer = connectLocal(listener->path());
    const Descriptor connected(peer.descriptor);
    const auto accepted = sockets.waitFor(1);
    ASSERT_THAT(accepted, SizeIs(1));
    EXPECT_TRUE(test::writeTo(connected.get(), "there"));
    EXPECT_EQ(test::readFrom(accepted.front()->get()), "there");
    EXPECT_TRUE(test::writeTo(accepted.front()->get(), "back"));
    EXPECT_EQ(test::readFrom(connected.get()), "back");
}

TEST_F(LocalListenerTest, HandsOutNonBlockingSocketsThatAreClosedOnExec) {
    const auto listener = listen();
    const Descriptor connected(connectLocal(listener->path()).descriptor);
    const auto accepted = sockets.waitFor(1);
    ASSERT_THAT(accepted, SizeIs(1));
    for (const int socket : {connected.get(), accepted.front()->get()}) {
        EXPECT_TRUE(test::isClosedOnExec(socket));
        EXPECT_TRUE(test::isNonBlocking(socket));
    }
}

TEST_F(LocalListenerTest, IsKnownToItsPeersByItsProcess) {
    test::PeerProcess peer({"listen", directoryPath(), "id"});
    const LocalPeer connected = connectLocal(peer.readLine());
    EXPECT_EQ(connected.process, peer.id());
    EXPECT_EQ(peerProcess(connected.descriptor), peer.id());
    ::close(connected.descriptor);
}

TEST_F(LocalListenerTest, AcceptsManyConnections) {
    const auto listener = listen();
    std::vector<Descriptor> connected;
    for (int i = 0; i < 300; ++i) {
        connected.emplace_back(connectLocal(listener->path()).descriptor);
    }
    EXPECT_THAT(sockets.waitFor(300), SizeIs(300));
}

TEST_F(LocalListenerTest, RemovesItsFilesAtItsEnd) {
    auto listener = listen();
    listener.reset();
    EXPECT_THAT(files(), IsEmpty());
}

TEST_F(LocalListenerTest, RemovesNoFilesOfOthersAtItsEnd) {
    auto listener = listen();
    const auto second = listen();
    const auto socket = listener->path();
    const auto lock = directory.path() / (listener->name() + ".lock");
    std::ofstream(directory.path() / "other") << "";
    for (const auto& file : {socket, lock}) {
        std::filesystem::remove(file);
        std::ofstream(file) << "not the listener's any more";
    }
    listener.reset();
    EXPECT_THAT(
        files(), testing::UnorderedElementsAre(
                     socket.filename(), lock.filename(), second->path().filename(),
                     second->name() + ".lock", "other"));
}

TEST_F(LocalListenerTest, EndsWithoutItsDirectory) {
    auto listener = listen();
    std::filesystem::remove_all(directory.path());
    listener.reset();
    EXPECT_FALSE(exists(directory.path()));
}

TEST_F(LocalListenerTest, StandsBesideOthersOfTheSameId) {
    const auto first = listen();
    const auto second = listen();
    EXPECT_NE(first->path(), second->path());
    const Descriptor connected(connectLocal(first->path()).descriptor);
    EXPECT_THAT(sockets.waitFor(1), SizeIs(1));
}

TEST_F(LocalListenerTest, MayBeDeeperThanTheAddressOfASocketReaches) {
    const auto deep = parent.path / std::string(200, 'd');
    std::filesystem::create_directory(deep);
    const RuntimeDirectory far(deep / "orvi");
    const LocalListener listener(housekeeper, far, std::string(40, 'x'), [this](int accepted) {
        sockets.add(std::make_shared<Descriptor>(accepted));
    });
    const Descriptor connected(connectLocal(listener.path()).descriptor);
    EXPECT_THAT(sockets.waitFor(1), SizeIs(1));
}

TEST_F(LocalListenerTest, RefusesAnIdThatIsNoPartOfAFileName) {
    EXPECT_THAT(
        [&] { listen("a/b"); }, throwsExactly<std::invalid_argument>("No endpoint id: \"a/b\""));
    EXPECT_THROW(listen(""), std::invalid_argument);
    EXPECT_THAT(files(), IsEmpty());
}

TEST_F(LocalListenerTest, RefusesADirectoryThatBecameOpenToOthers) {
    ASSERT_EQ(::chmod(directoryPath().c_str(), 0755), 0);
    EXPECT_THROW(listen(), std::system_error);
    EXPECT_THAT(files(), IsEmpty());
}

TEST_F(LocalListenerTest, MakesItsDirectoryAgain) {
    ASSERT_EQ(::rmdir(directoryPath().c_str()), 0);
    const auto listener = listen();
    EXPECT_TRUE(exists(listener->path()));
}

TEST_F(LocalListenerTest, KeepsItsLockWhileOthersInItsProcessLookAtIt) {
    const auto listener = listen();
    const Descriptor opened = directory.open();
    EXPECT_EQ(endpointFiles::ownerOf(opened.get(), listener->name()), endpointFiles::Owner::alive);
    EXPECT_FALSE(endpointFiles::removeIfDead(opened.get(), listener->name()));
    test::PeerProcess peer({"owner", directoryPath(), listener->name()});
    EXPECT_EQ(peer.readLine(), "alive");
}

TEST_F(LocalListenerTest, IsNotAcceptingAnyMoreWhenItHasEnded) {
    for (int round = 0; round < 100; ++round) {
        std::atomic<bool> ended = false;
        std::atomic<int> late = 0;
        auto listener =
            std::make_unique<LocalListener>(housekeeper, directory, "id", [&](int accepted) {
                ::close(accepted);
                late += ended ? 1 : 0;
            });
        const auto socket = listener->path();
        std::thread client([&] {
            try {
                for (int i = 0; i < 20; ++i) {
                    ::close(connectLocal(socket).descriptor);
                }
            } catch (const std::system_error&) {
                // It has ended meanwhile.
            }
        });
        listener.reset();
        ended = true;
        client.join();
        drain();
        ASSERT_EQ(late, 0);
    }
}

TEST_F(LocalListenerTest, CanBeDestroyedByWhatItCalls) {
    EventLog<int> events;
    std::unique_ptr<LocalListener> listener;
    std::vector<Descriptor> connected;
    housekeeper.runAndWait([&] {
        listener = std::make_unique<LocalListener>(housekeeper, directory, "id", [&](int accepted) {
            ::close(accepted);
            listener.reset();
            events.add(1);
        });
        connected.emplace_back(connectLocal(listener->path()).descriptor);
        connected.emplace_back(connectLocal(listener->path()).descriptor);
    });
    events.waitFor(1);
    drain();
    EXPECT_THAT(events.all(), ElementsAre(1));
    EXPECT_THAT(files(), IsEmpty());
}

TEST_F(LocalListenerTest, GoesOnAcceptingAfterACallThatThrows) {
    EventLog<int> events;
    const LocalListener listener(housekeeper, directory, "id", [&](int accepted) {
        ::close(accepted);
        events.add(1);
        throw std::runtime_error("the caller's own");
    });
    ::close(connectLocal(listener.path()).descriptor);
    ::close(connectLocal(listener.path()).descriptor);
    EXPECT_THAT(events.waitFor(2), ElementsAre(1, 1));
}

TEST_F(LocalListenerTest, ClosesTheConnectionsOfOtherUsers) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "Only root can act as another user";
    }
    const auto listener = listen();
    ASSERT_EQ(::chmod(parent.path.c_str(), 0755), 0);
    ASSERT_EQ(::chmod(directoryPath().c_str(), 0755), 0);
    ASSERT_EQ(::chmod(listener->path().c_str(), 0666), 0);
    test::PeerProcess peer({"connect-as", listener->path(), "12345"});
    EXPECT_EQ(peer.readLine(), "end");
    drain();
    EXPECT_THAT(sockets.all(), IsEmpty());
}

TEST_F(LocalListenerTest, IsNotConnectedToWhenItIsAnotherUsers) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "Only root can act as another user";
    }
    const auto foreign = parent.path / "foreign";
    std::filesystem::create_directory(foreign);
    ASSERT_EQ(::chmod(parent.path.c_str(), 0755), 0);
    ASSERT_EQ(::chmod(foreign.c_str(), 0700), 0);
    ASSERT_EQ(::chown(foreign.c_str(), 12345, 12345), 0);
    test::PeerProcess peer({"listen-as", foreign, "id", "12345"});
    const std::filesystem::path socket = peer.readLine();
    EXPECT_THAT(
        [&] { connectLocal(socket); }, throwsExactly<std::system_error>(
                                           "Socket " + socket.string() + " is another user's: " +
                                           std::generic_category().message(EPERM)));
}

TEST_F(LocalListenerTest, IsForThoseWithTheRightsOfItsUserWhoeverStartedThem) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "Only root can act with the rights of another user";
    }
    const auto foreign = parent.path / "foreign";
    std::filesystem::create_directory(foreign);
    ASSERT_EQ(::chmod(parent.path.c_str(), 0755), 0);
    ASSERT_EQ(::chmod(foreign.c_str(), 0700), 0);
    ASSERT_EQ(::chown(foreign.c_str(), 12345, 12345), 0);
    test::PeerProcess listener({"listen-with-rights-of", foreign, "id", "12345"});
    const std::string socket = listener.readLine();
    test::PeerProcess same({"connect-with-rights-of", socket, "12345"});
    EXPECT_EQ(same.readLine(), "end") << "it closes what it accepts";
    test::PeerProcess other({"connect-with-rights-of", socket, "0"});
    EXPECT_EQ(other.readLine(), std::generic_category().message(EPERM));
    const Descriptor unchecked = test::newLocalSocket();
    ASSERT_EQ(test::withPath(::connect, unchecked.get(), socket), 0);
    EXPECT_EQ(test::readFrom(unchecked.get()), "end");
    listener.closeInput();
    EXPECT_EQ(listener.readLine(), "1");
}

class ConnectLocalTest : public LocalListenerTest {};

TEST_F(ConnectLocalTest, SaysThatThereIsNoSocket) {
    const auto missing = directory.path() / "missing.sock";
    EXPECT_THAT(
        [&] { connectLocal(missing); }, throwsExactly<std::system_error>(textOf(missing, ENOENT)));
    const auto elsewhere = directory.path() / "no" / "missing.sock";
    EXPECT_THAT(
        [&] { connectLocal(elsewhere); },
        throwsExactly<std::system_error>(textOf(elsewhere, ENOENT)));
}

TEST_F(ConnectLocalTest, SaysThatNobodyListensAnyMore) {
    const auto socket = directory.path() / "dead.sock";
    const Descriptor dead = test::newLocalSocket();
    ASSERT_EQ(test::withPath(::bind, dead.get(), socket), 0);
    EXPECT_THAT(
        [&] { connectLocal(socket); },
        throwsExactly<std::system_error>(textOf(socket, ECONNREFUSED)));
}

TEST_F(ConnectLocalTest, SaysThatANameIsTooLong) {
    const std::string name(108, 'x');
    EXPECT_THAT(
        [&] { connectLocal(directory.path() / name); },
        throwsExactly<std::system_error>(textOf(name, ENAMETOOLONG)));
}

TEST_F(ConnectLocalTest, DoesNotWaitLongForAListenerThatDoesNotAccept) {
    const auto socket = directory.path() / "full.sock";
    const Descriptor full = test::newLocalSocket();
    ASSERT_EQ(test::withPath(::bind, full.get(), socket), 0);
    ASSERT_EQ(::listen(full.get(), 0), 0);
    const Descriptor only(connectLocal(socket).descriptor);
    EXPECT_THAT(
        [&] { connectLocal(socket); }, throwsExactly<std::system_error>(textOf(socket, EAGAIN)));
}

} // namespace
} // namespace agent::orvi::remoting::details
