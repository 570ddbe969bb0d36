#include "discovery/TargetPeers.hpp"

#include "remoting/discovery/Fixture.hpp"
#include "support/ThrowsExactly.hpp"

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace agent::orvi::remoting::details {

void PrintTo(const TargetAddress& address, std::ostream* stream) {
    *stream << address.target << " " << address.hostName << " " << address.address();
}

namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

/// A name service that a test answers for.
struct NameService {
    std::vector<HostPort> operator()(const HostPort& host) {
        const std::lock_guard lock(mutex);
        questions.add(steady_clock::now());
        if (addresses.empty()) {
            throw std::runtime_error("nobody knows " + host.host);
        }
        return addresses;
    }

    void set(std::vector<HostPort> next) {
        const std::lock_guard lock(mutex);
        addresses = std::move(next);
    }

    test::EventLog<steady_clock::time_point> questions;
    std::mutex mutex;
    std::vector<HostPort> addresses; // guarded by mutex
};

class TargetPeersTest : public test::HousekeeperFixture {
protected:
    using Targets = std::vector<std::string>;
    using Addresses = std::vector<TargetAddress>;

    TargetPeers::Resolved log() {
        return [this](const std::string&, const Addresses& found) { resolved.add(found); };
    }

    TargetPeers::Failed logFailure() {
        return [this](const std::string& target, const std::string& reason) {
            failed.add(target + ": " + reason);
        };
    }

    std::unique_ptr<TargetPeers> find(const Targets& targets) {
        return std::make_unique<TargetPeers>(housekeeper, targets, log(), logFailure());
    }

    std::unique_ptr<TargetPeers>
    find(const Targets& targets, TargetPeers::Resolver resolver, TargetPeers::Backoff backoff) {
        return std::make_unique<TargetPeers>(
            housekeeper, targets, log(), logFailure(), std::move(resolver), backoff);
    }

    TargetPeers::Resolver service() {
        return [service = names](const HostPort& host) { return (*service)(host); };
    }

    /// Take two addresses.
    const std::vector<HostPort> two{{"192.0.2.1", 80}, {"2001:db8::1", 80}};
    const TargetAddress firstOfTwo{"host:80", "host", {"192.0.2.1", 80}};
    const TargetAddress secondOfTwo{"host:80", "host", {"2001:db8::1", 80}};
    static constexpr TargetPeers::Backoff fast{1ms, 2ms};

    const std::shared_ptr<NameService> names = std::make_shared<NameService>();
    test::EventLog<Addresses> resolved;
    test::EventLog<std::string> failed;
};

TEST_F(TargetPeersTest, ReportsAllAddressesOfAName) {
    names->set(two);
    const auto peers = find({"host:80"}, service(), {});
    EXPECT_THAT(resolved.waitFor(1), ElementsAre(ElementsAre(firstOfTwo, secondOfTwo)));
    EXPECT_EQ(firstOfTwo.address(), "192.0.2.1:80");
    EXPECT_EQ(secondOfTwo.address(), "[2001:db8::1]:80");
}

TEST_F(TargetPeersTest, AsksNobodyForNumericAddresses) {
    const auto peers = find({"192.0.2.7:80", "[::1]:81"}, service(), {});
    EXPECT_THAT(
        resolved.waitFor(2),
        UnorderedElementsAre(
            ElementsAre(TargetAddress{"192.0.2.7:80", "192.0.2.7", {"192.0.2.7", 80}}),
            ElementsAre(TargetAddress{"[::1]:81", "::1", {"::1", 81}})));
    EXPECT_THAT(names->questions.all(), IsEmpty());
}

TEST_F(TargetPeersTest, AsksTheSystemByDefault) {
    const auto peers = find({"localhost:80"});
    const auto all = resolved.waitFor(1);
    ASSERT_THAT(all, SizeIs(1));
    EXPECT_THAT(all[0], Contains(TargetAddress{"localhost:80", "localhost", {"127.0.0.1", 80}}));
}

TEST_F(TargetPeersTest, SaysWhyTheSystemKnowsNone) {
    const auto peers = find({"host.invalid:80"});
    const auto all = failed.waitFor(1);
    ASSERT_FALSE(all.empty());
    EXPECT_THAT(all[0], HasSubstr("host.invalid:80: Address host.invalid:80: "));
}

TEST_F(TargetPeersTest, FindsANameThatAppearsLater) {
    const auto peers = find({"host:80"}, service(), fast);
    EXPECT_THAT(failed.waitFor(3), testing::Each("host:80: nobody knows host"));
    EXPECT_THAT(resolved.all(), IsEmpty());
    names->set(two);
    EXPECT_THAT(resolved.waitFor(1), ElementsAre(ElementsAre(firstOfTwo, secondOfTwo)));
}

TEST_F(TargetPeersTest, TakesNoAddressesForAFailure) {
    const auto peers = find(
        {"host:80"}, [](const HostPort&) { return std::vector<HostPort>(); }, fast);
    EXPECT_THAT(failed.waitFor(2), Contains("host:80: Address host:80: no addresses"));
}

TEST_F(TargetPeersTest, ResolvesAgainWhenAskedTo) {
    names->set(two);
    const auto peers = find({"host:80"}, service(), fast);
    resolved.waitFor(1);
    names->set({{"192.0.2.2", 80}});
    peers->retry("host:80");
    const auto all = resolved.waitFor(2);
    ASSERT_THAT(all, SizeIs(2));
    EXPECT_THAT(all[1], ElementsAre(TargetAddress{"host:80", "host", {"192.0.2.2", 80}}));
}

TEST_F(TargetPeersTest, DoesNothingOnItsOwnOnceANameIsResolved) {
    names->set(two);
    const auto peers = find({"host:80", "host:80"}, service(), fast);
    resolved.waitFor(1);
    peers->retry("unknown:80");
    peers->connected("unknown:80");
    drain();
    EXPECT_THAT(names->questions.all(), SizeIs(1));
}

TEST_F(TargetPeersTest, TakesManyRequestsForOne) {
    names->set(two);
    const auto peers = find({"host:80"}, service(), {50ms, 50ms});
    resolved.waitFor(1);
    for (int i = 0; i < 100; ++i) {
        peers->retry("host:80");
    }
    resolved.waitFor(2);
    drain();
    EXPECT_THAT(names->questions.all(), SizeIs(2));
}

TEST_F(TargetPeersTest, WaitsTwiceAsLongEachTimeUpToTheLongest) {
    const auto peers = find({"host:80"}, service(), {20ms, 70ms});
    const auto questions = names->questions.waitFor(6);
    const std::vector<steady_clock::duration> least{16ms, 32ms, 64ms, 56ms, 56ms};
    for (std::size_t i = 0; i < least.size(); ++i) {
        EXPECT_GE(
            questions.at(i + 1) - questions.at(i), std::min<steady_clock::duration>(least[i], 56ms))
            << i;
    }
}

TEST_F(TargetPeersTest, StartsWithShortTimesAgainOnceItWasConnected) {
    const auto hour = std::chrono::hours(1);
    names->set(two);
    const auto peers = find({"host:80"}, service(), {1ms, hour});
    resolved.waitFor(1);
    for (std::size_t i = 2; i < 40; ++i) {
        // Without this, the times would double until nobody could wait for them.
        peers->connected("host:80");
        peers->retry("host:80");
        ASSERT_THAT(resolved.waitFor(i), SizeIs(i));
    }
}

TEST_F(TargetPeersTest, HoldsUpNothingWhileANameServiceIsSlow) {
    std::promise<void> answer;
    auto slow = std::make_shared<std::shared_future<void>>(answer.get_future());
    auto resolver = [slow](const HostPort& host) {
        if (host.host == "slow") {
            slow->wait();
        }
        return std::vector<HostPort>{{"192.0.2.1", 80}};
    };
    std::optional<Housekeeper> other(std::in_place);
    std::optional<TargetPeers> peers(
        std::in_place, *other, Targets{"slow:80", "quick:80"}, log(), logFailure(),
        std::move(resolver), TargetPeers::Backoff{});
    EXPECT_THAT(
        resolved.waitFor(1),
        ElementsAre(ElementsAre(TargetAddress{"quick:80", "quick", {"192.0.2.1", 80}})));
    peers.reset();
    other.reset();
    answer.set_value();
    EXPECT_TRUE(test::eventually([&] { return slow.use_count() == 1; }));
    EXPECT_THAT(resolved.all(), SizeIs(1));
}

TEST_F(TargetPeersTest, ReportsNothingAfterItsEnd) {
    for (int round = 0; round < 100; ++round) {
        names->set(two);
        std::atomic<bool> ended = false;
        std::atomic<int> late = 0;
        std::optional<TargetPeers> peers(
            std::in_place, housekeeper, Targets{"host:80", "192.0.2.1:80"},
            [&](const std::string&, const Addresses&) { late += ended ? 1 : 0; },
            [](const std::string&, const std::string&) {}, service(), fast);
        peers->retry("host:80");
        peers.reset();
        ended = true;
        drain();
        ASSERT_EQ(late, 0);
    }
}

TEST_F(TargetPeersTest, CanBeDestroyedByItsCallback) {
    std::optional<TargetPeers> peers;
    housekeeper.runAndWait([&] {
        peers.emplace(
            housekeeper, Targets{"192.0.2.1:80", "192.0.2.2:80"},
            [&](const std::string&, const Addresses& found) {
                peers.reset();
                resolved.add(found);
            },
            logFailure());
    });
    resolved.waitFor(1);
    drain();
    EXPECT_THAT(resolved.all(), SizeIs(1));
}

TEST_F(TargetPeersTest, RefusesWhatIsNoTarget) {
    EXPECT_THAT(
        [&] {
            find({"host:80", "nothing"});
        },
        streambuf::test::throwsExactly<std::invalid_argument>(
            "\"nothing\" is neither \"host:port\" nor \"[address]:port\""));
    EXPECT_THAT(
        [&] { find({"host:0"}); }, streambuf::test::throwsExactly<std::invalid_argument>(
                                       "\"host:0\" has no port to connect to"));
}

} // namespace
} // namespace agent::orvi::remoting::details
