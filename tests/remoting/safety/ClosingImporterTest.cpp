#include "remoting/discovery/Sockets.hpp"
#include "remoting/discovery/TemporaryDirectory.hpp"

#include "support/Sanitizers.hpp"

#include "discovery/RuntimeDirectory.hpp"

#include <orvi/remoting/Importer.hpp>

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <list>
#include <optional>
#include <string>
#include <system_error>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace agent::orvi::remoting::test {
namespace {

using details::Descriptor;

/// What the closing of an importer may take.
#if defined(ORVI_ADDRESS_SANITIZER) || defined(ORVI_THREAD_SANITIZER)
constexpr std::chrono::milliseconds closingTime{6000};
#else
constexpr std::chrono::milliseconds closingTime{2000};
#endif

/// What a process looks like that has opened an endpoint and does nothing with its connections.
class SilentPeer {
public:
    SilentPeer(const std::filesystem::path& directory, std::size_t number)
        : listening(newLocalSocket()) {
        const std::string name =
            "silent." + std::to_string(::getpid()) + "." + std::to_string(number);
        lock = Descriptor(::open(
            (directory / (name + ".lock")).c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));

        struct flock whole {};

        whole.l_type = F_WRLCK;
        const auto made = directory / (name + ".new");
        const auto shown = directory / (name + ".sock");
        if (::fcntl(lock.get(), F_OFD_SETLK, &whole) != 0 ||
            withPath(::bind, listening.get(), made) != 0 ||
            ::listen(listening.get(), SOMAXCONN) != 0) {
            throw std::system_error(errno, std::generic_category(), shown);
        }
        std::filesystem::rename(made, shown);
    }

    /// Wait for a connection and keep it.
    void accept() {
        connections.emplace_back(::accept4(listening.get(), nullptr, nullptr, SOCK_CLOEXEC));
    }

    /// End what was kept.
    void hangUp() {
        for (const Descriptor& connection : connections) {
            ::shutdown(connection.get(), SHUT_WR);
        }
    }

    /// Wait until the other side has seen that.
    void awaitHangUp() {
        for (const Descriptor& connection : connections) {
            while (readFrom(connection.get()) != "end") {
            }
        }
    }

private:
    Descriptor lock;
    Descriptor listening;
    std::list<Descriptor> connections;
};

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
