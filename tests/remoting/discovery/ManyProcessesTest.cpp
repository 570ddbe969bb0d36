#include "discovery/EndpointFiles.hpp"
#include "discovery/LocalAddress.hpp"
#include "discovery/LocalPeers.hpp"
#include "remoting/discovery/Fixture.hpp"
#include "remoting/discovery/PeerProcess.hpp"
#include "remoting/discovery/Sockets.hpp"

#include <gmock/gmock.h>

#include <csignal>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

namespace agent::orvi::remoting::details {
namespace {

using test::PeerProcess;

class ManyProcessesTest : public test::DirectoryFixture {
protected:
    std::unique_ptr<PeerProcess> start(const std::vector<std::string>& arguments) const {
        return std::make_unique<PeerProcess>(arguments);
    }

    /// End a process in order.
    ///
    /// @return what it has printed.
    static std::string finish(PeerProcess& process) {
        process.closeInput();
        const std::string line = process.readLine();
        EXPECT_EQ(process.wait(), 0) << line;
        return line;
    }
};

TEST_F(ManyProcessesTest, WhoClearsAwayHurtsNobodyWhoStarts) {
    std::vector<std::unique_ptr<PeerProcess>> starting;
    std::vector<std::unique_ptr<PeerProcess>> clearing;
    for (int i = 0; i < 3; ++i) {
        starting.push_back(start({"start-again-and-again", directoryPath(), "id"}));
        clearing.push_back(start({"clear-again-and-again", directoryPath()}));
    }
    // They are joined by followers, and by some who are killed in the middle.
    const LocalPeers peers(
        housekeeper, directory, [](const auto&) {}, [](const auto&) {});
    for (int i = 0; i < 60; ++i) {
        const auto victim = start({"start-again-and-again", directoryPath(), "victim"});
        const Descriptor opened = directory.open();
        EXPECT_TRUE(test::eventually([&] {
            for (const std::string& name : endpointFiles::namesIn(opened)) {
                if (name.starts_with("victim." + std::to_string(victim->id()))) {
                    return true;
                }
            }
            return false;
        }));
        victim->kill();
    }
    int started = 0;
    for (const auto& process : starting) {
        started += std::stoi(finish(*process));
    }
    int cleared = 0;
    for (const auto& process : clearing) {
        cleared += std::stoi(finish(*process));
    }
    EXPECT_GT(started, 0);
    EXPECT_GT(cleared, 0);
    EXPECT_TRUE(test::eventually([&] { return endpointFiles::namesIn(directory.open()).empty(); }));
}

TEST_F(ManyProcessesTest, AForkedChildThatEndsTakesNothingWithIt) {
    PeerProcess peer({"listen-and-exit-in-child", directoryPath(), "id"});
    const std::string socket = peer.readLine();
    EXPECT_EQ(peer.readLine(), "0");
    EXPECT_TRUE(std::filesystem::exists(socket));
    const Descriptor connected(connectLocal(socket).descriptor);
    EXPECT_EQ(
        test::readFrom(connected.get()), "end"); // it was accepted, and closed as they all are
    peer.closeInput();
    EXPECT_EQ(peer.wait(), 0);
    EXPECT_FALSE(std::filesystem::exists(socket));
}

TEST_F(ManyProcessesTest, AForkedChildKeepsNoEndpointAlive) {
    PeerProcess peer({"listen-and-fork", directoryPath(), "id"});
    const std::string socket = peer.readLine();
    const pid_t child = std::stoi(peer.readLine());
    const std::string name =
        endpointFiles::nameOf(std::filesystem::path(socket).filename().string()).value();
    const Descriptor opened = directory.open();
    EXPECT_EQ(endpointFiles::ownerOf(opened.get(), name), endpointFiles::Owner::alive);
    peer.kill();
    EXPECT_EQ(endpointFiles::ownerOf(opened.get(), name), endpointFiles::Owner::dead);
    ::kill(child, SIGKILL);
}

TEST_F(ManyProcessesTest, NobodyCanConnectAfterAnOrderlyEndEvenIfAForkedChildLivesOn) {
    PeerProcess peer({"listen-and-fork", directoryPath(), "id"});
    const std::string socket = peer.readLine();
    const pid_t child = std::stoi(peer.readLine());
    const std::string kept = socket + ".kept";
    std::filesystem::create_hard_link(socket, kept);
    peer.closeInput();
    EXPECT_EQ(peer.wait(), 0);
    EXPECT_THROW(connectLocal(kept), std::system_error);
    EXPECT_EQ(::kill(child, SIGKILL), 0);
}

TEST_F(ManyProcessesTest, AnExecutedChildInheritsNoDescriptor) {
    PeerProcess without({"descriptors"});
    PeerProcess with({"listen-and-execute", directoryPath(), "id"});
    with.readLine();
    EXPECT_EQ(with.readLine(), without.readLine());
}

} // namespace
} // namespace agent::orvi::remoting::details
