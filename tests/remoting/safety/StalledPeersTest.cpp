#include "remoting/discovery/TemporaryDirectory.hpp"
#include "remoting/discovery/Waiting.hpp"
#include "remoting/safety/SilentPeer.hpp"

#include "discovery/RuntimeDirectory.hpp"

#include <orvi/remoting/Importer.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <list>
#include <optional>
#include <string>
#include <vector>

namespace agent::orvi::remoting::test {
namespace {

using Clock = std::chrono::steady_clock;
using State = PeerStatus::State;

/// Peers that do not behave, each of which may cost an importer some time, but not the others'.
class StalledPeersTest : public testing::Test {
protected:
    void open() {
        ImporterOptions options;
        options.runtimeDirectory = directory.path();
        importer.emplace(options);
    }

    std::size_t countOf(State state) const {
        const auto known = importer->peers();
        return static_cast<std::size_t>(std::count_if(
            known.begin(), known.end(), [&](const auto& peer) { return peer.state == state; }));
    }

    TemporaryDirectory parent;
    details::RuntimeDirectory directory{parent.path / "orvi"};
    std::list<SilentPeer> peers;
    std::optional<Importer> importer;
};

TEST_F(StalledPeersTest, AreAllConnectedToAgainSoonWhenManyHangUpTogether) {
    for (std::size_t number = 0; number < 100; ++number) {
        peers.emplace_back(directory.path(), number);
    }
    open();
    for (SilentPeer& peer : peers) {
        peer.accept();
    }
    const auto start = Clock::now();
    for (SilentPeer& peer : peers) {
        peer.hangUp();
    }
    for (SilentPeer& peer : peers) {
        peer.accept();
    }
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(3));
}

TEST_F(StalledPeersTest, HoldUpNobodyWhenTheyAcceptNothing) {
    std::vector<details::Descriptor> waiting;
    for (std::size_t number = 0; number < 10; ++number) {
        const SilentPeer& peer = peers.emplace_back(directory.path(), number, 0);
        waiting.push_back(newLocalSocket());
        ASSERT_EQ(withPath(::connect, waiting.back().get(), peer.path()), 0);
    }
    const auto start = Clock::now();
    open();
    peers.emplace_back(directory.path(), 99).accept(); // the last one to be found
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(3));
    EXPECT_TRUE(eventually([&] { return countOf(State::failed) == 10; }));
}

TEST_F(StalledPeersTest, AreWaitedForALittleBeforeTheyCountAsFailed) {
    const SilentPeer& peer = peers.emplace_back(directory.path(), 0, 0);
    const auto waiting = newLocalSocket();
    ASSERT_EQ(withPath(::connect, waiting.get(), peer.path()), 0);
    const auto start = Clock::now();
    open();
    EXPECT_TRUE(importer->waitUntilSettled(longTime));
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(500));
    EXPECT_TRUE(eventually([&] { return countOf(State::failed) == 1; }));
}

TEST_F(StalledPeersTest, AreConnectedToOnceTheyAcceptAgain) {
    SilentPeer& peer = peers.emplace_back(directory.path(), 0, 0);
    const auto waiting = newLocalSocket();
    ASSERT_EQ(withPath(::connect, waiting.get(), peer.path()), 0);
    open();
    peer.accept(); // what was waiting
    peer.accept();
    EXPECT_EQ(countOf(State::connecting), 1U);
}

} // namespace
} // namespace agent::orvi::remoting::test
