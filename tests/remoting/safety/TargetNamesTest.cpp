#include "remoting/discovery/Waiting.hpp"
#include "remoting/safety/NameService.hpp"
#include "remoting/safety/RawEndpoint.hpp"

#include <orvi/remoting/Importer.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace agent::orvi::remoting::test {
namespace {

using State = PeerStatus::State;

/// An importer whose target is a name, and an endpoint that may have the name's address.
class TargetNamesTest : public testing::Test {
protected:
    void open() {
        ImporterOptions options;
        options.local = false;
        options.targets = {at("endpoint.test")};
        options.plainLoopback = true;
        importer.emplace(options);
    }

    std::string at(const std::string& host) const {
        return host + ":" + std::to_string(endpoint.port());
    }

    /// Return whether the importer comes to know one peer, this one.
    bool comesToKnow(const std::string& address, State state) const {
        return eventually([&] {
            const auto peers = importer->peers();
            return peers.size() == 1 && peers.front().address == address &&
                   peers.front().state == state;
        });
    }

    NameService names{"endpoint.test"};
    RawEndpoint endpoint{
        [](grpc::ServerContext&, RawEndpoint::Stream& stream) {
            v1::Frame frame;
            frame.mutable_hello()->set_major(1);
            frame.mutable_hello()->set_framework("another framework");
            frame.mutable_hello()->set_endpoint("endpoint");
            stream.Write(frame);
            while (stream.Read(&frame)) {
            }
            return grpc::Status::OK;
        },
        {}};
    std::optional<Importer> importer;
};

TEST_F(TargetNamesTest, ThatAreUnknownAtFirstAreForgottenOnceTheyAreResolved) {
    open();
    ASSERT_TRUE(comesToKnow(at("endpoint.test"), State::failed));
    EXPECT_THAT(importer->peers().front().error, testing::HasSubstr("endpoint.test"));
    names.set("127.0.0.1");
    EXPECT_TRUE(comesToKnow(at("127.0.0.1"), State::connected));
    EXPECT_TRUE(importer->waitUntilSettled(longTime));
}

TEST_F(TargetNamesTest, LeaveNothingOfAddressesThatTheyHaveNoMore) {
    names.set("127.0.0.2"); // where nobody listens
    open();
    for (const char* const address : {"127.0.0.2", "127.0.0.3", "127.0.0.4"}) {
        names.set(address);
        ASSERT_TRUE(comesToKnow(at(address), State::failed)) << address;
    }
    names.set("127.0.0.1");
    EXPECT_TRUE(comesToKnow(at("127.0.0.1"), State::connected));
}

TEST_F(TargetNamesTest, KeepAConnectionToAnAddressThatTheyHaveNoMore) {
    names.set("127.0.0.1");
    open();
    ASSERT_TRUE(comesToKnow(at("127.0.0.1"), State::connected));
    names.set("127.0.0.2");
    EXPECT_TRUE(importer->waitUntilSettled(longTime));
    EXPECT_TRUE(comesToKnow(at("127.0.0.1"), State::connected));
}

} // namespace
} // namespace agent::orvi::remoting::test
