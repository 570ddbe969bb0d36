#include "allocations/FailingAllocation.hpp"
#include "remoting/carrier/ScriptedCarrier.hpp"

#include "support/Registry.hpp"

#include "imports/ImportTable.hpp"
#include "wire/FrameCodec.hpp"
#include "wire/PropertyCodec.hpp"

#include <gtest/gtest.h>

#include <cppmicroservices/ServiceTracker.h>

#include <memory>
#include <optional>
#include <string>

namespace agent::orvi::remoting::details::test {
namespace {

using orvi::test::failEachAllocation;
using orvi::test::FailingAllocation;
using streambuf::test::registryContext;
using Kind = StreamEnd::Kind;
using Tracker = cppmicroservices::ServiceTracker<core::Invokable>;

constexpr const char* filter = "(orvi.servicename=a service of a name that is long)";

std::string encoded(const v1::Frame& frame) {
    OutgoingFrame outgoing = encodeFrame(frame);
    return outgoing.head + std::string(outgoing.data.data, outgoing.data.size);
}

std::string greeting(const std::string& endpoint) {
    v1::Frame frame;
    frame.mutable_hello()->set_major(1);
    frame.mutable_hello()->set_framework("the framework of another process");
    frame.mutable_hello()->set_endpoint(endpoint);
    return encoded(frame);
}

std::string offer() {
    v1::Frame frame;
    frame.mutable_offer()->set_service(1);
    frame.mutable_offer()->mutable_interface()->set_name("a service of a name that is long");
    encodeProperties(
        *frame.mutable_offer(),
        {{"orvi.servicename", std::string("a service of a name that is long")}});
    return encoded(frame);
}

std::string withdrawal() {
    v1::Frame frame;
    frame.mutable_withdrawal()->set_service(1);
    return encoded(frame);
}

/// An import table with one peer, and somebody who looks for what that may offer.
class ImportTableFaults : public testing::Test {
protected:
    struct Peer {
        Peer()
            : tracker(registryContext(), cppmicroservices::LDAPFilter(filter)) {
            table = ImportTable::open(
                registryContext(), executor,
                [this](PeerLink&, const StreamEnd* end) { losses += end == nullptr ? 0 : 1; });
            tracker.Open();
            table->connect(connection, "peer");
            hear(greeting("the endpoint of another process"));
        }

        ~Peer() {
            table->close({Kind::disconnected, "The test is over."});
            run();
            tracker.Close();
        }

        ScriptedStream& stream() { return *connection->streams.at(0); }

        void hear(const std::string& frame) {
            stream().deliver(frame, frame.size());
            run();
        }

        void run() {
            while (connection->settle() || executor->runNext()) {
            }
        }

        /// Say whether its service is in the registry, whether or not trackers have noticed.
        static bool isFound() {
            return !registryContext().GetServiceReferences<core::Invokable>(filter).empty();
        }

        int losses = 0;
        const std::shared_ptr<ScriptedExecutor> executor = std::make_shared<ScriptedExecutor>();
        const std::shared_ptr<ScriptedConnection> connection =
            std::make_shared<ScriptedConnection>();
        std::shared_ptr<ImportTable> table;
        Tracker tracker;
    };
};

TEST_F(ImportTableFaults, TheLossOfAPeerEndsItsServicesWhateverFails) {
    const std::size_t failures = failEachAllocation([&](FailingAllocation& failure) {
        Peer peer;
        peer.hear(offer());
        ASSERT_TRUE(peer.isFound());
        peer.stream().lose({Kind::unresponsive, "Nothing was heard of it for a long time."});
        EXPECT_TRUE(failure.allows([&] { peer.run(); }));
        EXPECT_FALSE(peer.isFound());
        EXPECT_EQ(peer.losses, 1);
        EXPECT_TRUE(peer.table->awaitIdle(Executor::SteadyTime::clock::now()));
    });
    EXPECT_GT(failures, 3U);
}

TEST_F(ImportTableFaults, AnOfferIsTakenOrThePeerIsLost) {
    const std::size_t failures = failEachAllocation([&](FailingAllocation& failure) {
        Peer peer;
        const std::string frame = offer();
        EXPECT_TRUE(failure.allows([&] { peer.hear(frame); }));
        EXPECT_EQ(peer.isFound(), peer.losses == 0);
        if (peer.losses > 0) {
            EXPECT_TRUE(failure.happened());
            EXPECT_EQ(peer.stream().end()->kind, Kind::disconnected);
        }
    });
    EXPECT_GT(failures, 20U);
}

TEST_F(ImportTableFaults, AWithdrawalIsHeardOrThePeerIsLost) {
    const std::size_t failures = failEachAllocation([&](FailingAllocation& failure) {
        Peer peer;
        peer.hear(offer());
        ASSERT_TRUE(peer.isFound());
        const std::string frame = withdrawal();
        EXPECT_TRUE(failure.allows([&] { peer.hear(frame); }));
        EXPECT_FALSE(peer.isFound());
    });
    EXPECT_GT(failures, 3U);
}

TEST_F(ImportTableFaults, EveryPeerHearsALookUpThatIsMadeAgain) {
    const std::size_t failures = failEachAllocation([&](FailingAllocation& failure) {
        Peer peer;
        failure.allows([&] {
            peer.tracker.Close();
            peer.run();
        });
        peer.tracker.Open();
        peer.run();
        const auto another = std::make_shared<ScriptedConnection>();
        int looks = 0;
        another->whenOpened = [&looks](ScriptedStream& stream) {
            stream.whenSent = [&looks](const std::string& frame) {
                looks += frame[0] == (v1::Frame::kWantFieldNumber << 3 | 2) ? 1 : 0;
            };
        };
        peer.table->connect(another, "another");
        const std::string frame = greeting("another");
        another->streams.at(0)->deliver(frame, frame.size());
        while (another->settle() || peer.executor->runNext()) {
        }
        EXPECT_EQ(looks, 1);
        another->close({Kind::disconnected, {}});
        another->settle();
    });
    EXPECT_GT(failures, 0U);
}

} // namespace
} // namespace agent::orvi::remoting::details::test
