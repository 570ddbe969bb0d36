#include "remoting/discovery/Waiting.hpp"
#include "remoting/safety/Certificates.hpp"
#include "remoting/safety/NameService.hpp"
#include "remoting/safety/RawEndpoint.hpp"
#include "support/Registry.hpp"

#include <orvi/remoting/Importer.hpp>

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/ServiceEvent.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace agent::orvi::remoting::test {
namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;
using State = PeerStatus::State;

/// Importers whose targets are names, and an endpoint that may have one of their addresses.
class TargetNamesTest : public testing::Test {
protected:
    void open() { open({at("endpoint.test")}); }

    void open(const std::vector<std::string>& targets) {
        options.local = false;
        options.targets = targets;
        options.plainLoopback = true;
        importer.emplace(options);
    }

    std::string at(const std::string& host) const { return host + ":" + std::to_string(port); }

    /// Start the endpoint where it was before.
    void restart() {
        endpoint.reset();
        endpoint.emplace(serveNothing, RawEndpoint::Script(), credentials, port);
    }

    /// Return whether the importer comes to know a peer.
    bool comesToKnow(const std::string& address, State state) const {
        return eventually([&] {
            const auto peers = importer->peers();
            return std::any_of(peers.begin(), peers.end(), [&](const PeerStatus& peer) {
                return peer.address == address && peer.state == state;
            });
        });
    }

    /// Return whether the importer comes to know one peer, this one.
    bool comesToKnowOnly(const std::string& address, State state) const {
        return comesToKnow(address, state) &&
               eventually([&] { return importer->peers().size() == 1; });
    }

    NameService names{"endpoint.test"};
    std::shared_ptr<grpc::ServerCredentials> credentials = grpc::InsecureServerCredentials();
    std::optional<RawEndpoint> endpoint{
        std::in_place, serveNothing, RawEndpoint::Script(), credentials};
    const int port = endpoint->port();
    ImporterOptions options;
    std::optional<Importer> importer;
};

TEST_F(TargetNamesTest, ThatAreUnknownAtFirstAreForgottenOnceTheyAreResolved) {
    open();
    ASSERT_TRUE(comesToKnowOnly(at("endpoint.test"), State::failed));
    EXPECT_THAT(importer->peers().front().error, testing::HasSubstr("endpoint.test"));
    names.set({"127.0.0.1"});
    EXPECT_TRUE(comesToKnowOnly(at("127.0.0.1"), State::connected));
    EXPECT_TRUE(importer->waitUntilSettled(longTime));
}

TEST_F(TargetNamesTest, LeaveNothingOfAddressesThatTheyHaveNoMore) {
    names.set({"127.0.0.2"}); // where nobody listens
    open();
    for (const char* const address : {"127.0.0.2", "127.0.0.3", "127.0.0.4"}) {
        names.set({address});
        ASSERT_TRUE(comesToKnowOnly(at(address), State::failed)) << address;
    }
    names.set({"127.0.0.1"});
    EXPECT_TRUE(comesToKnowOnly(at("127.0.0.1"), State::connected));
}

TEST_F(TargetNamesTest, KeepAConnectionToAnAddressThatTheyHaveNoMore) {
    names.set({"127.0.0.1"});
    open();
    ASSERT_TRUE(comesToKnowOnly(at("127.0.0.1"), State::connected));
    names.set({"127.0.0.2"});
    EXPECT_TRUE(importer->waitUntilSettled(longTime));
    EXPECT_TRUE(comesToKnowOnly(at("127.0.0.1"), State::connected));
}

TEST_F(TargetNamesTest, FindAnAddressAgainWhateverBecomesOfTheOthers) {
    const auto attempts = std::make_shared<EventLog<steady_clock::time_point>>();
    names.callWhenAsked([attempts] { attempts->add(steady_clock::now()); });
    names.set({"127.0.0.1", "127.0.0.2"}); // nobody listens on the second one
    open();
    ASSERT_TRUE(comesToKnow(at("127.0.0.1"), State::connected));
    ASSERT_TRUE(comesToKnow(at("127.0.0.2"), State::failed));
    // By then the second one is tried every few seconds only, and the last attempt is over.
    const auto last = attempts->waitFor(6).at(5);
    ASSERT_TRUE(eventually([&] { return steady_clock::now() - last > 500ms; }));
    endpoint.reset();
    ASSERT_TRUE(comesToKnow(at("127.0.0.1"), State::failed));
    const auto back = steady_clock::now();
    restart();
    EXPECT_TRUE(comesToKnow(at("127.0.0.1"), State::connected));
    EXPECT_LT(steady_clock::now() - back, 3s);
}

TEST_F(TargetNamesTest, AreTriedAllWhereTheyShareAnAddress) {
    CertificateAuthority authority;
    const TlsFiles files = authority.certify("endpoint", {.alternativeNames = "DNS:endpoint.test"});
    credentials = mutualTls(files, files.authorities);
    restart();
    NameService others{"another.test"};
    others.set({"127.0.0.1"});
    names.set({"127.0.0.1"});
    options.tls = authority.certify("importer");
    open({at("another.test"), at("endpoint.test")});
    EXPECT_TRUE(comesToKnowOnly(at("127.0.0.1"), State::connected));
}

TEST_F(TargetNamesTest, AreTriedAtOnceWhenSomebodyBeginsToLook) {
    const auto attempts = std::make_shared<EventLog<steady_clock::time_point>>();
    names.callWhenAsked([attempts] { attempts->add(steady_clock::now()); });
    open();
    // The next attempt follows 4 seconds later at the earliest; the last one is over by then.
    const auto all = attempts->waitFor(6);
    ASSERT_THAT(all, testing::SizeIs(6));
    ASSERT_TRUE(eventually([&] { return steady_clock::now() - all.back() > 500ms; }));
    names.set({"127.0.0.1"});
    const auto begin = steady_clock::now();
    auto listener = streambuf::test::registryContext().AddServiceListener(
        [](const cppmicroservices::ServiceEvent&) {}, "(orvi.servicename=looked for)");
    EXPECT_TRUE(comesToKnow(at("127.0.0.1"), State::connected));
    EXPECT_LT(steady_clock::now() - begin, 2500ms);
    streambuf::test::registryContext().RemoveListener(std::move(listener));
}

} // namespace
} // namespace agent::orvi::remoting::test
