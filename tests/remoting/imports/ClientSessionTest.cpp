#include "remoting/carrier/ScriptedCarrier.hpp"
#include "remoting/wire/Frames.hpp"

#include "imports/ClientSession.hpp"
#include "wire/FrameLimits.hpp"

#include <orvi/remoting/Errors.hpp>

#include "support/ThrowsExactly.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace agent::orvi::remoting::details::test {
namespace {

using namespace std::chrono_literals;
using core::GenericPayload;
using streambuf::test::throwsExactly;

/// An importer's end of a call stream, and an exporter that answers every read with ten characters
/// while it may.
class ClientSessionTest : public testing::Test {
protected:
    ClientSessionTest() {
        connection->streams.reserve(10);
        executor->step = [this] { return step(); };
    }

    ~ClientSessionTest() override {
        session->close();
        while (connection->settle()) {
        }
    }

    std::string read(std::optional<std::chrono::milliseconds> timeLimit) {
        return session->call(timeLimit, "read", GenericPayload::fromValues(std::int64_t{10}), false)
            .take<std::string>(0);
    }

    /// Do what comes next on the newest stream.
    bool step() {
        if (const auto action = std::exchange(beforeFirstStep, nullptr)) {
            action();
        }
        ScriptedStream& stream = *connection->streams.back();
        if (said.size() < connection->streams.size()) {
            said.resize(connection->streams.size());
        }
        return stream.acknowledge() || stream.conclude() ||
               (answers && stream.deliver(frame(said.back()), 1000) && ++said.back() > 0);
    }

    /// Return what the exporter says as its first word on a stream, its second, ...
    static std::string frame(std::size_t number) {
        if (number > 0) {
            return framesOf(OutgoingMessage::answer(GenericPayload::fromValues(answer))).front();
        }
        v1::Frame greeting;
        greeting.mutable_hello()->set_major(protocolMajor);
        return encoded(encodeFrame(greeting));
    }

    inline static const std::string answer = "0123456789";

    bool answers = true;
    std::vector<std::size_t> said; // on each stream
    std::function<void()> beforeFirstStep;
    const std::shared_ptr<ScriptedConnection> connection = std::make_shared<ScriptedConnection>();
    const std::shared_ptr<ScriptedExecutor> executor = std::make_shared<ScriptedExecutor>();
    const std::shared_ptr<ClientSession> session =
        std::make_shared<ClientSession>(connection, executor, 3, "of the test");
};

TEST_F(ClientSessionTest, ACallThatIsNotAnsweredInTimeEndsAndTheNextOneHasAStreamOfItsOwn) {
    answers = false;
    executor->expired = true;
    EXPECT_THAT(
        [&] { read(0ms); },
        throwsExactly<TimeLimitExceeded>("Peer of the test has not answered in time."));
    ASSERT_EQ(connection->streams.size(), 1U);
    EXPECT_TRUE(connection->streams.front()->isOver());
    EXPECT_TRUE(session->isUsable());

    answers = true;
    executor->expired = false;
    EXPECT_EQ(read(10s), answer);
    EXPECT_EQ(connection->streams.size(), 2U);
}

TEST_F(ClientSessionTest, ACallWaitsForTheOneBeforeItNoLongerThanForItsAnswer) {
    std::promise<void> begun;
    std::promise<void> goOn;
    beforeFirstStep = [&] {
        begun.set_value();
        goOn.get_future().wait();
    };
    auto first = std::async(std::launch::async, [&] { return read(std::nullopt); });
    begun.get_future().wait();
    auto second = std::async(std::launch::async, [&] { return read(20ms); });
    const bool inTime = second.wait_for(20s) == std::future_status::ready;
    EXPECT_TRUE(inTime);
    goOn.set_value();
    EXPECT_EQ(first.get(), answer);
    EXPECT_THAT(
        [&] { second.get(); },
        throwsExactly<TimeLimitExceeded>("A call before this one has not ended in time."));
    EXPECT_EQ(read(10s), answer);
    EXPECT_EQ(connection->streams.size(), 1U);
}

} // namespace
} // namespace agent::orvi::remoting::details::test
