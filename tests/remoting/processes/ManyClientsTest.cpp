#include "remoting/processes/Checksum.hpp"
#include "remoting/processes/ProcessTest.hpp"

#include "support/SparseDevice.hpp"
#include "support/TemporaryFile.hpp"

#include <algorithm>
#include <atomic>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace agent::orvi::remoting::test {
namespace {

using std::chrono::milliseconds;

class ManyClients : public ProcessTest {
protected:
    void open(const std::string& settings = "") {
        publisher.ask("open-endpoint" + where() + settings);
        importer.emplace(importing());
    }

    std::optional<Importer> importer;
};

std::string randomBytes(std::size_t count) {
    std::mt19937 random(20240611);
    std::string bytes(count, '\0');
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random()); });
    return bytes;
}

/// Read everything, in pieces that differ in length.
std::string readAll(StreamBuffer& buffer, std::uint32_t seed) {
    std::minstd_rand random(seed);
    std::string all;
    for (;;) {
        const std::string piece = take(buffer, 1 + random() % 50000);
        if (piece.empty()) {
            return all;
        }
        all += piece;
    }
}

TEST_F(ManyClients, ReadOneFileEachFromItsOwnPlace) {
    const std::string content = randomBytes(sanitized ? 500'000 : 3'000'000);
    const streambuf::test::TemporaryFile file(content);
    open(" positions=1");
    const auto uuid =
        publish(publisher, "file", "kind=file buffer=4096 path=" + file.path.string());
    RemoteComponent other;
    other.ask("open-importer" + where());
    connect(other, "file", uuid);
    other.tell("read name=file count=" + std::to_string(content.size() + 1));

    constexpr std::uint32_t clients = 6;
    std::vector<std::unique_ptr<Background<std::string>>> readers;
    for (std::uint32_t client = 0; client < clients; ++client) {
        readers.push_back(std::make_unique<Background<std::string>>([uuid, client] {
            StreamBuffer buffer = connect(uuid);
            return readAll(buffer, client + 1);
        }));
    }
    for (const auto& reader : readers) {
        const std::string arrived = reader->get();
        EXPECT_EQ(arrived.size(), content.size());
        EXPECT_EQ(checksum(arrived), checksum(content));
    }
    EXPECT_EQ(
        other.reply(), std::to_string(content.size()) + " " + std::to_string(checksum(content)));
}

TEST_F(ManyClients, KeepTheirPlacesWhileOthersWriteAndSeek) {
    open(" positions=1");
    const auto uuid = publish(publisher, "device", "kind=memory size=200 buffer=8");
    StreamBuffer reader = connect(uuid);
    StreamBuffer writer = connect(uuid);
    EXPECT_EQ(take(reader, 7), pattern(200).substr(0, 7));
    EXPECT_EQ(writer.pubseekpos(100, std::ios_base::out), std::streampos(100));
    EXPECT_EQ(put(writer, "0123456789"), 10);
    EXPECT_EQ(writer.pubseekpos(50, std::ios_base::in), std::streampos(50));
    EXPECT_EQ(take(reader, 20), pattern(200).substr(7, 20));
    EXPECT_EQ(take(writer, 20), pattern(200).substr(50, 20));
    EXPECT_EQ(writer.pubsync(), 0);
    EXPECT_EQ(reader.pubseekpos(100, std::ios_base::in), std::streampos(100));
    EXPECT_EQ(take(reader, 10), "0123456789");
}

TEST_F(ManyClients, ShareThePositionOfADeviceUnlessItIsAskedForOtherwise) {
    open();
    const auto uuid = publish(publisher, "device", "kind=memory size=100 buffer=8");
    StreamBuffer first = connect(uuid);
    StreamBuffer second = connect(uuid);
    EXPECT_EQ(first.sgetc(), pattern(100)[0]);
    EXPECT_EQ(second.sgetc(), pattern(100)[8]);
    EXPECT_EQ(take(first, 16), pattern(100).substr(0, 8) + pattern(100).substr(16, 8));
    EXPECT_EQ(publisher.ask("calls name=device"), "read(8) read(8) read(16)")
        << "nobody moves the device";
}

TEST_F(ManyClients, AreInsideADeviceOneAtATime) {
    open();
    const auto uuid = publish(publisher, "device", "kind=memory size=1000 buffer=8");
    constexpr int rounds = sanitized ? 50 : 300;
    std::vector<std::unique_ptr<Background<void>>> users;
    for (int user = 0; user < 6; ++user) {
        users.push_back(std::make_unique<Background<void>>([uuid] {
            StreamBuffer buffer = connect(uuid);
            for (int round = 0; round < rounds; ++round) {
                EXPECT_EQ(buffer.pubseekpos(round, std::ios_base::in), std::streampos(round));
                buffer.sgetc();
                EXPECT_EQ(put(buffer, "123456789"), 9);
                EXPECT_EQ(buffer.pubsync(), 0);
            }
        }));
    }
    for (const auto& user : users) {
        user->get();
    }
    EXPECT_EQ(publisher.ask("overlap name=device"), "1");
}

TEST_F(ManyClients, WaitForTheirTurnInTheOrderInWhichTheyCome) {
    open(" calls=3");
    const auto uuid = publish(publisher, "device", "kind=memory size=100 buffer=8");
    StreamBuffer first = connect(uuid);
    StreamBuffer second = connect(uuid);
    StreamBuffer probe = connect(publish(publisher, "other", "kind=memory size=100"));
    publisher.ask("stop-next name=device operation=read point=entry");
    Background blocked([&] { return first.sgetc(); });
    publisher.ask("await-stopped name=device");
    Background waiting(
        [&] { return insist([&] { return second.pubseekpos(3, std::ios_base::out); }); });
    StreamBuffer third = connect(uuid);
    Background last(
        [&] { return insist([&] { return third.pubseekpos(4, std::ios_base::out); }); });
    EXPECT_TRUE(eventually([&] {
        return errorOf([&] { probe.pubseekpos(0, std::ios_base::in); }) != "no error";
    })) << "all have come";
    EXPECT_EQ(publisher.ask("calls name=device"), "read(8)");
    publisher.ask("release name=device");
    EXPECT_EQ(blocked.get(), pattern(1)[0]);
    EXPECT_EQ(waiting.get(), std::streampos(3));
    EXPECT_EQ(last.get(), std::streampos(4));
    EXPECT_EQ(publisher.ask("overlap name=device"), "1");
}

TEST_F(ManyClients, MayWriteWhileOthersReadWhereTheEndpointAllowsIt) {
    open(" concurrent=1");
    const auto uuid = publish(publisher, "device", "kind=duplex buffer=8");
    StreamBuffer reader = connect(uuid);
    StreamBuffer writer = connect(uuid);
    Background reading([&] { return take(reader, 5); });
    EXPECT_TRUE(eventually([&] { return publisher.ask("calls name=device") == "read(8)"; }));
    EXPECT_EQ(put(writer, "hello"), 5);
    EXPECT_EQ(writer.pubsync(), 0);
    EXPECT_EQ(reading.get(), "hello");
    EXPECT_EQ(publisher.ask("overlap name=device"), "2");
}

TEST_F(ManyClients, SeeTheErrorOfTheirOwnCallOnly) {
    open();
    const auto uuid = publish(publisher, "device", "kind=memory size=100 buffer=8");
    StreamBuffer first = connect(uuid);
    StreamBuffer second = connect(uuid);
    publisher.ask("stop-next name=device operation=seekpos point=error");
    EXPECT_EQ(first.pubseekpos(3, std::ios_base::in), std::streampos(-1));
    EXPECT_EQ(second.pubseekpos(3, std::ios_base::in), std::streampos(3));
    EXPECT_EQ(first.pubseekpos(3, std::ios_base::in), std::streampos(3));
}

TEST_F(ManyClients, AreNotHeldUpByALargeCallOfAnother) {
    constexpr std::size_t large = sanitized ? std::size_t{32} << 20 : std::size_t{256} << 20;
    open();
    const auto bulk =
        publish(publisher, "bulk", "kind=sparse buffer=4096 size=" + std::to_string(large));
    StreamBuffer big = connect(bulk);
    StreamBuffer small = connect(publish(publisher, "small", "kind=memory size=100 buffer=1"));
    EXPECT_EQ(small.pubseekpos(0, std::ios_base::in), std::streampos(0));

    std::string data;
    Background<milliseconds> reading(
        [&] { return timeOf([&] { data = take(big, large - 4096); }); });
    std::vector<milliseconds> latencies;
    while (reading.isRunning()) {
        latencies.push_back(timeOf([&] { small.pubseekpos(7, std::ios_base::in); }));
    }
    const milliseconds bigTime = reading.get();
    EXPECT_EQ(checksum(data), checksum(streambuf::test::sparseCharacters(0, large - 4096)));
    ASSERT_FALSE(latencies.empty());
    std::sort(latencies.begin(), latencies.end());
    const milliseconds median = latencies[latencies.size() / 2];
    const milliseconds longest = latencies.back();
    std::cout << latencies.size() << " small calls beside one of " << bigTime.count()
              << " ms: median " << median.count() << " ms, longest " << longest.count() << " ms"
              << std::endl;
    EXPECT_GT(latencies.size(), 10u);
    EXPECT_LT(median * 10, bigTime);
    EXPECT_LT(longest * 2, bigTime);
}

} // namespace
} // namespace agent::orvi::remoting::test
