#include "remoting/discovery/TemporaryDirectory.hpp"
#include "remoting/safety/SilentPeer.hpp"

#include "support/Sanitizers.hpp"

#include "discovery/RuntimeDirectory.hpp"

#include <orvi/remoting/Importer.hpp>

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <list>
#include <optional>

namespace agent::orvi::remoting::test {
namespace {

/// What the closing of an importer may take.
#if defined(ORVI_ADDRESS_SANITIZER) || defined(ORVI_THREAD_SANITIZER)
constexpr std::chrono::milliseconds closingTime{6000};
#else
constexpr std::chrono::milliseconds closingTime{2000};
#endif

class ClosingImporterTest : public testing::Test {
protected:
    void openWithPeers(std::size_t count) {
        for (std::size_t number = 0; number < count; ++number) {
            peers.emplace_back(directory.path(), number);
        }
        ImporterOptions options;
        options.runtimeDirectory = directory.path();
        importer.emplace(options);
        for (SilentPeer& peer : peers) {
            peer.accept();
        }
    }

    std::chrono::milliseconds timeToClose() {
        const auto start = std::chrono::steady_clock::now();
        importer->close();
        return std::chrono::duration_cast<std::chrono::milliseconds>(
            std::chrono::steady_clock::now() - start);
    }

    TemporaryDirectory parent;
    details::RuntimeDirectory directory{parent.path / "orvi"};
    std::list<SilentPeer> peers;
    std::optional<Importer> importer;
};

TEST_F(ClosingImporterTest, DoesNotWaitForPeersThatSayNothing) {
    openWithPeers(50);
    EXPECT_LT(timeToClose(), closingTime);
}

/// Where many connections are lost at once although their processes go on, it takes a while to
/// tell that of each.
TEST_F(ClosingImporterTest, WaitsOnceForAllConnectionsThatAreBeingLost) {
    openWithPeers(100);
    for (SilentPeer& peer : peers) {
        peer.hangUp();
    }
    for (SilentPeer& peer : peers) {
        peer.awaitHangUp();
    }
    EXPECT_LT(timeToClose(), closingTime);
}

} // namespace
} // namespace agent::orvi::remoting::test
