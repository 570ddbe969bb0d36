#include "discovery/TargetPeers.hpp"

#include "remoting/discovery/Fixture.hpp"
#include "support/ThrowsExactly.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
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

    TargetPeers::Callbacks log() {
        return {
            [this](const TargetAddress& address) { due.add(address); },
            [this](const std::string&, const Addresses& found) { resolved.add(found); },
            [this](const std::string& target, const std::string& reason) {
                failed.add(target + ": " + reason);
            }};
    }

    std::unique_ptr<TargetPeers> find(const Targets& targets) {
        return std::make_unique<TargetPeers>(housekeeper, targets, log());
    }

    std::unique_ptr<TargetPeers>
    find(const Targets& targets, TargetPeers::Resolver resolver, TargetPeers::Backoff backoff) {
        return std::make_unique<TargetPeers>(
            housekeeper, targets, log(), std::move(resolver), backoff);
    }

    TargetPeers::Resolver service() {
        return [service = names](const HostPort& host) { return (*service)(host); };
    }

    /// Lose each address as soon as it is due, so many times altogether; those of `kept` never.
    ///
    /// @return what was due, in order.
    Addresses lose(TargetPeers& peers, std::size_t times, const Addresses& kept = {}) {
        std::size_t lost = 0;
        for (std::size_t i = 0; lost < times; ++i) {
            const Addresses all = due.waitFor(i + 1);
            if (all.size() <= i) {
                ADD_FAILURE() << "nothing is due any more";
                return all;
            }
            if (std::find(kept.begin(), kept.end(), all[i]) == kept.end()) {
                peers.lost(all[i], false);
                ++lost;
            }
        }
        return due.waitFor(times + kept.size());
    }

    /// Take two addresses.
    const std::vector<HostPort> two{{"192.0.2.1", 80}, {"2001:db8::1", 80}};
    const TargetAddress firstOfTwo{"host:80", "host", {"192.0.2.1", 80}};
    const TargetAddress secondOfTwo{"host:80", "host", {"2001:db8::1", 80}};
    /// Two targets with one address.
    const std::vector<HostPort> one{{"192.0.2.1", 80}};
    const TargetAddress ofOne{"one:80", "one", {"192.0.2.1", 80}};
    const TargetAddress ofOther{"other:80", "other", {"192.0.2.1", 80}};
    static constexpr TargetPeers::Backoff fast{1ms, 2ms};
    static constexpr TargetPeers::Backoff once{1h, 1h};

    const std::shared_ptr<NameService> names = std::make_shared<NameService>();
    test::EventLog<TargetAddress> due;
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

TEST_F(TargetPeersTest, GivesEachAddressBeforeItSaysThatTheNameIsResolved) {
    names->set(two);
    std::vector<std::string> order; // of the housekeeping thread
    const auto note = [&](const char* what) { order.emplace_back(what); };
    const TargetPeers peers(
        housekeeper, {"host:80"},
        {[&](const TargetAddress&) { note("due"); },
         [&](const std::string&, const Addresses& found) {
             note("resolved");
             resolved.add(found);
         },
         {}},
        service(), {});
    resolved.waitFor(1);
    drain();
    EXPECT_THAT(order, ElementsAre("due", "due", "resolved"));
}

TEST_F(TargetPeersTest, ResolvesAgainWhenAnAddressIsLost) {
    names->set(two);
    const auto peers = find({"host:80"}, service(), fast);
    resolved.waitFor(1);
    names->set({{"192.0.2.2", 80}});
    peers->lost(firstOfTwo, false);
    const auto all = resolved.waitFor(2);
    ASSERT_THAT(all, SizeIs(2));
    const TargetAddress next{"host:80", "host", {"192.0.2.2", 80}};
    EXPECT_THAT(all[1], ElementsAre(next));
    EXPECT_TRUE(due.waitForEvent(next));
}

TEST_F(TargetPeersTest, DoesNothingOnItsOwnOnceANameIsResolved) {
    names->set(two);
    const auto peers = find({"host:80", "host:80"}, service(), fast);
    resolved.waitFor(1);
    peers->lost({"unknown:80", "unknown", {"192.0.2.1", 80}}, true);
    peers->lost({"host:80", "host", {"192.0.2.9", 80}}, true);
    peers->hurry();
    drain();
    EXPECT_THAT(names->questions.all(), SizeIs(1));
    EXPECT_THAT(due.all(), ElementsAre(firstOfTwo, secondOfTwo));
}

TEST_F(TargetPeersTest, TakesALossOnlyOnce) {
    names->set(one);
    const auto peers = find({"host:80"}, service(), {50ms, 50ms});
    due.waitFor(1);
    // All are there before the first is looked at.
    std::promise<void> allLost;
    post([lost = allLost.get_future().share()] { lost.wait(); });
    for (int i = 0; i < 100; ++i) {
        peers->lost(firstOfTwo, false);
    }
    allLost.set_value();
    due.waitFor(2);
    resolved.waitFor(2);
    drain();
    EXPECT_THAT(due.all(), SizeIs(2));
    EXPECT_THAT(names->questions.all(), SizeIs(2));
}

TEST_F(TargetPeersTest, TriesAnAddressAgainWhateverBecomesOfTheOthers) {
    names->set(two);
    const auto peers = find({"host:80"}, service(), {1ms, 1h});
    // The second one fails until it waits for more than three seconds: 4096 ms, a fifth less.
    lose(*peers, 13, {firstOfTwo});
    const auto begin = steady_clock::now();
    peers->lost(firstOfTwo, true);
    EXPECT_EQ(due.waitFor(15).at(14), firstOfTwo);
    EXPECT_LT(steady_clock::now() - begin, 2s);
}

TEST_F(TargetPeersTest, TriesAnAddressAgainWhileTheNameIsUnknownOrNobodyAnswers) {
    names->set(one);
    std::promise<void> answer;
    const std::shared_future<void> slow(answer.get_future());
    std::atomic<bool> isSlow = false;
    const auto peers = find(
        {"host:80"},
        [names = names, &isSlow, slow](const HostPort& host) {
            if (isSlow) {
                slow.wait();
            }
            return (*names)(host);
        },
        fast);
    due.waitFor(1);
    names->set({});
    peers->lost(firstOfTwo, false);
    ASSERT_FALSE(failed.waitFor(1).empty());
    ASSERT_THAT(due.waitFor(2), SizeIs(2));
    isSlow = true;
    for (std::size_t i = 3; i < 10; ++i) {
        peers->lost(firstOfTwo, false);
        ASSERT_THAT(due.waitFor(i), SizeIs(i));
    }
    answer.set_value();
    names->set(one);
    resolved.waitFor(2);
}

TEST_F(TargetPeersTest, ForgetsAnAddressThatTheNameHasNoMoreOnceItIsLost) {
    names->set(two);
    const auto peers = find({"host:80"}, service(), fast);
    due.waitFor(2);
    names->set({two[0]});
    peers->lost(firstOfTwo, false);
    resolved.waitFor(2);
    // The second one is connected meanwhile.
    peers->lost(secondOfTwo, true);
    for (std::size_t i = 3; i < 10; ++i) {
        ASSERT_THAT(due.waitFor(i), SizeIs(i));
        EXPECT_EQ(due.all().back(), firstOfTwo);
        peers->lost(firstOfTwo, false);
    }
}

TEST_F(TargetPeersTest, TriesEachTargetOfAnAddressInTurn) {
    names->set(one);
    const auto peers = find({"one:80", "other:80"}, service(), fast);
    const auto all = lose(*peers, 20);
    ASSERT_GE(all.size(), 20U);
    EXPECT_THAT(all, Contains(ofOne).Times(testing::Ge(5)));
    EXPECT_THAT(all, Contains(ofOther).Times(testing::Ge(5)));
}

TEST_F(TargetPeersTest, TriesTheNextTargetOfAnAddressAtOnce) {
    names->set(one);
    const auto peers = find({"one:80", "other:80"}, service(), once);
    resolved.waitFor(2);
    const auto first = due.waitFor(1);
    ASSERT_THAT(first, SizeIs(1)); // not both at a time
    peers->lost(first[0], false);
    EXPECT_THAT(due.waitFor(2), UnorderedElementsAre(ofOne, ofOther));
}

TEST_F(TargetPeersTest, TriesAnAddressForTheTargetThatStillHasIt) {
    std::atomic<bool> moved = false;
    const HostPort elsewhere{"192.0.2.9", 80};
    std::promise<void> oneIsDue;
    const auto peers = find(
        {"one:80", "other:80"},
        [&, oneIsFirst = oneIsDue.get_future().share()](const HostPort& host) {
            if (host.host == "other") {
                oneIsFirst.wait();
            }
            return std::vector{moved && host.host == "one" ? elsewhere : one[0]};
        },
        fast);
    ASSERT_TRUE(due.waitForEvent(ofOne));
    oneIsDue.set_value();
    resolved.waitFor(2);
    moved = true;
    const std::size_t before = due.all().size();
    peers->lost(ofOne, true);
    EXPECT_TRUE(due.waitForEvent({"one:80", "one", elsewhere}));
    const auto all = due.waitFor(before + 2);
    EXPECT_EQ(std::count(all.begin() + static_cast<std::ptrdiff_t>(before), all.end(), ofOther), 1);
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

TEST_F(TargetPeersTest, WaitsTwiceAsLongForAnAddressEachTimeUpToTheLongest) {
    names->set(one);
    const auto peers = find({"host:80"}, service(), {20ms, 70ms});
    const std::vector<steady_clock::duration> least{16ms, 32ms, 56ms, 56ms};
    due.waitFor(1);
    for (std::size_t i = 0; i < least.size(); ++i) {
        const auto begin = steady_clock::now();
        peers->lost(firstOfTwo, false);
        ASSERT_THAT(due.waitFor(i + 2), SizeIs(i + 2));
        EXPECT_GE(steady_clock::now() - begin, least[i]) << i;
    }
}

TEST_F(TargetPeersTest, DoesNotWaitAsLongAsWhoeverWaitsForAnEndpoint) {
    EXPECT_LE(TargetPeers::Backoff{}.longest, 5s);
}

TEST_F(TargetPeersTest, StartsWithShortTimesAgainOnceItWasConnected) {
    names->set(two);
    const auto peers = find({"host:80"}, service(), {1ms, 1h});
    due.waitFor(2);
    for (std::size_t i = 3; i < 40; ++i) {
        // Without this, the times would double until nobody could wait for them.
        peers->lost(firstOfTwo, true);
        ASSERT_THAT(due.waitFor(i), SizeIs(i));
        ASSERT_THAT(resolved.waitFor(i - 1), SizeIs(i - 1));
    }
}

TEST_F(TargetPeersTest, TriesAtOnceWhenSomebodyBeginsToWait) {
    std::atomic<int> addresses = 0;
    const auto peers = find(
        {"host:80"}, [&](const HostPort& host) { return addresses > 0 ? two : (*names)(host); },
        once);
    ASSERT_FALSE(failed.waitFor(1).empty());
    addresses = 2;
    drain();
    peers->hurry();
    ASSERT_THAT(due.waitFor(2), ElementsAre(firstOfTwo, secondOfTwo));
    resolved.waitFor(1);
    peers->lost(secondOfTwo, false);
    peers->hurry();
    EXPECT_THAT(due.waitFor(3), ElementsAre(firstOfTwo, secondOfTwo, secondOfTwo));
    EXPECT_THAT(resolved.waitFor(2), SizeIs(2));
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
        std::in_place, *other, Targets{"slow:80", "quick:80"}, log(), std::move(resolver),
        TargetPeers::Backoff{});
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
            TargetPeers::Callbacks{
                [&](const TargetAddress& address) {
                    late += ended ? 1 : 0;
                    due.add(address);
                },
                [&](const std::string&, const Addresses&) { late += ended ? 1 : 0; },
                [](const std::string&, const std::string&) {}},
            service(), fast);
        peers->lost(due.waitFor(static_cast<std::size_t>(round) + 1).back(), false);
        peers.reset();
        ended = true;
        drain();
        ASSERT_EQ(late, 0);
    }
}

TEST_F(TargetPeersTest, CanBeDestroyedByItsCallback) {
    std::optional<TargetPeers> peers;
    const Targets targets{"192.0.2.1:80", "192.0.2.2:80"};
    housekeeper.runAndWait([&] {
        auto callbacks = log();
        callbacks.resolved = [&](const std::string&, const Addresses& found) {
            peers.reset();
            resolved.add(found);
        };
        peers.emplace(housekeeper, targets, std::move(callbacks));
    });
    resolved.waitFor(1);
    drain();
    EXPECT_THAT(resolved.all(), SizeIs(1));
    EXPECT_THAT(due.all(), SizeIs(1));
    housekeeper.runAndWait([&] {
        auto callbacks = log();
        callbacks.due = [&](const TargetAddress& address) {
            peers.reset();
            due.add(address);
        };
        peers.emplace(housekeeper, targets, std::move(callbacks));
    });
    due.waitFor(2);
    drain();
    EXPECT_THAT(due.all(), SizeIs(2));
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
