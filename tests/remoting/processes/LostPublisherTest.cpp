#include "remoting/processes/ProcessTest.hpp"

#include <gmock/gmock.h>

#include <csignal>
#include <functional>
#include <ios>
#include <istream>
#include <optional>
#include <ostream>
#include <tuple>
#include <vector>

namespace agent::orvi::remoting::test {
namespace {

/// What a client does when its publisher is lost.
struct Use {
    std::string name;
    std::string operation; ///< That the device sees by it.
    std::function<void(std::optional<StreamBuffer>&)> run;
};

void PrintTo(const Use& use, std::ostream* out) {
    *out << use.name;
}

constexpr std::size_t bufferSize = 16;

std::vector<Use> uses() {
    using Buffer = std::optional<StreamBuffer>;
    constexpr auto in = std::ios_base::in;
    return {
        {"read", "read", [](Buffer& buffer) { buffer->sgetc(); }},
        {"write", "write", [](Buffer& buffer) { put(*buffer, pattern(2 * bufferSize + 1)); }},
        {"seekoff", "seekoff",
         [](Buffer& buffer) { buffer->pubseekoff(3, std::ios_base::beg, in); }},
        {"seekpos", "seekpos", [](Buffer& buffer) { buffer->pubseekpos(3, in); }},
        {"sync", "write", [](Buffer& buffer) {
             put(*buffer, "pending");
             buffer->pubsync();
         }}};
}

const Use destruction{"destruction", "write", [](std::optional<StreamBuffer>& buffer) {
                          put(*buffer, "pending");
                          buffer.reset();
                      }};

/// When, seen from the device, the publisher is killed.
struct Moment {
    std::string name;
    std::string point;   ///< Where the call is at that moment; empty: not made yet.
    std::string arrival; ///< What the publisher waits for until it is there.
};

void PrintTo(const Moment& moment, std::ostream* out) {
    *out << moment.name;
}

const std::vector<Moment> moments = {
    {"BeforeTheCall", "", ""},
    {"WhileTheDeviceIsBlocked", "entry", "await-stopped name=device"},
    {"WhileTheDeviceReturns", "exit", "await-stopped name=device"},
    {"BeforeTheAnswer", "answer", "await-held"}};

class LostPublisherTest : public ProcessTest,
                          public testing::WithParamInterface<std::tuple<Use, Moment>> {
protected:
    LostPublisherTest()
        : address(publisher.ask("open-endpoint" + where()))
        , uuid(publish(publisher, "device", "kind=memory size=1000 buffer=16"))
        , importer(importing())
        , buffer(connect(uuid)) {}

    const std::string address;
    const boost::uuids::uuid uuid;
    Importer importer;
    std::optional<StreamBuffer> buffer;
};

class LostPublisherMatrix : public LostPublisherTest {};

std::string matrixName(const testing::TestParamInfo<std::tuple<Use, Moment>>& parameter) {
    return std::get<0>(parameter.param).name + std::get<1>(parameter.param).name;
}

/// Make every kind of call and return the errors.
std::vector<std::string> errorsOfAllCalls(std::optional<StreamBuffer>& buffer) {
    std::vector<std::string> errors;
    for (const Use& use : uses()) {
        errors.push_back(errorOf([&] { use.run(buffer); }));
    }
    return errors;
}

TEST_P(LostPublisherMatrix, EndsTheCallAndAllLaterOnesAsLost) {
    const auto& [use, moment] = GetParam();
    const auto call = [&, &use = use] { return errorOf([&] { use.run(buffer); }); };
    std::string error;
    if (moment.point.empty()) {
        publisher.kill();
        error = Background(call).get(errorTime);
    } else {
        publisher.ask(
            "stop-next name=device operation=" + use.operation + " point=" + moment.point);
        Background running(call);
        publisher.ask(moment.arrival);
        ASSERT_TRUE(running.isRunning());
        publisher.kill();
        error = running.get(errorTime);
    }
    if (use.name == "destruction") {
        EXPECT_EQ(error, "no error");
        return;
    }
    EXPECT_EQ(error, terminated);
    EXPECT_THAT(
        Background([&] { return errorsOfAllCalls(buffer); }).get(errorTime),
        testing::Each(terminated));
}

std::vector<Use> usesAndDestruction() {
    std::vector<Use> all = uses();
    all.push_back(destruction);
    return all;
}

INSTANTIATE_TEST_SUITE_P(
    Killed, LostPublisherMatrix,
    testing::Combine(testing::ValuesIn(usesAndDestruction()), testing::ValuesIn(moments)),
    matrixName);

class LostPublisher : public ProcessTest {
protected:
    LostPublisher() {
        std::string endpoint = publisher.ask("open-endpoint" + where() + settings::quickKeepalive);
        socket = endpoint.substr(endpoint.find(' ') + 1);
    }

    ImporterOptions quickImporting() const {
        ImporterOptions options = importing();
        options.keepaliveTime = std::chrono::milliseconds(800);
        options.keepaliveTimeout = std::chrono::milliseconds(800);
        return options;
    }

    std::string socket;
};

TEST_F(LostPublisher, IsNamedInTheError) {
    const auto uuid = publish(publisher, "device", "kind=memory size=100");
    const Importer importer(importing());
    StreamBuffer buffer = connect(uuid);
    publisher.kill();
    EXPECT_THAT(
        [&] { buffer.sgetc(); }, testing::ThrowsMessage<PeerLost>(
                                     "Peer " + socket + " has terminated: Its process has ended."));
}

TEST_F(LostPublisher, IsNoEndOfDataToAStandardStream) {
    const auto uuid = publish(publisher, "device", "kind=memory size=100 buffer=16");
    const Importer importer(importing());
    StreamBuffer buffer = connect(uuid);
    std::istream stream(&buffer);
    EXPECT_EQ(stream.get(), pattern(1)[0]);
    publisher.kill();
    std::string readAhead(15, '\0');
    stream.read(readAhead.data(), 15);
    EXPECT_TRUE(stream.good());
    EXPECT_EQ(readAhead, pattern(16).substr(1));
    stream.get();
    EXPECT_TRUE(stream.bad());
    EXPECT_FALSE(stream.eof());
}

TEST_F(LostPublisher, LeavesNeitherServicesNorFilesBehind) {
    const auto uuid = publish(publisher, "device", "kind=memory size=100");
    const Importer importer(importing());
    LookUp lookUp(uuid);
    EXPECT_NE(lookUp.wait(), nullptr);
    EXPECT_EQ(streambuf::test::invokablesOf(uuid).size(), 1u);
    publisher.kill();
    EXPECT_TRUE(eventually([&] { return streambuf::test::invokablesOf(uuid).empty(); }));
    EXPECT_TRUE(eventually([&] { return endpointFiles() == 0; }));
    EXPECT_TRUE(eventually([&] { return importer.peers().empty(); }));
}

TEST_F(LostPublisher, IsNoticedAtOnceWhileAChildOfItHoldsItsSockets) {
    const auto uuid = publish(publisher, "device", "kind=memory size=100");
    const Importer importer(importing());
    StreamBuffer buffer = connect(uuid);
    const pid_t child = std::stoi(publisher.ask("fork"));
    publisher.ask("stop-next name=device operation=read point=entry");
    Background reading([&] { return errorOf([&] { buffer.sgetc(); }); });
    publisher.ask("await-stopped name=device");
    std::string error;
    const auto time = timeOf([&] {
        publisher.kill();
        error = reading.get(errorTime);
    });
    ::kill(child, SIGKILL);
    EXPECT_EQ(error, terminated);
    EXPECT_LT(time, std::chrono::seconds(2));
}

TEST_F(LostPublisher, ThatIsStoppedIsUnresponsiveAfterTheKeepaliveTime) {
    const auto uuid = publish(publisher, "device", "kind=memory size=100 buffer=16");
    const Importer importer(quickImporting());
    StreamBuffer idle = connect(uuid);
    StreamBuffer reader = connect(uuid);
    EXPECT_EQ(reader.sbumpc(), pattern(1)[0]);
    publisher.stop();
    Background reading([&] { return errorOf([&] { take(reader, 100); }); });
    EXPECT_EQ(reading.get(errorTime), unresponsive);
    EXPECT_EQ(errorOf([&] { reader.pubseekpos(0, std::ios_base::in); }), unresponsive);
    EXPECT_EQ(errorOf([&] { idle.sgetc(); }), unresponsive);

    publisher.signal(SIGCONT);
    StreamBuffer again = connect(uuid);
    EXPECT_EQ(again.pubseekpos(0, std::ios_base::in), std::streampos(0));
    EXPECT_EQ(take(again, 100), pattern(100));
    EXPECT_EQ(errorOf([&] { idle.sgetc(); }), unresponsive) << "what was lost stays lost";
}

TEST_F(LostPublisher, IsFoundAgainInANewProcess) {
    const auto uuid = newUuid();
    publish(publisher, "device", uuid, "kind=memory size=100");
    const Importer importer(importing());
    StreamBuffer old = connect(uuid);
    EXPECT_EQ(old.sgetc(), pattern(1)[0]);
    publisher.kill();

    RemoteComponent next;
    Background connecting([&] { return connect(uuid); });
    next.ask("open-endpoint" + where());
    publish(next, "device", uuid, "kind=memory size=50");
    StreamBuffer buffer = connecting.get();
    EXPECT_EQ(take(buffer, 100), pattern(50));
}

} // namespace
} // namespace agent::orvi::remoting::test
