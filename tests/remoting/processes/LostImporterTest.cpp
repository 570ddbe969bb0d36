#include "remoting/processes/ProcessTest.hpp"

#include <gmock/gmock.h>

#include <csignal>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

namespace agent::orvi::remoting::test {
namespace {

/// What an importing process is doing when it dies.
struct Use {
    std::string name;
    std::vector<std::string> commands; ///< The last one makes the call.
    std::string operation;             ///< That the device sees by it.
    std::string call;                  ///< How it sees it.
};

void PrintTo(const Use& use, std::ostream* out) {
    *out << use.name;
}

const std::vector<Use> uses = {
    {"read", {"read name=stream count=1"}, "read", "read(16)"},
    {"write", {"write name=stream size=33"}, "write", "write(16)"},
    {"seekoff", {"seekoff name=stream offset=3"}, "seekoff", "seekoff(3)"},
    {"seekpos", {"seekpos name=stream position=3"}, "seekpos", "seekpos(3)"},
    {"sync", {"write name=stream size=5", "sync name=stream"}, "write", "write(5)"},
    {"destruction", {"write name=stream size=5", "disconnect name=stream"}, "write", "write(5)"}};

/// Where the call is when the process is killed.
struct Moment {
    std::string name;
    std::string point;
    std::string arrival;
};

void PrintTo(const Moment& moment, std::ostream* out) {
    *out << moment.name;
}

const std::vector<Moment> moments = {
    {"BeforeTheCall", "", ""},
    {"WhileTheDeviceIsBlocked", "entry", "await-stopped name=device"},
    {"WhileTheDeviceReturns", "exit", "await-stopped name=device"},
    {"BeforeTheAnswer", "answer", "await-held"}};

/// The publisher serves two clients: this process, which stays, and a process that dies.
class LostImporter : public ProcessTest {
protected:
    void open(const std::string& settings = "") {
        publisher.ask("open-endpoint" + where() + settings);
        uuid = publish(publisher, "device", "kind=memory size=1000 buffer=16");
        importer.emplace(importing());
        survivor.emplace(connect(uuid));
        EXPECT_EQ(survivor->pubseekpos(0, std::ios_base::in), std::streampos(0));
        before = figuresOf(publisher.id());
        client.ask("open-importer" + where());
        ProcessTest::connect(client, "stream", uuid);
    }

    using ProcessTest::connect;

    /// Return the calls of the device since `open`.
    std::string calls() {
        const std::string first = "seekpos(0) ";
        const std::string all = publisher.ask("calls name=device") + " ";
        EXPECT_EQ(all.substr(0, first.size()), first);
        return all.substr(first.size());
    }

    /// Expect the publisher to have what it had before the process came.
    void expectNothingLeft() const {
        EXPECT_TRUE(eventually([&] {
            return figuresOf(publisher.id()).descriptors == before.descriptors;
        })) << before
            << " before, now " << figuresOf(publisher.id());
    }

    void expectSurvivorGoesOn() {
        EXPECT_EQ(survivor->pubseekpos(0, std::ios_base::in), std::streampos(0));
        EXPECT_EQ(take(*survivor, 10), pattern(10));
    }

    boost::uuids::uuid uuid{};
    std::optional<Importer> importer;
    std::optional<StreamBuffer> survivor;
    RemoteComponent client;
    ProcessFigures before;
};

class LostImporterMatrix : public LostImporter,
                           public testing::WithParamInterface<std::tuple<Use, Moment>> {};

TEST_P(LostImporterMatrix, IsForgottenByThePublisher) {
    const auto& [use, moment] = GetParam();
    open();
    for (std::size_t index = 0; index + 1 < use.commands.size(); ++index) {
        client.ask(use.commands[index]);
    }
    if (moment.point.empty()) {
        client.kill();
        expectNothingLeft();
        EXPECT_EQ(calls(), "");
    } else {
        publisher.ask(
            "stop-next name=device operation=" + use.operation + " point=" + moment.point);
        client.tell(use.commands.back());
        publisher.ask(moment.arrival);
        client.kill();
        publisher.ask("release name=device");
        expectNothingLeft();
        EXPECT_EQ(calls(), use.call + " ") << "what had begun is all that the device sees";
    }
    expectSurvivorGoesOn();
}

INSTANTIATE_TEST_SUITE_P(
    Killed, LostImporterMatrix,
    testing::Combine(testing::ValuesIn(uses), testing::ValuesIn(moments)),
    [](const testing::TestParamInfo<std::tuple<Use, Moment>>& parameter) {
        return std::get<0>(parameter.param).name + std::get<1>(parameter.param).name;
    });

TEST_F(LostImporter, IsForgottenWhileTheDeviceIsStillBlocked) {
    open();
    publisher.ask("stop-next name=device operation=read point=entry");
    client.tell("read name=stream count=1");
    publisher.ask("await-stopped name=device");
    client.kill();
    expectNothingLeft();
    publisher.ask("release name=device");
    expectSurvivorGoesOn();
}

TEST_F(LostImporter, DoesNotReachTheDeviceWithACallThatWaitsForItsTurn) {
    open(" calls=2");
    const auto other = publish(publisher, "other", "kind=memory size=10");
    StreamBuffer probe = connect(other);
    const auto probed = [&] { return errorOf([&] { probe.pubseekpos(0, std::ios_base::in); }); };

    publisher.ask("stop-next name=device operation=read point=entry");
    Background reading([&] { return take(*survivor, 10); });
    publisher.ask("await-stopped name=device");
    client.tell("insist-on-seekpos name=stream position=77");
    // Two calls are all that the endpoint takes: the one that is running and the one that waits.
    EXPECT_TRUE(eventually([&] { return probed() != "no error"; }));
    client.kill();
    expectNothingLeft();
    for (int number = 0; number < 10; ++number) {
        probed(); // The end of the client's stream has been handled before these have.
    }
    publisher.ask("release name=device");
    EXPECT_EQ(reading.get(), pattern(10));
    expectSurvivorGoesOn();
    EXPECT_EQ(calls(), "read(16) seekpos(0) read(16) ");
}

TEST_F(LostImporter, LeavesRoomForOtherCalls) {
    open(" calls=1");
    publisher.ask("stop-next name=device operation=read point=entry");
    client.tell("read name=stream count=1");
    publisher.ask("await-stopped name=device");
    client.kill();
    publisher.ask("release name=device");
    EXPECT_TRUE(eventually([&] {
        return errorOf([&] { survivor->pubseekpos(0, std::ios_base::in); }) == "no error";
    }));
}

TEST_F(LostImporter, ThatIsStoppedIsForgottenAfterTheKeepaliveTime) {
    open(settings::quickKeepalive);
    client.stop();
    expectNothingLeft();
    expectSurvivorGoesOn();
    client.signal(SIGCONT);
    EXPECT_THAT(
        errorOf([&] { client.ask("read name=stream count=1"); }),
        testing::StartsWith("agent::orvi::remoting::PeerLost: "));
}

} // namespace
} // namespace agent::orvi::remoting::test
