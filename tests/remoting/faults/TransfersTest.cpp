#include "remoting/faults/Transfers.hpp"
#include "remoting/processes/Checksum.hpp"
#include "remoting/processes/ProcessTest.hpp"

#include "support/RecordingDevice.hpp"

#include <orvi/remoting/Endpoint.hpp>

#include <gmock/gmock.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <ios>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

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

enum class Transport : char { local, tcp };

/// Connections that break: one message cannot be sent, or received.
class BrokenTransfersTest : public ProcessTest, public testing::WithParamInterface<Transport> {
protected:
    static constexpr std::size_t size = 100000;

    /// What cannot be done, and its errno; none where nothing is received, which is the end.
    struct Failure {
        std::string function;
        int error;
    };

    static bool isTcp() { return GetParam() == Transport::tcp; }

    static std::string portOf(const std::string& endpoint) {
        return endpoint.substr(endpoint.rfind(':') + 1);
    }

    /// Do something while one transfer fails, the first, the second, ... to the last.
    ///
    /// @param use is given the number, and returns whether it has ended with an error.
    /// @return how many have failed.
    template <class Use>
    static int failEach(const Failure& failure, const Use& use) {
        for (int number = 1;; ++number) {
            SCOPED_TRACE(failure.function + " " + std::to_string(number));
            bool failed = false;
            int left = number;
            const bool lost = use(number, [&](std::string_view called, std::size_t most) {
                if (called == failure.function && --left == 0) {
                    failed = true;
                    return Transfers::Share{0, failure.error};
                }
                return Transfers::Share{most, 0};
            });
            if (!failed) {
                EXPECT_FALSE(lost);
                return number - 1;
            }
        }
    }
};

/// What the importing process sends and receives fails.
class BrokenImporterTest : public BrokenTransfersTest {
protected:
    BrokenImporterTest() {
        const std::string endpoint =
            publisher.ask("open-endpoint" + where() + (isTcp() ? " listen=127.0.0.1:0" : ""));
        uuid = publish(publisher, "device", "kind=memory size=100000 buffer=4096");
        if (isTcp()) {
            options.local = false;
            options.targets = {"127.0.0.1:" + portOf(endpoint)};
            options.plainLoopback = true;
        } else {
            options = importing();
        }
    }

    /// Let a connected stream be used while a transfer fails, and see that the next one is served.
    template <class Use>
    int failEach(const Failure& failure, const Use& use) {
        return BrokenTransfersTest::failEach(
            failure, [&](int number, const Transfers::Decision& decision) {
                const Importer importer(options);
                StreamBuffer buffer = connect(uuid);
                bool lost = false;
                try {
                    const Transfers transfers(decision);
                    use(buffer, number);
                } catch (const PeerLost&) {
                    lost = true;
                }
                EXPECT_TRUE(eventually([&] { return isServed(); }));
                return lost;
            });
    }

    int failEachWhileReading(const Failure& failure) {
        return failEach(failure, [](StreamBuffer& buffer, int) {
            EXPECT_EQ(buffer.pubseekpos(0, std::ios_base::in), std::streampos(0));
            EXPECT_TRUE(take(buffer, 2 * size) == pattern(size));
        });
    }

    int failEachWhileWriting(const Failure& failure) {
        return failEach(failure, [&](StreamBuffer& buffer, int number) {
            const std::string bytes(size, static_cast<char>('a' + number % 26));
            EXPECT_EQ(buffer.pubseekpos(0), std::streampos(0));
            EXPECT_EQ(put(buffer, bytes), static_cast<std::streamsize>(size));
            EXPECT_EQ(buffer.pubsync(), 0);
            EXPECT_EQ(buffer.pubseekpos(0), std::streampos(0));
            EXPECT_TRUE(take(buffer, 2 * size) == bytes);
        });
    }

    /// Say whether somebody who connects now can read.
    bool isServed() const {
        try {
            StreamBuffer buffer = connect(uuid);
            return buffer.pubseekpos(0, std::ios_base::in) == std::streampos(0) &&
                   take(buffer, 10).size() == 10;
        } catch (const std::exception&) {
            return false; // the importer had not noticed yet, or has noticed just now
        }
    }

    ImporterOptions options;
    boost::uuids::uuid uuid{};
};

/// Read by others while what the exporting process sends and receives fails.
class BrokenExporterTest : public BrokenTransfersTest {
protected:
    BrokenExporterTest()
        : device(pattern(size))
        , published(makeDevice(
              uuid, device.read(), device.write(), device.seekoff(), device.seekpos(), 4096)) {
        EndpointOptions options;
        options.runtimeDirectory = directory.path;
        options.positionPerConnection = true; // each reads from the start
        options.local = !isTcp();
        options.plainLoopback = isTcp();
        options.listen =
            isTcp() ? std::vector<std::string>{"127.0.0.1:0"} : std::vector<std::string>();
        endpoint.emplace(options);
    }

    void openImporter() {
        client.ask(
            "open-importer" + where() +
            (isTcp() ? " target=127.0.0.1:" + portOf(endpoint->addresses().at(0)) : ""));
    }

    /// Let a component use the stream while a transfer fails, each time over a new connection.
    ///
    /// @param command what it is told, with "name=" behind it.
    int failEach(const Failure& failure, const std::string& command, const std::string& answer) {
        return BrokenTransfersTest::failEach(
            failure, [&](int number, const Transfers::Decision& decision) {
                const std::string name = "stream" + std::to_string(number);
                openImporter(); // one that has lost connections would wait before the next
                connect(client, name, uuid);
                const Transfers transfers(decision);
                const std::string error = errorOf([&] {
                    EXPECT_EQ(client.ask(command + " name=" + name), answer);
                    client.ask("sync name=" + name);
                });
                EXPECT_THAT(
                    error,
                    testing::AnyOf(
                        "no error", testing::AllOf(
                                        testing::StartsWith("agent::orvi::remoting::PeerLost: "),
                                        testing::HasSubstr(" is disconnected"))));
                return error != "no error";
            });
    }

    int failEachWhileReading(const Failure& failure) {
        const std::string count = std::to_string(size);
        return failEach(
            failure, "read count=" + count, count + " " + std::to_string(checksum(pattern(size))));
    }

    int failEachWhileWriting(const Failure& failure) {
        const int failures =
            failEach(failure, "write size=" + std::to_string(size), std::to_string(size));
        EXPECT_TRUE(device.bytes() == pattern(size));
        return failures;
    }

    const boost::uuids::uuid uuid = newUuid();
    const streambuf::test::RecordingDevice device;
    const StreamBuffer published;
    std::optional<Endpoint> endpoint;
    RemoteComponent client;
};

constexpr int theEnd = 0;

TEST_P(BrokenImporterTest, ReadsAllBytesOrGetsAnErrorWhereNothingIsReceivedAnyMore) {
    EXPECT_GE(failEachWhileReading({"recvmsg", ECONNRESET}), 3);
}

TEST_P(BrokenImporterTest, ReadsAllBytesOrGetsAnErrorWhereTheConnectionEnds) {
    EXPECT_GE(failEachWhileReading({"recvmsg", theEnd}), 3);
}

TEST_P(BrokenImporterTest, ReadsAllBytesOrGetsAnErrorWhereNothingIsSentAnyMore) {
    EXPECT_GE(failEachWhileReading({"sendmsg", EPIPE}), 3);
}

TEST_P(BrokenImporterTest, WritesAllBytesOrGetsAnErrorWhereNothingIsReceivedAnyMore) {
    EXPECT_GE(failEachWhileWriting({"recvmsg", ECONNRESET}), 3);
}

TEST_P(BrokenImporterTest, WritesAllBytesOrGetsAnErrorWhereNothingIsSentAnyMore) {
    EXPECT_GE(failEachWhileWriting({"sendmsg", EPIPE}), 3);
}

TEST_P(BrokenExporterTest, GivesAllBytesOrAnErrorWhereNothingIsReceivedAnyMore) {
    EXPECT_GE(failEachWhileReading({"recvmsg", ECONNRESET}), 1);
}

TEST_P(BrokenExporterTest, GivesAllBytesOrAnErrorWhereNothingIsSentAnyMore) {
    EXPECT_GE(failEachWhileReading({"sendmsg", EPIPE}), 1);
}

TEST_P(BrokenExporterTest, TakesAllBytesOrGivesAnErrorWhereNothingIsReceivedAnyMore) {
    EXPECT_GE(failEachWhileWriting({"recvmsg", ECONNRESET}), 1);
}

TEST_P(BrokenExporterTest, TakesAllBytesOrGivesAnErrorWhereNothingIsSentAnyMore) {
    EXPECT_GE(failEachWhileWriting({"sendmsg", EPIPE}), 1);
}

const auto nameOf = [](const auto& transport) {
    return std::string(transport.param == Transport::tcp ? "Tcp" : "Local");
};

INSTANTIATE_TEST_SUITE_P(
    Over, BrokenImporterTest, testing::Values(Transport::local, Transport::tcp), nameOf);
INSTANTIATE_TEST_SUITE_P(
    Over, BrokenExporterTest, testing::Values(Transport::local, Transport::tcp), nameOf);

} // namespace
} // namespace agent::orvi::remoting::test
