#include "remoting/processes/ProcessTest.hpp"

#include <gmock/gmock.h>

#include <csignal>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace agent::orvi::remoting::test {
namespace {

/// What the closing of an endpoint or an importer may take.
constexpr std::chrono::milliseconds closingTime{sanitized ? 6000 : 2000};

class Shutdown : public ProcessTest {
protected:
    Shutdown() {
        const std::string endpoint = publisher.ask("open-endpoint" + where());
        address = endpoint.substr(endpoint.find(' ') + 1);
        uuid = publish(publisher, "device", "kind=memory size=1000 buffer=16");
        importer.emplace(importing());
    }

    /// Block the publisher's device in a read of a client.
    std::unique_ptr<Background<std::string>> blockedRead(StreamBuffer& buffer) {
        publisher.ask("stop-next name=device operation=read point=entry");
        auto reading = std::make_unique<Background<std::string>>(
            [&] { return errorOf([&] { buffer.sgetc(); }); });
        publisher.ask("await-stopped name=device");
        return reading;
    }

    std::string address;
    boost::uuids::uuid uuid{};
    std::optional<Importer> importer;
};

TEST_F(Shutdown, OfAnEndpointEndsABlockedReadAndAllLaterCallsAsUnavailable) {
    StreamBuffer buffer = connect(uuid);
    const auto reading = blockedRead(buffer);
    std::string error;
    std::chrono::milliseconds closing{};
    const auto time = timeOf([&] {
        publisher.tell("close-endpoint");
        error = reading->get(errorTime);
        closing = std::chrono::milliseconds(std::stoi(publisher.reply()));
    });
    EXPECT_EQ(
        error, "agent::orvi::core::ServiceUnavailable: "
               "The endpoint closes while the call is running.");
    EXPECT_LT(closing, closingTime);
    EXPECT_LT(time, closingTime);
    EXPECT_EQ(
        errorOf([&] { buffer.sgetc(); }),
        "agent::orvi::core::ServiceUnavailable: Peer " + address + " has closed its endpoint.");
    publisher.ask("release name=device");
    EXPECT_EQ(publisher.ask("calls name=device"), "read(16)");
}

TEST_F(Shutdown, OfAnEndpointDoesNotWaitForAnAnswerThatDoesNotGoOut) {
    StreamBuffer buffer = connect(uuid);
    publisher.ask("stop-next name=device operation=read point=answer");
    Background reading([&] { return errorOf([&] { buffer.sgetc(); }); });
    publisher.ask("await-held");
    const std::chrono::milliseconds closing(std::stoi(publisher.ask("close-endpoint")));
    EXPECT_LT(closing, closingTime);
    publisher.ask("release name=device");
    EXPECT_NE(reading.get(errorTime), "");
}

TEST_F(Shutdown, OfAnEndpointLetsShortCallsEnd) {
    StreamBuffer buffer = connect(uuid);
    publisher.ask("stop-next name=device operation=read point=entry");
    Background reading([&] { return take(buffer, 10); });
    publisher.ask("await-stopped name=device");
    publisher.ask("begin-to-close-endpoint");
    EXPECT_TRUE(eventually([&] { return endpointFiles() == 0; }));
    publisher.ask("release name=device");
    EXPECT_EQ(reading.get(errorTime), pattern(10));
    publisher.ask("await-closed-endpoint");
}

TEST_F(Shutdown, OfAnEndpointWithdrawsItsServicesButNotThePublication) {
    StreamBuffer buffer = connect(uuid);
    EXPECT_EQ(buffer.sgetc(), pattern(1)[0]);
    publisher.ask("close-endpoint");
    EXPECT_EQ(endpointFiles(), 0u);
    EXPECT_TRUE(eventually([&] { return importer->peers().empty(); }));

    publisher.ask("open-endpoint" + where());
    StreamBuffer again = connect(uuid);
    EXPECT_EQ(again.pubseekpos(5, std::ios_base::in), std::streampos(5));
}

TEST_F(Shutdown, OfAnImporterEndsABlockedReadAndAllLaterCallsAsDisconnected) {
    LookUp lookUp(uuid);
    StreamBuffer buffer = connect(uuid);
    EXPECT_EQ(streambuf::test::invokablesOf(uuid).size(), 1u);
    const auto reading = blockedRead(buffer);
    EXPECT_LT(timeOf([&] { importer->close(); }), closingTime);
    EXPECT_EQ(reading->get(errorTime), disconnected);
    EXPECT_EQ(errorOf([&] { buffer.sgetc(); }), disconnected);
    EXPECT_EQ(errorOf([&] { buffer.pubseekpos(0, std::ios_base::in); }), disconnected);
    EXPECT_TRUE(streambuf::test::invokablesOf(uuid).empty());
    publisher.ask("release name=device");
}

TEST_F(Shutdown, OfAProcessWithActiveStreamsTakesNoTimeAndLeavesNothing) {
    const auto bulk = publish(publisher, "bulk", "kind=sparse size=1000000000 buffer=65536");
    StreamBuffer blocked = connect(uuid);
    std::vector<std::unique_ptr<Background<std::string>>> readers;
    readers.push_back(blockedRead(blocked));
    std::vector<std::unique_ptr<StreamBuffer>> buffers;
    for (int number = 0; number < 3; ++number) {
        buffers.push_back(std::make_unique<StreamBuffer>(connect(bulk)));
        EXPECT_EQ(take(*buffers.back(), 1).size(), 1u);
        readers.push_back(std::make_unique<Background<std::string>>([&buffer = *buffers.back()] {
            return errorOf([&] {
                while (!take(buffer, 100000).empty()) {
                }
            });
        }));
    }
    publisher.signal(SIGTERM);
    int exitCode = -1;
    EXPECT_LT(timeOf([&] { exitCode = publisher.wait(); }), closingTime);
    EXPECT_EQ(exitCode, 0);
    EXPECT_EQ(endpointFiles(), 0u);
    for (const auto& reader : readers) {
        EXPECT_THAT(
            reader->get(errorTime),
            testing::AnyOf(
                testing::StartsWith("agent::orvi::core::ServiceUnavailable: "), terminated));
    }
}

TEST_F(Shutdown, OfAWithdrawnStreamEndsAllLaterCallsAsUnavailable) {
    LookUp lookUp(uuid);
    StreamBuffer buffer = connect(uuid);
    EXPECT_EQ(buffer.sgetc(), pattern(1)[0]);
    EXPECT_EQ(streambuf::test::invokablesOf(uuid).size(), 1u);
    publisher.ask("withdraw name=device");
    EXPECT_THAT(
        errorOf([&] { buffer.pubseekpos(0, std::ios_base::in); }),
        testing::StartsWith("agent::orvi::core::ServiceUnavailable: "));
    EXPECT_TRUE(eventually([&] { return streambuf::test::invokablesOf(uuid).empty(); }));
    const auto other = publish(publisher, "other", "kind=memory size=10");
    StreamBuffer next = connect(other);
    EXPECT_EQ(take(next, 20), pattern(10)) << "the connection is as good as before";
}

TEST_F(Shutdown, DoesNotHappenWhenAChildOfThePublisherEnds) {
    StreamBuffer buffer = connect(uuid);
    EXPECT_EQ(publisher.ask("fork-and-exit"), "0");
    EXPECT_EQ(take(buffer, 10), pattern(10));
    EXPECT_EQ(endpointFiles(), 2u);
    StreamBuffer second = connect(uuid);
    EXPECT_EQ(second.pubseekpos(0, std::ios_base::in), std::streampos(0));
}

TEST_F(Shutdown, WorksWhileAChildOfThePublisherLivesOn) {
    StreamBuffer buffer = connect(uuid);
    const pid_t child = std::stoi(publisher.ask("fork"));
    EXPECT_EQ(take(buffer, 10), pattern(10));
    publisher.signal(SIGTERM);
    int exitCode = -1;
    EXPECT_LT(timeOf([&] { exitCode = publisher.wait(); }), closingTime);
    EXPECT_EQ(exitCode, 0);
    EXPECT_NE(errorOf([&] { buffer.pubseekpos(0, std::ios_base::in); }), "no error");
    EXPECT_EQ(endpointFiles(), 0u);
    ::kill(child, SIGKILL);
}

TEST_F(Shutdown, LeavesNoDescriptorToProgramsThatThePublisherRuns) {
    StreamBuffer buffer = connect(uuid);
    EXPECT_EQ(take(buffer, 10), pattern(10));
    EXPECT_EQ(publisher.ask("execute"), "0");
    EXPECT_EQ(buffer.pubseekpos(0, std::ios_base::in), std::streampos(0));
}

} // namespace
} // namespace agent::orvi::remoting::test
