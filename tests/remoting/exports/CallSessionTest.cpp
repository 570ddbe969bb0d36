#include "remoting/carrier/ScriptedCarrier.hpp"
#include "remoting/wire/Frames.hpp"
#include "support/Registry.hpp"

#include "exports/CallSession.hpp"
#include "wire/FrameLimits.hpp"

#include <cppmicroservices/Constants.h>
#include <cppmicroservices/ServiceRegistration.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace agent::orvi::remoting::details::test {
namespace {

using core::GenericPayload;
using streambuf::test::registryContext;

const std::string serviceName = "orviStreambuf_calls";

/// Keeps what it is asked for until somebody answers.
class HeldDevice final : public core::Invokable {
public:
    const core::ServiceInterface& serviceInterface() const override { return description; }

    bool hasMethod(const std::string&) const override { return true; }

    void invoke(
        std::optional<std::chrono::milliseconds>, std::string, core::CompletionHandler handler,
        GenericPayload arguments, bool) override {
        asked.push_back(arguments.peek<std::int64_t>(0));
        handlers.push_back(std::move(handler));
    }

    /// Answer the call that has waited longest.
    void answer(const std::string& text) {
        const core::CompletionHandler handler = std::move(handlers.front());
        handlers.erase(handlers.begin());
        handler.success(GenericPayload::fromValues(text));
    }

    std::vector<std::int64_t> asked;
    std::vector<core::CompletionHandler> handlers;

private:
    const core::ServiceInterface description{serviceName, core::APIVersion(1, 0), {}, {}};
};

/// An importer's stream, and the session behind it.
struct Client {
    void hear(const std::string& frame) {
        v1::Frame decoded;
        ASSERT_TRUE(decoded.ParseFromString(frame));
        if (decoded.has_answer()) {
            answers.push_back(decoded.data());
        } else if (decoded.has_failure()) {
            answers.push_back(decoded.failure().type());
        }
    }

    void say(const OutgoingFrame& frame) { ASSERT_TRUE(stream->deliver(encoded(frame), 1000)); }

    void read(std::int64_t count) {
        say(OutgoingMessage::request("read", false, GenericPayload::fromValues(count)).next());
    }

    const std::shared_ptr<ScriptedStream> stream = std::make_shared<ScriptedStream>();
    std::shared_ptr<CallSession> session;
    std::vector<std::string> answers; // data, or the type of the error
};

struct CallSessionTest : testing::Test {
    ~CallSessionTest() override {
        for (auto& client : clients) {
            client->stream->lose({StreamEnd::Kind::disconnected, {}});
            client->stream->conclude();
        }
        table->close();
        registration.Unregister();
    }

    Client& connect() {
        Client& client = *clients.emplace_back(std::make_unique<Client>());
        client.session = std::make_shared<CallSession>(
            client.stream, PeerNames{"uid:1"}, table, terms, *executor);
        client.stream->whenSent = [&client](const std::string& frame) { client.hear(frame); };
        client.stream->follow(client.session);
        client.stream->receive();
        v1::Frame greeting;
        greeting.mutable_hello()->set_major(protocolMajor);
        greeting.mutable_hello()->set_service(
            static_cast<std::uint64_t>(cppmicroservices::any_cast<long>(
                registration.GetReference().GetProperty(cppmicroservices::Constants::SERVICE_ID))));
        client.say(encodeFrame(greeting));
        settle();
        return client;
    }

    /// Let everything happen that can happen by itself.
    void settle() {
        for (bool busy = true; busy;) {
            busy = executor->runNext();
            for (auto& client : clients) {
                busy = client->stream->acknowledge() || client->stream->conclude() || busy;
            }
        }
    }

    const std::shared_ptr<HeldDevice> device = std::make_shared<HeldDevice>();
    cppmicroservices::ServiceRegistration<core::Invokable> registration =
        registryContext().RegisterService<core::Invokable>(
            std::static_pointer_cast<core::Invokable>(device),
            {{"orvi.servicename", serviceName}, {"service.exported.interfaces", std::string("*")}});
    std::shared_ptr<ScriptedExecutor> executor = std::make_shared<ScriptedExecutor>();
    std::shared_ptr<ExportTable> table = ExportTable::open(registryContext(), "endpoint", executor);
    std::shared_ptr<CallTerms> terms = std::make_shared<CallTerms>(EndpointOptions());
    std::vector<std::unique_ptr<Client>> clients;
};

TEST_F(CallSessionTest, CallsComeToTheDeviceInTheOrderInWhichTheyArrived) {
    Client& first = connect();
    Client& second = connect();
    Client& third = connect();
    third.read(1);
    first.read(2);
    second.read(3);
    settle();
    EXPECT_EQ(device->asked, (std::vector<std::int64_t>{1}));
    device->answer("a");
    settle();
    device->answer("b");
    settle();
    device->answer("c");
    settle();
    EXPECT_EQ(device->asked, (std::vector<std::int64_t>{1, 2, 3}));
    EXPECT_EQ(third.answers, std::vector<std::string>{"a"});
    EXPECT_EQ(first.answers, std::vector<std::string>{"b"});
    EXPECT_EQ(second.answers, std::vector<std::string>{"c"});
}

TEST_F(CallSessionTest, ACallThatWasAbandonedInTheQueueDoesNotReachTheDevice) {
    Client& running = connect();
    Client& waiting = connect();
    running.read(1);
    waiting.read(2);
    settle();
    running.session->abandon();
    waiting.session->abandon();
    settle();
    const std::vector<std::string> closed{"agent::orvi::core::ServiceUnavailable"};
    EXPECT_EQ(running.answers, closed);
    EXPECT_EQ(waiting.answers, closed);
    device->answer("too late");
    settle();
    EXPECT_EQ(device->asked, (std::vector<std::int64_t>{1}));
    EXPECT_EQ(running.answers, closed);
}

TEST_F(CallSessionTest, ANewCallBehindAnAbandonedOneGetsItsOwnArguments) {
    Client& running = connect();
    Client& client = connect();
    running.read(1);
    client.read(2);
    settle();
    client.session->abandon();
    settle();
    client.read(3);
    device->answer("first");
    settle();
    EXPECT_EQ(device->asked, (std::vector<std::int64_t>{1, 3}));
    device->answer("third");
    settle();
    EXPECT_EQ(
        client.answers,
        (std::vector<std::string>{"agent::orvi::core::ServiceUnavailable", "third"}));
}

} // namespace
} // namespace agent::orvi::remoting::details::test
