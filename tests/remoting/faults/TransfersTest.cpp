#include "remoting/faults/Transfers.hpp"
#include "remoting/processes/Checksum.hpp"
#include "remoting/processes/ProcessTest.hpp"

#include "support/RecordingDevice.hpp"

#include <orvi/remoting/Endpoint.hpp>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <ios>
#include <map>
#include <string>
#include <string_view>

namespace agent::orvi::remoting::test {
namespace {

/// Makes the system take and give few bytes at a time, and interrupts some calls.
class ShortTransfers {
public:
    explicit ShortTransfers(std::size_t most)
        : most(most) {}

    std::map<std::string, int> shortened; ///< calls, by function
    int interrupted = 0;

private:
    Transfers::Share share(std::string_view function, std::size_t size) {
        constexpr std::size_t callsBetweenInterruptions = 7;
        if (++calls % callsBetweenInterruptions == 0) {
            ++interrupted;
            return {0, EINTR};
        }
        shortened[std::string(function)] += size > most ? 1 : 0;
        return {most, 0};
    }

    const std::size_t most;
    std::size_t calls = 0;
    const Transfers transfers{
        [this](std::string_view function, std::size_t size) { return share(function, size); }};
};

/// Connections on which the system takes and gives so many bytes at a time.
class ShortTransfersTest : public ProcessTest, public testing::WithParamInterface<std::size_t> {
protected:
    /// Return how many bytes to transfer, so that it takes some hundred calls.
    static std::size_t length() { return 100 * GetParam() + 1000; }

    static void expectAll(ShortTransfers& transfers) {
        EXPECT_GT(transfers.shortened["sendmsg"], 50);
        EXPECT_GT(transfers.shortened["recvmsg"], 50);
        EXPECT_GT(transfers.interrupted, 10);
    }
};

TEST_P(ShortTransfersTest, BringAllBytesToWhoeverReadsAndWrites) {
    publisher.ask("open-endpoint" + where());
    const std::string size = std::to_string(length());
    const auto uuid = publish(publisher, "device", "kind=memory size=" + size + " buffer=4096");
    ShortTransfers transfers(GetParam());
    const Importer importer(importing());
    StreamBuffer buffer = connect(uuid);
    EXPECT_EQ(take(buffer, length() + 1), pattern(length()));

    const std::string written(length(), 'w');
    EXPECT_EQ(buffer.pubseekpos(0), std::streampos(0));
    EXPECT_EQ(put(buffer, written), static_cast<std::streamsize>(written.size()));
    EXPECT_EQ(buffer.pubsync(), 0);
    EXPECT_EQ(buffer.pubseekpos(0), std::streampos(0));
    EXPECT_EQ(take(buffer, length() + 1), written);
    expectAll(transfers);
}

TEST_P(ShortTransfersTest, BringAllBytesOfWhoeverPublishes) {
    std::string bytes = pattern(length());
    std::reverse(bytes.begin(), bytes.end());
    const streambuf::test::RecordingDevice device(bytes);
    const auto uuid = newUuid();
    const StreamBuffer published =
        makeDevice(uuid, device.read(), device.write(), device.seekoff(), device.seekpos(), 4096);
    ShortTransfers transfers(GetParam());
    EndpointOptions options;
    options.runtimeDirectory = directory.path;
    const Endpoint endpoint(options);

    RemoteComponent& client = publisher;
    client.ask("open-importer" + where());
    connect(client, "stream", uuid);
    const std::string size = std::to_string(length());
    EXPECT_EQ(
        client.ask("read name=stream count=" + size), size + " " + std::to_string(checksum(bytes)));
    EXPECT_EQ(client.ask("write name=stream size=" + size), size);
    client.ask("sync name=stream");
    EXPECT_EQ(device.bytes(), pattern(length()));
    expectAll(transfers);
}

INSTANTIATE_TEST_SUITE_P(
    Bytes, ShortTransfersTest, testing::Values(1, 100, 5000),
    [](const auto& most) { return "AtMost" + std::to_string(most.param); });

/// Connections that break: one message cannot be sent, or received.
class BrokenTransfersTest : public ProcessTest {
protected:
    BrokenTransfersTest() {
        publisher.ask("open-endpoint" + where());
        uuid = publish(publisher, "device", "kind=memory size=100000 buffer=4096");
    }

    /// Read everything while one call fails, the first, the second, ... to the last.
    ///
    /// @return how many calls have failed.
    int failEach(const std::string& function, int error) {
        for (int number = 1;; ++number) {
            const Importer importer(importing());
            StreamBuffer buffer = connect(uuid);
            bool failed = false;
            bool lost = false;
            {
                int left = number;
                const Transfers transfers([&](std::string_view called, std::size_t size) {
                    if (called == function && --left == 0) {
                        failed = true;
                        return Transfers::Share{0, error};
                    }
                    return Transfers::Share{size, 0};
                });
                try {
                    EXPECT_EQ(buffer.pubseekpos(0, std::ios_base::in), std::streampos(0));
                    EXPECT_EQ(take(buffer, 200000).size(), 100000U) << function << ' ' << number;
                } catch (const PeerLost&) {
                    lost = true;
                }
            }
            if (!failed) {
                EXPECT_FALSE(lost);
                return number - 1;
            }
            EXPECT_TRUE(eventually([&] { return isReadable(); })) << function << ' ' << number;
        }
    }

    /// Say whether somebody who connects now can read.
    bool isReadable() const {
        try {
            StreamBuffer buffer = connect(uuid);
            return buffer.pubseekpos(0, std::ios_base::in) == std::streampos(0) &&
                   take(buffer, 10) == pattern(10);
        } catch (const PeerLost&) {
            return false; // the importer had not noticed yet
        }
    }

    boost::uuids::uuid uuid{};
};

TEST_F(BrokenTransfersTest, BringAllBytesOrAnErrorWhereNothingIsReceivedAnyMore) {
    EXPECT_GE(failEach("recvmsg", ECONNRESET), 3);
}

TEST_F(BrokenTransfersTest, BringAllBytesOrAnErrorWhereTheConnectionEnds) {
    constexpr int none = 0; // no error: nothing is received, which is the end
    EXPECT_GE(failEach("recvmsg", none), 3);
}

TEST_F(BrokenTransfersTest, BringAllBytesOrAnErrorWhereNothingIsSentAnyMore) {
    EXPECT_GE(failEach("sendmsg", EPIPE), 3);
}

} // namespace
} // namespace agent::orvi::remoting::test
