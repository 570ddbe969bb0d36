#include "allocations/FailingAllocation.hpp"
#include "remoting/carrier/ScriptedCarrier.hpp"
#include "remoting/wire/Frames.hpp"

#include "imports/ClientSession.hpp"
#include "imports/PeerLink.hpp"
#include "imports/StreamErrors.hpp"
#include "wire/FrameLimits.hpp"

#include <orvi/remoting/Errors.hpp>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <new>
#include <set>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

namespace agent::orvi::remoting::details::test {
namespace {

using core::GenericPayload;
using orvi::test::failEachAllocation;
using orvi::test::FailingAllocation;
using Kind = StreamEnd::Kind;

std::string greeting() {
    v1::Frame frame;
    frame.mutable_hello()->set_major(protocolMajor);
    frame.mutable_hello()->set_endpoint("endpoint");
    frame.mutable_hello()->set_framework("another");
    return encoded(encodeFrame(frame));
}

/// The endpoint's side of an importer's streams: it lets frames go, and says what it has to say on
/// each new stream once it is listened to and everything has gone.
class Exporter {
public:
    Exporter(ScriptedConnection& connection, std::vector<std::string> script)
        : connection(connection)
        , script(std::move(script)) {
        connection.streams.reserve(10);
    }

    /// @return false when there is nothing left to be done.
    bool step() {
        if (connection.streams.empty()) {
            return false;
        }
        if (connection.streams.size() != stream) {
            stream = connection.streams.size();
            said = 0;
        }
        ScriptedStream& open = *connection.streams.back();
        if (steps++ == lossAt) {
            open.lose(loss);
            lost = true;
            return true;
        }
        return open.acknowledge() || open.conclude() ||
               (said < script.size() && open.deliver(script[said], 1000) && ++said > 0);
    }

    std::size_t lossAt = static_cast<std::size_t>(-1); ///< The step at which the stream is lost.
    StreamEnd loss;
    bool lost = false;

private:
    ScriptedConnection& connection;
    const std::vector<std::string> script;
    std::size_t stream = 0; // the last one's number
    std::size_t said = 0;   // on it
    std::size_t steps = 0;
};

/// How a call has ended. It allocates nothing.
struct Outcome {
    GenericPayload answer;
    std::exception_ptr error;

    std::string text() const {
        try {
            std::rethrow_exception(error);
        } catch (const std::exception& exception) {
            return std::string(typeid(exception).name()) + ": " + exception.what();
        }
    }

    bool isOf(const std::type_info& type) const {
        try {
            std::rethrow_exception(error);
        } catch (const std::exception& exception) {
            return typeid(exception) == type;
        }
    }
};

class ClientFaults : public testing::Test {
protected:
    struct Client {
        explicit Client(const std::vector<std::string>& script)
            : exporter(*connection, script) {
            executor->step = [this] { return executor->runNext() || exporter.step(); };
        }

        ~Client() {
            session->close();
            while (connection->settle()) {
            }
        }

        Outcome call() {
            Outcome outcome;
            try {
                outcome.answer = session->call(
                    std::nullopt, method, GenericPayload::fromValues(std::int64_t{200'000}), false);
            } catch (...) {
                outcome.error = std::current_exception();
            }
            return outcome;
        }

        const std::string method = "read";
        const std::shared_ptr<ScriptedConnection> connection =
            std::make_shared<ScriptedConnection>();
        const std::shared_ptr<ScriptedExecutor> executor = std::make_shared<ScriptedExecutor>();
        const std::shared_ptr<ClientSession> session =
            std::make_shared<ClientSession>(connection, executor, 3, "peer");
        Exporter exporter;
    };

    static bool isAnswer(const Outcome& outcome) {
        return !outcome.error && outcome.answer.size() == 1 &&
               outcome.answer.peek<std::string>(0) == patternOf(200'000);
    }

    const std::vector<std::string> script = [] {
        std::vector<std::string> frames{greeting()};
        for (int calls = 0; calls < 2; ++calls) {
            for (auto& frame : framesOf(
                     OutgoingMessage::answer(GenericPayload::fromValues(patternOf(200'000))))) {
                frames.push_back(std::move(frame));
            }
        }
        return frames;
    }();
};

TEST_F(ClientFaults, ACallEndsWithItsAnswerOrAnError) {
    const std::size_t failures = failEachAllocation([&](FailingAllocation& failure) {
        Client client(script);
        Outcome outcome;
        EXPECT_TRUE(failure.allows([&] { outcome = client.call(); }));
        if (outcome.error) {
            EXPECT_TRUE(failure.happened());
            EXPECT_TRUE(outcome.isOf(typeid(std::bad_alloc)) || outcome.isOf(typeid(PeerLost)))
                << outcome.text();
        } else {
            EXPECT_TRUE(isAnswer(outcome));
        }
        // A stream whose answer nobody took may only go on behind that answer.
        const bool usable = client.session->isUsable();
        const Outcome next = client.call();
        if (usable) {
            EXPECT_TRUE(isAnswer(next)) << next.text();
        } else {
            EXPECT_TRUE(next.error);
        }
    });
    EXPECT_GT(failures, 10U);
}

TEST_F(ClientFaults, AStreamThatEndsAtAnyStepEndsTheCallWithItsReason) {
    const Kind kinds[] = {Kind::finished,     Kind::terminated,    Kind::disconnected,
                          Kind::unresponsive, Kind::protocolError, Kind::versionMismatch,
                          Kind::accessDenied, Kind::limitExceeded};
    for (const Kind kind : kinds) {
        const StreamEnd end{kind, "because"};
        Outcome expected;
        expected.error = errorOf(end, "peer");
        std::size_t at = 0;
        for (;; ++at) {
            Client client(script);
            client.exporter.lossAt = at;
            client.exporter.loss = end;
            const Outcome outcome = client.call();
            if (!client.exporter.lost) {
                EXPECT_TRUE(isAnswer(outcome));
                break;
            }
            ASSERT_TRUE(outcome.error) << "no end of data at step " << at;
            EXPECT_EQ(outcome.text(), expected.text());
            const bool usable = client.session->isUsable();
            const Outcome next = client.call();
            if (usable) {
                EXPECT_TRUE(isAnswer(next)) << "it had been refused before anything was done";
            } else {
                EXPECT_EQ(next.text(), expected.text()) << "what is lost stays lost";
            }
        }
        EXPECT_GT(at, 4U);
    }
}

TEST_F(ClientFaults, ARefusedStreamEndsTheCallAndIsReplacedOnlyWhereThatIsSafe) {
    Client client(script);
    client.connection->refuseNext = true;
    const Outcome refused = client.call();
    EXPECT_TRUE(refused.isOf(typeid(PeerLost)));
    EXPECT_EQ(client.call().text(), refused.text());
}

/// Takes note of what it is told, without an allocation.
struct Told final : PeerLink::Receiver {
    void greeted(PeerLink&) override {}

    void connected(PeerLink&) override { ++connections; }

    void offered(PeerLink&, std::shared_ptr<const v1::Offer>) override { ++offers; }

    void withdrawn(PeerLink&, const v1::Withdrawal&) override {}

    void settled(PeerLink&) override { ++settlements; }

    void lost(PeerLink& link) noexcept override {
        ++losses;
        kind = link.end().kind;
    }

    int connections = 0;
    int offers = 0;
    int settlements = 0;
    int losses = 0;
    Kind kind = Kind::finished;
};

class LinkFaults : public testing::Test {
protected:
    struct Link {
        explicit Link(const std::vector<std::string>& script)
            : exporter(*connection, script) {
            connection->whenOpened = [this](ScriptedStream& stream) {
                stream.whenSent = [this](const std::string& frame) { looks += isLook(frame); };
            };
        }

        /// Say what is looked for and hear what there is.
        void talk() {
            link->change(want, true);
            link->open();
            link->change(another, true);
            while (exporter.step()) {
            }
        }

        const Wants::Want want{1, "(orvi.servicename=one of a name that is long)"};
        const Wants::Want another{2, "(orvi.servicename=another of a name that is long)"};
        int looks = 0;
        const std::shared_ptr<ScriptedConnection> connection =
            std::make_shared<ScriptedConnection>();
        const std::shared_ptr<Told> told = std::make_shared<Told>();
        const std::shared_ptr<PeerLink> link =
            std::make_shared<PeerLink>(connection, told, "peer", "framework");
        Exporter exporter;
    };

    /// The tag of a look-up is the frame's first byte.
    static bool isLook(const std::string& frame) {
        return frame[0] == (v1::Frame::kWantFieldNumber << 3 | 2);
    }

    const std::vector<std::string> script = [] {
        v1::Frame offer;
        offer.mutable_offer()->set_service(1);
        offer.mutable_offer()->mutable_interface()->set_name("one of a name that is long");
        v1::Frame settled;
        settled.mutable_settled()->set_id(1);
        return std::vector{greeting(), encoded(encodeFrame(offer)), encoded(encodeFrame(settled))};
    }();
};

TEST_F(LinkFaults, APeerHearsEveryLookUpAndIsHeardOrTheLinkIsLost) {
    const std::size_t failures = failEachAllocation([&](FailingAllocation& failure) {
        Link link(script);
        const bool done = failure.allows([&] { link.talk(); });
        if (!done) {
            EXPECT_TRUE(link.connection->streams.empty()) << "whoever opens it hears that it fails";
        } else if (link.told->losses == 0) {
            EXPECT_EQ(link.looks, 2);
            EXPECT_EQ(link.told->offers, 1);
            EXPECT_EQ(link.told->settlements, 1);
        } else {
            EXPECT_TRUE(failure.happened());
            EXPECT_EQ(link.told->losses, 1);
            EXPECT_EQ(link.told->kind, Kind::disconnected);
        }
        for (const auto& stream : link.connection->streams) {
            stream->lose({Kind::disconnected, {}});
            stream->conclude();
        }
        EXPECT_EQ(link.told->losses, link.connection->streams.empty() ? 0 : 1);
    });
    EXPECT_GT(failures, 20U);
}

TEST_F(LinkFaults, AStreamThatEndsAtAnyStepIsALossWithItsReason) {
    for (std::size_t at = 0;; ++at) {
        Link link(script);
        link.exporter.lossAt = at;
        link.exporter.loss = {Kind::unresponsive, {}};
        link.talk();
        if (!link.exporter.lost) {
            EXPECT_GT(at, 4U);
            link.connection->streams.back()->lose({Kind::disconnected, {}});
            link.connection->streams.back()->conclude();
            break;
        }
        EXPECT_EQ(link.told->losses, 1);
        EXPECT_EQ(link.told->kind, Kind::unresponsive);
    }
}

} // namespace
} // namespace agent::orvi::remoting::details::test
